// What exact results over many arguments do not show of rounding, decomposition, selection and remainders: the
// processor's modes and flags, the seams between vector path and rare routine, and the rare routines by themselves.
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>
#include <xmmintrin.h>

#include "frame/description/rare.hpp"
#include "tests/call.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_routines.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;
using testing::PrintToString;

constexpr unsigned modes[] = {_MM_ROUND_NEAREST, _MM_ROUND_DOWN, _MM_ROUND_UP, _MM_ROUND_TOWARD_ZERO};

/// The functions of one element type.
template <typename T>
class Intpart : public testing::Test {
protected:
    static constexpr bool single = std::is_same_v<T, float>;
    static constexpr Lane lane = single ? Lane::f32 : Lane::f64;
    static constexpr int digits = std::numeric_limits<T>::digits;
    static constexpr int bias = std::numeric_limits<T>::max_exponent - 1;

    static T value(std::uint64_t pattern) { return std::bit_cast<T>(static_cast<decltype(bits(T()))>(pattern)); }
    static const Family& family(const std::string& operation) { return *find_family(operation + (single ? "f" : "")); }
    static Patterns exact(const std::string& operation, const Patterns& arguments) {
        return *exact_outputs(family(operation), arguments);
    }

    /// Results of the kernel of eight lanes.
    static CallResult run(const std::string& operation, const std::vector<Patterns>& arguments, unsigned mode = 0) {
        CallOptions options;
        options.mxcsr |= mode;
        return call_all(find_kernel(family(operation), 8), family(operation), 8, arguments, options);
    }

    /// Calls the library's rare routine and compares with the exact outputs.
    static void check_rare(const std::string& operation, const Patterns& arguments, RareStatus status, unsigned flags) {
        Patterns outputs(family(operation).outputs().size());
        const void* pointers[4] = {};
        std::size_t count = 0;
        for (const std::uint64_t& argument : arguments) pointers[count++] = &argument;
        for (std::uint64_t& output : outputs) pointers[count++] = &output;
        const RareRoutine routine = find_rare_routine(family(operation));
        const unsigned saved = _mm_getcsr();
        _mm_setcsr(saved & ~_MM_EXCEPT_MASK);
        const int got = routine(pointers[0], pointers[1], pointers[2], pointers[3]);
        const unsigned raised = _mm_getcsr() & (_MM_EXCEPT_DIV_ZERO | _MM_EXCEPT_OVERFLOW | _MM_EXCEPT_INVALID);
        _mm_setcsr(saved);
        ASSERT_EQ(outputs, exact(operation, arguments)) << operation << " of " << PrintToString(arguments);
        ASSERT_EQ(got, static_cast<int>(status)) << operation << " of " << PrintToString(arguments);
        ASSERT_EQ(raised & flags, flags) << operation << " of " << PrintToString(arguments);
    }

    static T random_number(int exponent, bool few_bits, RandomBits& random) {
        const std::uint64_t fraction = (std::uint64_t{1} << (digits - 1)) - 1;
        const std::uint64_t drawn = 1 + fraction + (random() & (few_bits ? fraction & ~(fraction >> 6) : fraction));
        return std::ldexp(random() & 1 ? T(drawn) : -T(drawn), exponent - digits + 1);
    }
    /// Finite pairs, x up to 2^difference times y, which is 1, of moderate size, or (every fourth) close to `ends`.
    static std::vector<Patterns> pairs(int difference, const Patterns& ends) {
        std::vector<Patterns> result(2);
        RandomBits random(1);
        for (int k = 0; k < 40000; ++k) {
            T y = k % 5 ? random_number(int(random() % 9) - 4, k % 3, random) : T(1);
            if (!ends.empty() && k % 4 == 0) y = value(ends[random() % ends.size()] + random() % 7 - 3);
            const T x = random_number(std::ilogb(y) + int(random() % (difference + 3)) - 2, k % 3, random);
            if (!std::isfinite(x) || !std::isfinite(y)) continue;
            result[0].push_back(bits(x));
            result[1].push_back(bits(random() & 1 ? y : -y));
        }
        return result;
    }
};
using ElementTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(Intpart, ElementTypes);

TYPED_TEST(Intpart, OnlyRintAndNearbyintRoundByTheMode) {
    const Patterns arguments = stratified_patterns(this->lane, 1, {}, 4);
    const char* const by_mode[] = {"rint", "floor", "ceil", "trunc"};
    for (std::size_t m = 0; m < std::size(modes); ++m)
        for (const char* operation : {"rint", "nearbyint", "floor", "ceil", "trunc", "round"}) {
            const bool follows = std::strstr("rint nearbyint", operation);
            const Patterns got = this->run(operation, {arguments}, modes[m]).outputs[0];
            for (std::size_t k = 0; k < arguments.size(); ++k)
                ASSERT_EQ(got[k], this->exact(follows ? by_mode[m] : operation, {arguments[k]})[0])
                    << operation << " in mode " << m << " of " << arguments[k];
        }
    const Patterns half(8, bits(TypeParam(2.5))), whole(8, bits(TypeParam(2)));
    EXPECT_EQ(this->run("rint", {half}).exception_flags, unsigned{_MM_EXCEPT_INEXACT});
    EXPECT_EQ(this->run("rint", {whole}).exception_flags, 0u);
    EXPECT_EQ(this->run("nearbyint", {half}).exception_flags, 0u);
}

TYPED_TEST(Intpart, EqualMagnitudesAreChosenByOperandOrder) {
    // Expected: the result of (0, -0), (-0, 0), (2, -2), (-2, 2), as signs.
    const std::pair<const char*, const char*> cases[] = {
        {"fmax", "-+++"}, {"fmin", "-+--"}, {"maxmag", "+-++"}, {"minmag", "+---"}};
    const TypeParam x[] = {0, TypeParam(-0.0), 2, -2};
    for (const auto& [operation, expected] : cases)
        for (int k = 0; k < 4; ++k) {
            const std::uint64_t got = this->run(operation, {{bits(x[k])}, {bits(-x[k])}}).outputs[0][0];
            EXPECT_EQ(got, bits(std::copysign(x[k], TypeParam(expected[k] == '-' ? -1 : 1)))) << operation << k;
        }
}

// One instruction and the return, byte by byte.
TEST(Intpart, ShortestKernels) {
    const std::uint8_t vroundps_xmm0_down[] = {0xc4, 0xe3, 0x79, 0x08, 0xc0, 0x01, 0xc3};
    EXPECT_EQ(std::memcmp(find_kernel(*find_family("floorf"), 4), vroundps_xmm0_down, 7), 0);
    const std::uint8_t vandps_ymm0_memory[] = {0xc5, 0xfc, 0x54, 0x05};
    const auto* fabsf8 = static_cast<const std::uint8_t*>(find_kernel(*find_family("fabsf"), 8));
    EXPECT_EQ(std::memcmp(fabsf8, vandps_ymm0_memory, 4), 0);
    EXPECT_EQ(fabsf8[8], 0xc3);
}

TYPED_TEST(Intpart, RemaindersWhereVectorPathAndRareRoutineMeet) {
    const Patterns ends = this->single ? Patterns{0x0c000000, 0x797fffff, 0x7e8fffff}
                                       : Patterns{0x0330000000000000, 0x7e4fffffffffffff, 0x7feffffffffffffc};
    const std::vector<Patterns> pairs = this->pairs(this->single ? 14 : 28, ends);
    for (const char* operation : {"fmod", "remainder", "remquo"}) {
        const CallResult got = this->run(operation, pairs);
        for (std::size_t k = 0; k < pairs[0].size(); ++k) {
            const Patterns lane{pairs[0][k], pairs[1][k]}, expected = this->exact(operation, lane);
            for (std::size_t v = 0; v < expected.size(); ++v)
                ASSERT_EQ(got.outputs[v][k], expected[v]) << operation << " of " << PrintToString(lane);
        }
    }
}

// A directed mode rounds the quotient its way; the remainder is then brought back within half of y, once. Downward, an
// exact difference of zero is negative.
TYPED_TEST(Intpart, QuotientsOfRemaindersFollowTheMode) {
    const std::uint64_t sign = bits(TypeParam(-0.0));
    const mpfr_rnd_t roundings[] = {MPFR_RNDN, MPFR_RNDD, MPFR_RNDU, MPFR_RNDZ};
    const std::vector<Patterns> pairs = this->pairs(10, {});
    for (std::size_t m = 0; m < std::size(modes); ++m) {
        const CallResult fmod = this->run("fmod", pairs, modes[m]), remquo = this->run("remquo", pairs, modes[m]);
        EXPECT_EQ(this->run("remainder", pairs, modes[m]).outputs[0], remquo.outputs[0]);
        for (std::size_t k = 0; k < pairs[0].size(); ++k) {
            const Patterns lane{pairs[0][k], pairs[1][k]};
            const Real x = Real::from_pattern(this->lane, lane[0]), y = Real::from_pattern(this->lane, lane[1]);
            const std::uint64_t zero = (lane[0] & sign) | (modes[m] == _MM_ROUND_DOWN ? sign : 0);
            Real n = x / y;
            mpfr_rint(n.mpfr(), n.mpfr(), roundings[m]);
            Real r = x - n * y;
            if (r.significant_bits() > this->digits) continue;  // of an x below y; the steps round it
            if (abs(r) > abs(y) * Real(0.5)) {
                const Real step(r.is_negative() == y.is_negative() ? 1 : -1);
                n = n + step;
                r = r - step * y;
            }
            ASSERT_EQ(remquo.outputs[0][k], r.is_zero() ? zero : r.to_pattern(this->lane)) << m << PrintToString(lane);
            ASSERT_EQ(static_cast<std::int32_t>(remquo.outputs[1][k]), n.to_double()) << m << PrintToString(lane);
            const std::uint64_t truncated = this->exact("fmod", lane)[0];
            ASSERT_EQ(fmod.outputs[0][k], truncated & ~sign ? truncated : zero) << m << PrintToString(lane);
        }
    }
}

// Long division over all differences of exponents, with subnormals on either side.
TYPED_TEST(Intpart, RareRemaindersAreExact) {
    RandomBits random(1);
    const int lowest = 2 - this->bias - this->digits;
    for (int difference = -3; difference <= this->bias - lowest; ++difference)
        for (int k = 0; k < 12; ++k) {
            const int room = this->bias - lowest - std::max(difference, 0) + 1;
            const int exponent = lowest + static_cast<int>(random() % (k % 3 ? room : std::min(room, this->digits)));
            const TypeParam x = this->random_number(exponent + difference, k % 2, random);
            const TypeParam y = this->random_number(exponent, k % 2, random);
            if (y == 0 || std::abs(y) == 1) continue;
            for (const char* operation : {"fmod", "remainder", "remquo"})
                this->check_rare(operation, {bits(x), bits(y)}, RareStatus::ordinary, 0);
        }
}

TYPED_TEST(Intpart, RareRemaindersOfSpecialArguments) {
    using T = TypeParam;
    const T infinity = std::numeric_limits<T>::infinity(), nan = std::numeric_limits<T>::quiet_NaN();
    const T operands[] = {0, T(-0.0), 3, -4, infinity, -infinity, nan, std::numeric_limits<T>::signaling_NaN()};
    for (T x : operands)
        for (T y : operands) {
            const bool invalid = !std::isnan(x) && !std::isnan(y) && (std::isinf(x) || y == 0);
            const unsigned flags = invalid ? _MM_EXCEPT_INVALID : 0;
            const Patterns arguments{bits(x), bits(y)};
            this->check_rare("fmod", arguments, invalid ? RareStatus::pole : RareStatus::ordinary, flags);
            for (const char* operation : {"remainder", "remquo"})
                this->check_rare(operation, arguments, invalid && y == 0 ? RareStatus::domain : RareStatus::ordinary,
                                 flags);
        }
}

// By 1, an integer below zero leaves +0. By y = 2^31 - 1, the quotient is one by 2^31, and y is subtracted as it is
// where the rest is not below it: a negative one always.
TEST(Intpart, RareFmodByOneAndByTheLargestInteger) {
    const double y = 2147483647.0;
    const double cases[][3] = {
        {-1, -1, -0.0},      {-5.75, 1, -0.75},     {-3, -1, 0.0},      {-0x1p60, 1, -0.0},
        {3 * y, y, 0},       {1 - 3 * y, y, 1 - y}, {3 * y, -y, 2 * y}, {-5 - 0x1p40, -y, -5 - 512 - y},
        {0x1p52, -y, 0x1p21}};
    for (const auto& [dividend, divisor, expected] : cases) {
        double r = 0;
        find_rare_routine (*find_family("fmod"))(&dividend, &divisor, &r, nullptr);
        EXPECT_EQ(bits(r), bits(expected)) << dividend << " by " << divisor << ": " << r;
    }
}

TYPED_TEST(Intpart, RareDecomposition) {
    using T = TypeParam;
    const auto ordinary = RareStatus::ordinary, domain = RareStatus::domain;
    const auto by_class = [&](bool stays, T result) {
        return stays || std::isnormal(result) ? ordinary
               : std::isinf(result)           ? RareStatus::overflow
                                              : RareStatus::underflow;
    };
    RandomBits random(1);
    const Patterns patterns = stratified_patterns(this->lane, 1, {}, 1);
    for (std::uint64_t pattern : patterns) {
        const T x = this->value(pattern);
        this->check_rare("modf", {pattern}, ordinary, 0);
        if (!std::isnormal(x)) {
            this->check_rare("frexp", {pattern}, ordinary, 0);
            this->check_rare("ilogb", {pattern}, x == 0 || !std::isfinite(x) ? domain : ordinary, 0);
            this->check_rare("logb", {pattern}, x ? ordinary : domain, x ? 0 : _MM_EXCEPT_DIV_ZERO);
        }
        for (std::uint64_t other : {pattern, pattern ^ (random() & 3), patterns[random() % patterns.size()]}) {
            const T y = this->value(other);
            const bool stays = x == y || std::isnan(x) || std::isnan(y);
            this->check_rare("nextafter", {pattern, other}, by_class(stays, std::nextafter(x, y)), 0);
        }
        // Products at the ends of the subnormal, of the normal and of the finite range, and far beyond.
        const int exponent = std::isfinite(x) && x != 0 ? std::ilogb(x) : 0;
        for (int end : {2 - this->bias - this->digits, 1 - this->bias, this->bias, 1 << 30, -(1 << 30)}) {
            const int n = end - exponent + static_cast<int>(random() % 7) - 3;
            const T product = std::ldexp(x, n);
            const bool subnormal = product != 0 && !std::isnormal(product) && std::isfinite(product);
            const bool stays = x == 0 || !std::isfinite(x) || subnormal;
            this->check_rare("ldexp", {pattern, static_cast<std::uint32_t>(n)}, by_class(stays, product),
                             !stays && std::isinf(product) ? _MM_EXCEPT_OVERFLOW : 0);
        }
    }
}

}  // namespace
}  // namespace tuvo

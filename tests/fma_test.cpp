// The fused multiply-add: its rare routines called directly, against MPFR, in every rounding mode of the x87 control
// word and of MXCSR; flags; and the kernels' way to them.
#include <array>
#include <bit>
#include <cmath>
#include <sstream>
#include <string>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "frame/rare.hpp"
#include "tests/call.hpp"
#include "tests/exact.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"

extern "C" {
tuvo::RareStatus fmaf_rare(const float* a, const float* b, const float* c, float* out);
tuvo::RareStatus fma_rare(const double* a, const double* b, const double* c, double* out);
}

namespace tuvo {
namespace {

/// The processor's rounding field, and how MPFR calls it.
constexpr std::array<mpfr_rnd_t, 4> directions{MPFR_RNDN, MPFR_RNDD, MPFR_RNDU, MPFR_RNDZ};
constexpr unsigned nearest = 0, down = 1, up = 2, toward_zero = 3;

constexpr unsigned underflow = _MM_EXCEPT_UNDERFLOW, overflow = _MM_EXCEPT_OVERFLOW, invalid = _MM_EXCEPT_INVALID;

using Arguments = std::array<std::uint64_t, 3>;

std::string text(const Arguments& arguments) {
    std::ostringstream out;
    for (std::uint64_t argument : arguments) out << " 0x" << std::hex << argument;
    return out.str();
}

struct Outcome {
    std::uint64_t pattern = 0;
    unsigned flags = 0;  ///< of underflow, overflow and invalid
};

std::uint16_t x87_control(unsigned rounding) { return static_cast<std::uint16_t>(0x37f | rounding << 10); }

/// Runs `body` with both rounding fields set.
template <typename Body>
Outcome in_modes(unsigned x87, unsigned mxcsr, Body body) {
    std::uint16_t saved_control;
    const std::uint16_t control = x87_control(x87);
    asm volatile("fnstcw %0" : "=m"(saved_control));
    const unsigned saved = _mm_getcsr();
    asm volatile("fldcw %0" : : "m"(control));
    _mm_setcsr(0x1f80 | mxcsr << 13);
    Outcome outcome;
    outcome.pattern = body();
    outcome.flags = _mm_getcsr() & (underflow | overflow | invalid);
    _mm_setcsr(saved);
    asm volatile("fldcw %0" : : "m"(saved_control));
    return outcome;
}

template <typename T>
struct Format;
template <>
struct Format<float> {
    static constexpr Lane lane = Lane::f32;
    static constexpr auto routine = fmaf_rare;
    static constexpr int fraction_bits = 23, bias = 127, all_ones = 255;
    static float number(std::uint64_t pattern) { return f32(static_cast<std::uint32_t>(pattern)); }
};
template <>
struct Format<double> {
    static constexpr Lane lane = Lane::f64;
    static constexpr auto routine = fma_rare;
    static constexpr int fraction_bits = 52, bias = 1023, all_ones = 2047;
    static double number(std::uint64_t pattern) { return f64(pattern); }
};

template <typename T>
class Fma : public testing::Test {
protected:
    using F = Format<T>;
    static constexpr std::uint64_t sign = std::uint64_t{1} << (8 * sizeof(T) - 1);
    static constexpr std::uint64_t fraction = (std::uint64_t{1} << F::fraction_bits) - 1;
    static constexpr std::uint64_t infinity = std::uint64_t{F::all_ones} << F::fraction_bits;
    static constexpr std::uint64_t nan = infinity | (fraction + 1) / 2;
    static constexpr std::uint64_t smallest_normal = fraction + 1, largest = infinity - 1;
    static constexpr std::uint64_t one = std::uint64_t{F::bias} << F::fraction_bits;

    /// 2^exponent.
    static std::uint64_t power(int exponent) {
        return one + (std::uint64_t(std::int64_t{exponent}) << F::fraction_bits);
    }

    static Outcome run(const Arguments& arguments, unsigned x87, unsigned mxcsr = nearest) {
        const T a = F::number(arguments[0]), b = F::number(arguments[1]), c = F::number(arguments[2]);
        return in_modes(x87, mxcsr, [&] {
            T result = 42;
            EXPECT_EQ(F::routine(&a, &b, &c, &result), RareStatus::ordinary);
            return std::uint64_t{bits(result)};
        });
    }

    /// Where the processor's product and sum are right as they are, and follow MXCSR.
    static bool is_easy(const Arguments& arguments) {
        for (int k = 0; k < 3; ++k) {
            const std::uint64_t magnitude = arguments[k] & ~sign;
            if (magnitude == 0 || magnitude >= infinity || (k < 2 && magnitude == one)) return true;
        }
        return false;
    }

    static std::uint64_t expected(const Arguments& arguments, unsigned x87, unsigned mxcsr) {
        const std::uint64_t exact =
            exact_fused_multiply_add(F::lane, arguments, directions[is_easy(arguments) ? mxcsr : x87]);
        if ((exact & ~sign) != infinity) return exact;
        // An overflow is an operation of the processor.
        const bool stays_finite = mxcsr == toward_zero || mxcsr == (exact & sign ? up : down);
        return stays_finite ? exact - 1 : exact;
    }

    /// A significand of a telling kind: random, few bits at the top, at the bottom, nearly all ones.
    static std::uint64_t random_fraction(RandomBits& random) {
        const std::uint64_t bits = random() & fraction;
        switch (random() % 5) {
        case 0: return bits & ~(fraction >> (1 + random() % 12));
        case 1: return bits & (fraction >> (F::fraction_bits - 1 - random() % 4));
        case 2: return fraction & ~(bits & (fraction >> (random() % F::fraction_bits)));
        default: return bits;
        }
    }

    /// Arguments where roundings go wrong: the addend close to the product, or at any distance up to where it is lost,
    /// and the result anywhere, also at the ends of the range.
    static Arguments random_arguments(RandomBits& random) {
        constexpr int digits = F::fraction_bits + 1;
        const auto make = [&](int exponent) {
            // Below the normal range, the bits that are left.
            const std::uint64_t significand = random_fraction(random) | (fraction + 1);
            const int field = exponent + F::bias;
            if (field >= F::all_ones) return largest - random() % 4;
            if (field <= 0) return field < -F::fraction_bits ? random() % 4 : significand >> (1 - field);
            return (std::uint64_t(field) << F::fraction_bits) | (significand & fraction);
        };
        const int kind = static_cast<int>(random() % 8);
        const int least = 1 - F::bias, most = F::bias;
        int product = static_cast<int>(random() % unsigned(most - least)) + least;
        if (kind == 1) product = least - digits - 2 + static_cast<int>(random() % unsigned(2 * digits));  // subnormal
        if (kind == 2) product = most - 2 + static_cast<int>(random() % 4);                               // overflow
        int first = static_cast<int>(random() % unsigned(most - least)) + least;
        if (first < product - most) first = product - most;
        if (first > product - least + digits) first = product - least + digits;
        const int distance = static_cast<int>(random() % unsigned(6 * digits)) - 3 * digits;
        Arguments arguments{make(first), make(product - first),
                            make(product + (random() % 2 ? distance % 3 : distance))};
        if (kind == 3 || kind == 4) {  // cancellation, down to nothing
            const T rounded = F::number(arguments[0]) * F::number(arguments[1]);
            if (std::isfinite(rounded)) arguments[2] = bits(-rounded) ^ (random() % 3 ? random() % 4 : 0);
        }
        for (std::uint64_t& argument : arguments) argument ^= random() & sign;
        return arguments;
    }

    void expect_result(const Arguments& arguments, unsigned x87, unsigned mxcsr) {
        ASSERT_EQ(run(arguments, x87, mxcsr).pattern, expected(arguments, x87, mxcsr))
            << "x87 mode " << x87 << ", MXCSR mode " << mxcsr << ", arguments" << text(arguments);
    }
};

using Types = testing::Types<float, double>;
TYPED_TEST_SUITE(Fma, Types);

TYPED_TEST(Fma, RoundsOnceInEveryMode) {
    RandomBits random(1);
    for (int k = 0; k < 400000; ++k) {
        const Arguments arguments = this->random_arguments(random);
        for (unsigned mode = 0; mode < 4; ++mode) this->expect_result(arguments, mode, (k + mode) % 4);
        if (this->HasFatalFailure()) return;
    }
}

// All combinations of the values that are told apart, NaNs with different payloads and signalling ones among them.
TYPED_TEST(Fma, SpecialArguments) {
    std::vector<std::uint64_t> values;
    for (std::uint64_t value : {std::uint64_t{0}, std::uint64_t{1}, this->smallest_normal, this->one, this->power(1),
                                this->largest, this->infinity, this->nan | 5, this->infinity | 9})
        values.insert(values.end(), {value, value | this->sign});
    for (std::uint64_t a : values)
        for (std::uint64_t b : values)
            for (std::uint64_t c : values)
                for (unsigned mode = 0; mode < 4; ++mode) this->expect_result({a, b, c}, mode, nearest);
}

// The underflow flag goes with results that are inexact and tiny, or the smallest normal from a tie; overflow and
// invalid come from the processor's own operations.
TYPED_TEST(Fma, Flags) {
    using F = Format<TypeParam>;
    const std::uint64_t half = this->power(-1), tiny = this->smallest_normal, minus = this->sign;
    const std::uint64_t above = this->one + 1, below = this->one - 1;
    struct Case {
        Arguments arguments;
        std::array<unsigned, 4> flags;  ///< by x87 mode
    };
    const Case cases[] = {
        // exact: subnormal, and by cancellation
        {{tiny, half, tiny - 2}, {0, 0, 0, 0}},
        {{above, above, minus | bits(F::number(above) * F::number(above))}, {0, 0, 0, 0}},
        // inexact and subnormal
        {{tiny | 1, half, 1}, {underflow, underflow, underflow, underflow}},
        // the middle between the largest subnormal and the smallest normal: 2^-126 (1 - 2^-24) in float
        {{tiny, below, minus | 1}, {underflow, underflow, underflow, underflow}},
        {{tiny | 1, half, tiny / 2 - 1}, {underflow, underflow, 0, underflow}},
        {{tiny | 1, half, tiny / 2}, {underflow, 0, 0, underflow}},  // half a place above the smallest normal
        {{tiny | 1, below, tiny}, {0, 0, 0, 0}},
        // overflow, by rounding and otherwise
        {{this->largest, this->power(1), 1}, {overflow, overflow, overflow, overflow}},
        {{this->largest - 1, above, this->one}, {overflow, 0, overflow, 0}},
        // processor's own
        {{this->infinity, 0, this->one}, {invalid, invalid, invalid, invalid}},
        {{this->infinity, this->one, minus | this->infinity}, {invalid, invalid, invalid, invalid}},
        {{this->infinity, 0, this->nan}, {0, 0, 0, 0}},
        {{this->infinity | 1, half, half}, {invalid, invalid, invalid, invalid}},
        {{this->largest, this->largest, this->infinity}, {0, 0, 0, 0}},
    };
    for (const Case& c : cases)
        for (unsigned mode = 0; mode < 4; ++mode)
            EXPECT_EQ(this->run(c.arguments, mode).flags, c.flags[mode])
                << "x87 mode " << mode << ", arguments" << text(c.arguments);
}

// At every width and in both forms of a call, each lane is rounded by the x87 control word as it stands at the call.
TEST(FmaKernels, RoundByTheControlWordOfTheCall) {
    RandomBits random(2);
    for (const char* name : {"fmaf", "fmaf_rm", "fma"}) {
        const Family& family = *find_family(name);
        std::vector<std::vector<std::uint64_t>> arguments(3);
        for (int lane = 0; lane < 16; ++lane)
            for (std::vector<std::uint64_t>& argument : arguments)
                argument.push_back(family.element == Lane::f32 ? 0x40000000 | (random() & 0x807fffff)
                                                               : 0x4000000000000000 | (random() & 0x800fffffffffffff));
        for (int width : widths) {
            for (unsigned mode = 0; mode < 4; ++mode) {
                CallOptions options;
                options.x87_control = x87_control(mode);
                const CallResult result = call(find_kernel(family, width), family, width, arguments, options);
                EXPECT_EQ(result.violations, std::vector<std::string>{});
                for (int lane = 0; lane < width; ++lane) {
                    const Arguments own{arguments[0][lane], arguments[1][lane], arguments[2][lane]};
                    EXPECT_EQ(result.outputs[0][lane], exact_fused_multiply_add(family.element, own, directions[mode]))
                        << short_name(family, width) << ", lane " << lane << ", x87 mode " << mode;
                }
            }
        }
    }
}

}  // namespace
}  // namespace tuvo

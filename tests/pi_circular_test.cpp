// The circular functions of pi times x: exact zeros, ones and poles and their signs at every size, infinities and NaN,
// and the rare routines called directly.
#include <bit>
#include <cmath>
#include <limits>

#include "tests/circular.hpp"
#include "tests/inputs.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

template <typename T>
class PiCircular : public testing::Test {};
using Types = testing::Types<float, double>;
TYPED_TEST_SUITE(PiCircular, Types);

template <typename T>
using Pattern = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

template <typename T>
std::uint64_t pattern_of(T x) {
    return std::bit_cast<Pattern<T>>(x);
}
template <typename T>
T value_of(std::uint64_t pattern) {
    return std::bit_cast<T>(Pattern<T>(pattern));
}

/// "sinpi", "_native" to "sinpif_native" for floats.
template <typename T>
std::string name(const char* operation, const char* tier) {
    return std::string(operation) + (sizeof(T) == 4 ? "f" : "") + tier;
}

/// Multiples of 1/2 of every size, with both signs: some in sequence, then 2^e and its neighbours as far as there are.
template <typename T>
std::vector<T> multiples_of_a_half() {
    std::vector<T> multiples;
    for (int k = 0; k < 40; ++k) multiples.push_back(T(k) / 2);
    for (int e = 5; e < std::numeric_limits<T>::max_exponent; ++e) {
        const T power = std::ldexp(T(1), e);
        for (T beside : {T(0), T(0.5), T(1), T(1.5), T(2), T(-0.5), T(-1)}) {
            const T x = power + beside;
            if (x - power == beside) multiples.push_back(x);
        }
    }
    const std::size_t count = multiples.size();
    for (std::size_t k = 0; k < count; ++k) multiples.push_back(-multiples[k]);
    return multiples;
}

TYPED_TEST(PiCircular, MultiplesOfAHalfAreExactAtEverySize) {
    using T = TypeParam;
    const std::vector<T> multiples = multiples_of_a_half<T>();
    Patterns arguments, sines, cosines, tangents;
    for (const char* tier : {"", "_native"}) {
        const auto at = [&](const char* operation, T x) {
            return value_of<T>(results(name<T>(operation, tier).c_str(), {pattern_of(x)}).at(0));
        };
        // What stands for 1 differs: the rounding of pi and the shorter polynomials show there.
        const T sine_of_half = at("sinpi", T(0.5)), cosine_of_0 = at("cospi", T(0));
        arguments.clear(), sines.clear(), cosines.clear(), tangents.clear();
        for (T x : multiples) {
            const T halves = 2 * std::fmod(std::abs(x), T(2));  // 0 to 3
            const T sign = std::copysign(T(1), x);
            arguments.push_back(pattern_of(x));
            sines.push_back(pattern_of(sign * (halves == 1 ? sine_of_half : halves == 3 ? -sine_of_half : T(0))));
            cosines.push_back(pattern_of(halves == 0 ? cosine_of_0 : halves == 2 ? -cosine_of_0 : T(0)));
            const T tangent = halves == 0 ? T(0) : halves == 2 ? -T(0) : halves == 1 ? T(INFINITY) : -T(INFINITY);
            tangents.push_back(pattern_of(sign * tangent));
        }
        for (const auto& [operation, expected] :
             {std::pair("sinpi", &sines), std::pair("cospi", &cosines), std::pair("tanpi", &tangents)}) {
            const std::string family = name<T>(operation, tier);
            const Patterns found = results(family.c_str(), arguments);
            for (std::size_t k = 0; k < found.size(); ++k)
                EXPECT_EQ(found[k], (*expected)[k]) << std::hex << family << " 0x" << arguments[k];
        }
    }
}

TEST(PiCircular, WhatStandsForOne) {
    const std::uint64_t half = 0x3fe0000000000000, one = 0x3ff0000000000000;
    for (const char* tier : {"", "_native"}) {
        EXPECT_EQ(results(name<float>("sinpi", tier).c_str(), {0x3f000000}), Patterns{0x3f800000}) << tier;
        EXPECT_EQ(results(name<float>("cospi", tier).c_str(), {0}), Patterns{0x3f800000}) << tier;
    }
    EXPECT_EQ(results("sinpi", {half}), Patterns{one - 1});
    EXPECT_EQ(results("cospi", {0}), Patterns{one});  // by a pi one unit higher
    EXPECT_EQ(results("sinpi_native", {half}), Patterns{pattern_of(1.0000000060538703)});
}

TYPED_TEST(PiCircular, InfinitiesAndNanGiveNan) {
    using T = TypeParam;
    const T infinity = std::numeric_limits<T>::infinity(), nan = std::numeric_limits<T>::quiet_NaN();
    const Patterns arguments{pattern_of(infinity), pattern_of(-infinity), pattern_of(nan), pattern_of(T(1e30f))};
    for (const char* operation : {"sinpi", "cospi", "tanpi"})
        for (const char* tier : {"", "_native"}) {
            const Patterns found = results(name<T>(operation, tier).c_str(), arguments);
            for (int k = 0; k < 3; ++k) EXPECT_TRUE(std::isnan(value_of<T>(found[std::size_t(k)]))) << operation << k;
            EXPECT_FALSE(std::isnan(value_of<T>(found[3]))) << operation;
        }
}

TYPED_TEST(PiCircular, ErrorsNextToTheLimitsOfTheReduction) {
    using T = TypeParam;
    Patterns arguments;
    for (int e : sizeof(T) == 4 ? std::vector{22, 23, 31} : std::vector{43, 51, 52, 59})
        for (int k = -9; k <= 9; ++k) arguments.push_back(pattern_of(std::ldexp(T(1), e)) + std::uint64_t(k));
    for (const char* operation : {"sinpi", "cospi", "tanpi"}) {
        const std::string family = name<T>(operation, "");
        expect_errors_below(family.c_str(), find_described(family)->accuracy.ulp, arguments);
    }
}

TEST(PiCircularRare, OnlyTheTangentCallsInfinityInvalid) {
    const std::uint32_t infinity = 0x7f800000, sign = 0x80000000;
    for (const char* family : {"sinpif", "cospif"})
        for (std::uint64_t x : {infinity, sign | infinity, 0x7fc00001u, 0xff800001u})
            EXPECT_EQ(call_rare(*find_family(family), {x}), (RareResult{0x7fffffff, 0, 0})) << family;
    const Family &single = *find_family("tanpif"), &twice = *find_family("tanpi");
    for (std::uint64_t x : {infinity, sign | infinity})
        EXPECT_EQ(call_rare(single, {x}), (RareResult{0xffc00000, 1, _MM_EXCEPT_INVALID}));
    for (std::uint64_t x : {0x7ff0000000000000u, 0xfff0000000000000u})
        EXPECT_EQ(call_rare(twice, {x}), (RareResult{0xfff8000000000000, 1, _MM_EXCEPT_INVALID}));
    EXPECT_EQ(call_rare(single, {0xffc12345}), (RareResult{0xffc12345, 0, 0}));
    EXPECT_EQ(call_rare(single, {0x7f812345}), (RareResult{0x7fc12345, 0, _MM_EXCEPT_INVALID}));
    EXPECT_EQ(call_rare(twice, {0xfff8000000012345}), (RareResult{0xfff8000000012345, 0, 0}));
}

}  // namespace
}  // namespace tuvo

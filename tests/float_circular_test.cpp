// The float circular functions: tables and fits, the reduction of large arguments, special values, the rare routines
// called directly, and errors where they are hardest to keep.
#include <xmmintrin.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "circular/float_reduction.hpp"
#include "circular/float_turn_tables.hpp"
#include "circular/table_rules.hpp"
#include "tests/circular.hpp"
#include "tests/inputs.hpp"

// They return a status: 0, or 1 for an invalid argument.
extern "C" {
int sinf_rare(const float* x, float* r);
int cosf_rare(const float* x, float* r);
int tanf_rare(const float* x, float* r);
int sincosf_rare(const float* x, float* sine, float* cosine);
int sincosregf_rare(const float* x, float* sine, float* cosine);
}

namespace tuvo {
namespace {

using Row = Patterns;

constexpr std::uint64_t sign = 0x80000000, one = 0x3f800000, infinity = 0x7f800000;

std::uint32_t pattern_of(double x) { return std::bit_cast<std::uint32_t>(static_cast<float>(x)); }
Real real(std::uint64_t pattern) { return Real::from_pattern(Lane::f32, pattern); }

// Tables.

TEST(FloatTurnTables, WordsMoveUpByOneBitFromRowToRow) {
    const RawTable table = inv_two_pi_words();
    ASSERT_EQ(table.patterns.size(), 256u * 3);
    EXPECT_EQ(entry(table, 127), (Row{0x00000051, 0x7cc1b727, 0x220a94fe}));
    EXPECT_EQ(entry(table, 150), (Row{0x28be60db, 0x9391054a, 0x7f09d5f4}));
    EXPECT_EQ(entry(table, 254), (Row{0x4d377036, 0xd8a5664f, 0x10e4107f}));
    EXPECT_EQ(entry(table, 56), (Row{0, 0, 0}));
    EXPECT_EQ(entry(table, 57), (Row{0, 0, 1}));
    for (int e = 0; e < 255; ++e) {
        const Row row = entry(table, e), next = entry(table, e + 1);
        EXPECT_EQ(next[0], (row[0] << 1 | row[1] >> 31) & 0xffffffff) << e;
        EXPECT_EQ(next[1], (row[1] << 1 | row[2] >> 31) & 0xffffffff) << e;
        EXPECT_EQ(next[2] >> 1, row[2] & 0x7fffffff) << e;
    }
}

TEST(FloatTurnTables, PointsOfTheTurn) {
    const RawTable table = sin_cos_turn_table(), rotated = sin_cos_turn_table(64);
    ASSERT_EQ(table.patterns.size(), 256u * 4);
    EXPECT_EQ(entry(table, 0), (Row{0, 0, 0, one}));
    EXPECT_EQ(entry(table, 1), (Row{0xb99de7df, 0x3cc90ab0, 0xb005c998, one}));
    EXPECT_EQ(entry(table, 32), (Row{0xbe95f61a, 0x3f3504f3, 0x324fe77a, one}));
    EXPECT_EQ(entry(table, 33), (Row{0x3e4216eb, 0x3f396842, 0xb2810007, 0x3f000000}));
    EXPECT_EQ(entry(table, 64), (Row{0, one, 0, 0}));
    EXPECT_EQ(entry(table, 128), (Row{0, 0, 0, sign | one}));
    for (int i = 0; i < 256; ++i) {
        const Row row = entry(table, i);
        EXPECT_EQ(entry(rotated, i), entry(table, (i + 64) % 256)) << i;
        EXPECT_LE(real(row[3]).significant_bits(), 1) << i;
        EXPECT_LE(abs(real(row[1]) + real(row[2]) - sin(2 * pi() * i / 256)), power_of_two(-49)) << i;
        EXPECT_LE(abs(real(row[3]) + real(row[0]) - cos(2 * pi() * i / 256)), power_of_two(-26)) << i;
    }
}

TEST(FloatTurnTables, PointsOfTheHalfTurn) {
    const RawTable table = tan_pole_table();
    ASSERT_EQ(table.patterns.size(), 128u * 10);
    const std::pair<int, Row> known[] = {
        {0, {0x3fc90fdb, 0xb33bbd2e, 0, 0, 0, one, 0, 0, 0x3eaaacdd, 0}},
        {1, {0x3fc5eb9b, 0x32de638c, 0, 0x3cc91a31, 0x2f8e8d1a, one, 0x3a1dfa00, 0x3cc9392d, 0x3eab1889, 0x3c885d3b}},
        {32,
         {0x3f490fdb, 0xb2bbbd2e, one, 0xbe8be60e, 0x320d8d84, 0x3f000000, 0xbdf817b1, 0xbd8345eb, 0x3d1dfdac,
          0xbc52cf6f}},
        {64, {0, 0, one, 0, 0, 0x3e800000, 0x3daaaaab, 0, 0x3cb5e28b, 0}},
        {96,
         {0xbf490fdb, 0x32bbbd2e, 0, 0xbf800000, 0x2b410000, 0x40000000, 0xb3000000, 0xc0000000, 0x402ab7c8,
          0xc05561db}},
        {127, {0xbfc5eb9b, 0xb2de638c, 0, 0xbcc91a31, 0xaf8e8d1a, one, 0x3a1dfa00, 0xbcc9392d, 0x3eab1889, 0xbc885d3b}},
    };
    for (const auto& [i, row] : known) EXPECT_EQ(entry(table, i), row) << i;
    // The regular part is odd around the pole.
    for (int i = 33; i < 64; ++i) {
        const Row left = entry(table, i), right = entry(table, 128 - i);
        for (int odd : {0, 1, 3, 4, 7, 9}) EXPECT_EQ(left[odd] ^ sign, right[odd]) << i;
        for (int even : {2, 5, 6, 8}) EXPECT_EQ(left[even], right[even]) << i;
    }
}

// The error that the fit claims, measured again from the stored floats. The claims round up at their eighth bit.
TEST(FloatTurnTables, FitsOfTheTangentAreAsCloseAsTheyClaim) {
    const RawTable table = tan_pole_table();
    const Real half_step = pi() / 256 * (1 + power_of_two(-10));
    for (int i = 0; i < 128; ++i) {
        std::vector<Real> e;
        for (std::uint64_t pattern : entry(table, i)) e.push_back(real(pattern));
        Real largest;
        for (int k = -64; k <= 64; ++k) {
            const Real r = half_step * k / 64 + power_of_two(-60);
            const Real regular = tan(pi() * i / 128 + r) - e[2] / (pi() * (64 - i) / 128 - r);
            const Real fit = (e[3] + e[4]) + r * ((e[5] + e[6]) + r * (e[7] + r * (e[8] + r * e[9])));
            const Real error = abs(i == 64 ? fit - regular : fit / regular - 1);
            if (error > largest) largest = error;
        }
        EXPECT_LE(largest, tan_pole_fit_error(i)) << i;
        EXPECT_GE(largest, 0.9 * tan_pole_fit_error(i)) << i;
    }
}

// The reduction.

// The product of the significand with 96 bits, in columns of 16 bits, of which the lowest is not formed.
std::uint64_t fraction_by_columns(std::uint32_t x, const RawTable& table) {
    const Row w = entry(table, int(x >> 23 & 0xff));
    const std::uint32_t mask = 0xffff, m = (x & 0x7fffff) + 0x800000, mh = m >> 16, ml = m & mask;
    const std::uint32_t h[] = {std::uint32_t(w[0]) >> 16, std::uint32_t(w[1]) >> 16, std::uint32_t(w[2]) >> 16};
    const std::uint32_t l[] = {std::uint32_t(w[0]) & mask, std::uint32_t(w[1]) & mask, std::uint32_t(w[2]) & mask};
    const std::uint32_t A = (mh * l[2] >> 16) + (ml * l[1] & mask) + mh * h[2] + (ml * h[2] >> 16);
    const std::uint32_t B = (A >> 16) + (ml * h[1] & mask) + mh * l[1] + (ml * l[1] >> 16);
    const std::uint32_t C = (B >> 16) + (ml * l[0] & mask) + mh * h[1] + (ml * h[1] >> 16);
    const std::uint32_t D = (C >> 16) + (ml * h[0] & mask) + mh * l[0] + (ml * l[0] >> 16);
    return std::uint64_t((D << 16) + (C & mask)) << 32 | std::uint32_t((B << 16) + (A & mask));
}

TEST(FloatReduction, FractionIsTheProductByColumnsAndNearTheExactOne) {
    const RawTable table = inv_two_pi_words();
    const Program program = record_program("fraction", 2, {Type::f32}, [](const std::vector<int>& arguments) {
        const Fraction fraction = fraction_of_turn(F32(arguments[0], nullptr));
        return std::vector<int>{fraction.upper.node, fraction.lower.node};
    });
    for (std::uint64_t x : stratified_patterns(Lane::f32, 5)) {
        if (x < 0x00800000 || x >= infinity) continue;
        const Patterns words = interpret(program, {&x, 1}).outputs;
        const std::uint64_t fraction = words[0] << 32 | words[1];
        ASSERT_EQ(fraction, fraction_by_columns(std::uint32_t(x), table)) << std::hex << x;
        if (x < 0x461c4000) continue;
        const Real turns = real(x) / (2 * pi());
        Real rest;
        mpfr_frac(rest.mpfr(), turns.mpfr(), MPFR_RNDN);
        const Real units = rest * power_of_two(64) -
                           (Real(double(fraction >> 32)) * power_of_two(32) + Real(double(fraction & 0xffffffff)));
        EXPECT_LE(abs(units), Real(4)) << std::hex << x;
    }
}

// Kernels.

TEST(FloatCircular, ZerosAndTinyArguments) {
    const Patterns zeros{0, sign};
    for (const char* family : {"sinf", "sinf_native", "tanf", "tanf_native", "sincosf", "sincosf_native"})
        EXPECT_EQ(results(family, zeros), zeros) << family;
    for (const char* family : {"cosf", "cosf_native"})
        EXPECT_EQ(results(family, {0, sign, 1, sign | 1, 0x33000000, 0xb3000000}), Patterns(6, one)) << family;
    for (const char* family : {"sincosf", "sincosf_native"}) EXPECT_EQ(results(family, zeros, 1), Patterns(2, one));
    // The series of the short tiers doesn't begin with 1.
    for (float x : {1e-10f, -3e-20f, 7e-38f}) {
        const Patterns expected{pattern_of(x * 0x1.fff0f8p-1f)};
        for (const char* family : {"sinf_native", "sinf_half", "sinf_rm", "sincosf_rm"})
            EXPECT_EQ(results(family, {pattern_of(x)}), expected) << family;
        EXPECT_EQ(results("sinf", {pattern_of(x)}), Patterns{pattern_of(x)});
    }
}

TEST(FloatCircular, SineAndCosineTogetherAreTheSameInBothForms) {
    const Patterns arguments = stratified_patterns(Lane::f32, 6, {}, 2);
    for (const auto& [stored, returned] : {std::pair{"sincosf", "sincosregf"}, {"sincosf_native", "sincosregf_native"}})
        for (std::size_t output : {0, 1})
            for (int width : widths)
                EXPECT_EQ(results(stored, arguments, output, width), results(returned, arguments, output, width));
}

TEST(FloatCircular, MultiplesOfAQuarterTurnBelowTheLimits) {
    Patterns arguments;
    for (int k = 1; k <= 5255; k = k < 300 ? k + 1 : k + 7) {
        const std::uint32_t multiple = pattern_of(k * M_PI_2);
        for (std::uint32_t ulp = 0; ulp < 5; ++ulp) arguments.push_back(multiple - 2 + ulp);
    }
    arguments.push_back(0x437ce5f1);  // 4.2e-9 from 161 pi / 2
    for (const char* family : {"sinf", "cosf", "sincosf", "tanf", "tanf_native"})
        expect_errors_below(family, find_described(family)->accuracy.ulp, arguments);
}

TEST(FloatCircular, LargeArguments) {
    // The closest floats to multiples of pi/2, from 1.6e-9 on.
    Patterns arguments{0x6f79be45, 0x50a3e87f, 0x6ff9be45, 0x5123e87f, 0x7079be45, 0x6a1976f1,
                       0x53b146a6, 0x65898498, 0x51a3e87f, 0x77584625, 0x4c2332e9};
    RandomBits random(7);
    for (std::uint64_t field = 141; field < 255; ++field)
        for (int k = 0; k < 100; ++k) arguments.push_back(field << 23 | (random() & 0x7fffff));
    for (std::uint64_t just_above = 0x461c4001; just_above < 0x461c4100; ++just_above) arguments.push_back(just_above);
    // Points of the turn, half way between two of them, and around multiples of a quarter turn.
    for (int k = 16384; k < 24000; k += 7) {
        const std::uint32_t multiple = pattern_of(k * M_PI / 512);
        if (multiple > 0x461c4000) arguments.push_back(multiple);
    }
    for (int k = 6370; k < 40000; k += 91)
        for (std::uint32_t ulp = 0; ulp < 3; ++ulp) arguments.push_back(pattern_of(k * M_PI_2) - 1 + ulp);
    arguments.push_back(infinity - 1);
    for (const char* family : {"sinf", "cosf", "sincosf", "sinf_native", "cosf_native", "sincosf_native"})
        expect_errors_below(family, 0.6, arguments);
    expect_errors_below("tanf", 1.5, arguments);
    expect_errors_below("tanf_native", 5.7, arguments);

    Patterns negative = arguments;
    for (std::uint64_t& x : negative) x |= sign;
    for (const auto& [family, is_odd] : {std::pair{"sinf", true}, {"cosf", false}, {"tanf", true}}) {
        Patterns expected = results(family, arguments);
        if (is_odd)
            for (std::uint64_t& y : expected) y ^= sign;
        EXPECT_EQ(results(family, negative), expected) << family;
    }
}

// The rare routines.

TEST(FloatCircularRare, InfinityIsInvalidAndNanIsQuieted) {
    for (std::uint32_t x : {0x7f800000u, 0xff800000u, 0x7fc00001u, 0xffc12345u, 0x7f800001u, 0xffa00000u}) {
        const float argument = std::bit_cast<float>(x);
        const auto expect = [&](auto call) {
            float r[2] = {1, 2};
            const unsigned saved = _mm_getcsr();
            _mm_setcsr(saved & ~_MM_EXCEPT_MASK);
            const int status = call(r);
            const bool invalid = _mm_getcsr() & _MM_EXCEPT_INVALID;
            _mm_setcsr(saved);
            const bool is_infinite = (x | sign) == 0xff800000;
            EXPECT_EQ(status, is_infinite ? 1 : 0) << std::hex << x;
            EXPECT_EQ(invalid, is_infinite || !(x & 0x400000)) << std::hex << x;
            return std::pair(pattern_of(r[0]), pattern_of(r[1]));
        };
        const std::uint32_t expected = (x | sign) == 0xff800000 ? 0xffc00000 : x | 0x400000;
        for (const auto routine : {sinf_rare, cosf_rare, tanf_rare})
            EXPECT_EQ(expect([&](float* r) { return routine(&argument, r); }).first, expected);
        for (const auto routine : {sincosf_rare, sincosregf_rare})
            EXPECT_EQ(expect([&](float* r) { return routine(&argument, r, r + 1); }), std::pair(expected, expected));
    }
}

}  // namespace
}  // namespace tuvo

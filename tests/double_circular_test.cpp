// The double circular functions: tables, the reduction of large arguments, special values, the rare routines called
// directly, and errors where they are hardest to keep.
#include <bit>
#include <cmath>

#include "circular/double_reduction.hpp"
#include "circular/double_turn_tables.hpp"
#include "circular/table_rules.hpp"
#include "tests/circular.hpp"
#include "tests/inputs.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Row = Patterns;

constexpr std::uint64_t sign = 0x8000000000000000, one = 0x3ff0000000000000, infinity = 0x7ff0000000000000;

std::uint64_t pattern_of(double x) { return std::bit_cast<std::uint64_t>(x); }
Real real(std::uint64_t pattern) { return Real::from_pattern(Lane::f64, pattern); }

Real fraction_of(const Real& x) {
    Real rest;
    mpfr_frac(rest.mpfr(), x.mpfr(), MPFR_RNDN);
    return rest;
}

/// The fraction of 2^exponent times 2/pi.
Real fraction_of_two_over_pi(int exponent) {
    mpfr_t bits;
    mpfr_init2(bits, 1500);
    mpfr_const_pi(bits, MPFR_RNDN);
    mpfr_ui_div(bits, 2, bits, MPFR_RNDN);
    mpfr_mul_2si(bits, bits, exponent, MPFR_RNDN);
    mpfr_frac(bits, bits, MPFR_RNDN);
    Real value;
    mpfr_set(value.mpfr(), bits, MPFR_RNDN);
    mpfr_clear(bits);
    return value;
}

/// The double of that exponent field next to a multiple of pi/2, or nearly so: its significand is a multiple of the
/// denominator of a convergent of 2^(e - 1075) 2/pi.
std::uint64_t nearest_to_quarter_turns(int exponent_field) {
    const double least = 0x1p52, limit = 0x1p53;
    Real x = fraction_of_two_over_pi(exponent_field - 1075);
    double q = 1, before = 0;
    while (!x.is_zero()) {
        x = 1 / x;
        const double next = floor(x).to_double() * q + before;
        if (!(next < limit)) break;
        before = q, q = next;
        x = fraction_of(x);
    }
    const double significand = q * std::ceil(least / q);
    return std::uint64_t(exponent_field) << 52 | (std::uint64_t(significand) & 0x000fffffffffffff);
}

/// One of each exponent, from 2^0 up to the largest doubles.
const Patterns& hardest_arguments() {
    static const Patterns arguments = [] {
        Patterns found;
        for (int e = 1023; e < 2047; ++e) found.push_back(nearest_to_quarter_turns(e));
        return found;
    }();
    return arguments;
}

/// Random doubles of every exponent from that of `least` on, and the ends of the range.
Patterns arguments_from(double least, int per_exponent) {
    RandomBits random(7);
    Patterns arguments{pattern_of(std::nextafter(least, INFINITY)), infinity - 1};
    for (std::uint64_t e = pattern_of(least) >> 52; e < 0x7ff; ++e)
        for (int k = 0; k < per_exponent; ++k) {
            const std::uint64_t x = e << 52 | (random() & 0x000fffffffffffff);
            if (x > pattern_of(least)) arguments.push_back(x);
        }
    return arguments;
}

Patterns negated(Patterns patterns) {
    for (std::uint64_t& x : patterns) x ^= sign;
    return patterns;
}

// Tables.

TEST(DoubleTurnTables, WordsMoveUpByOneBitFromRowToRow) {
    const RawTable table = inv_two_pi_words64();
    ASSERT_EQ(table.patterns.size(), 2048u * 3);
    EXPECT_EQ(entry(table, 1023), (Row{0x000000000000028b, 0xe60db9391054a7f0, 0x9d5f47d4d377036d}));
    EXPECT_EQ(entry(table, 1075), (Row{0x28be60db9391054a, 0x7f09d5f47d4d3770, 0x36d8a5664f10e410}));
    EXPECT_EQ(entry(table, 2046), (Row{0x4f758fd7cbe2f67a, 0x0e73ef14a525d4d7, 0xf6bf623f1aba10ac}));
    EXPECT_EQ(entry(table, 885), (Row{0, 0, 0}));
    EXPECT_EQ(entry(table, 886), (Row{0, 0, 1}));
    for (int e = 0; e < 2047; ++e) {
        const Row row = entry(table, e), next = entry(table, e + 1);
        EXPECT_EQ(next[0], row[0] << 1 | row[1] >> 63) << e;
        EXPECT_EQ(next[1], row[1] << 1 | row[2] >> 63) << e;
        EXPECT_EQ(next[2] >> 1, row[2] & ~sign) << e;
    }
}

TEST(DoubleTurnTables, PointsOfTheTurn) {
    const RawTable table = sin_cos_turn_table64(), rotated = sin_cos_turn_table64(128);
    ASSERT_EQ(table.patterns.size(), 512u * 4);
    EXPECT_EQ(entry(table, 0), (Row{0, one, 0, 0}));
    EXPECT_EQ(entry(table, 1), (Row{0xbf13bd2c8da49511, one, 0x3f8921d1fcdec784, 0x3c29878ea0000000}));
    EXPECT_EQ(entry(table, 64), (Row{0x3fca827999fcef32, 0x3fe0000000000000, 0x3fe6a09e667f3bcd, 0xbc8bdd3400000000}));
    EXPECT_EQ(entry(table, 128), (Row{0, 0, one, 0}));
    EXPECT_EQ(entry(table, 256), (Row{0, sign | one, 0, 0}));
    for (int i = 0; i < 512; ++i) {
        const Row row = entry(table, i);
        EXPECT_EQ(entry(rotated, i), entry(table, (i + 128) % 512)) << i;
        EXPECT_LE(real(row[1]).significant_bits(), 1) << i;
        EXPECT_LE(abs(real(row[2]) + real(row[3]) - sin(2 * pi() * i / 512)), power_of_two(-77)) << i;
        EXPECT_LE(abs(real(row[1]) + real(row[0]) - cos(2 * pi() * i / 512)), power_of_two(-55)) << i;
    }
}

TEST(DoubleTurnTables, PointsOfTheHalfTurn) {
    const RawTable table = tan_pole_table64();
    ASSERT_EQ(table.patterns.size(), 256u * 13);
    const std::pair<int, Row> known[] = {
        {1,
         {0x3ff8efb75d9ba4be, 0x3c760b679ab8cd3b, 0, 0x3f89224e047e368e, 0xbc1a268eb2c67108, one, 0x3f23bdbead8cf800,
          0x3f8923461ae96d62, 0x3fd5589fb822d5ee, 0x3f80c326dcdcfcd0, 0x3fc116a999125b7f, 0x3f7300cc26596ada,
          0x3fab7b6f1de289a8}},
        {64,
         {0x3fe921fb54442d18, 0x3c81a62633145c07, one, 0xbfd17cc1b727220b, 0x3c7ac07996df1e94, 0x3fe0000000000000,
          0xbfbf02f6222c71fb, 0xbfb068bd68baefc3, 0x3fa3c0213e30b2a4, 0xbf8a5494a0dd32b3, 0x3f7940cd1d8e923e,
          0xbf63cc1be5088783, 0x3f3fa4a6a27659ee}},
        {128,
         {0, 0, one, 0, 0, 0x3fd0000000000000, 0x3fb5555555555555, 0, 0x3f96c16c16c4a87e, 0, 0x3f615658c88fb22b, 0,
          0x3f45feb9dabeddc8}},
    };
    for (const auto& [i, row] : known) EXPECT_EQ(entry(table, i), row) << i;
}

// The error that the fit claims, measured again from the stored doubles. The claims round up at their eighth bit.
TEST(DoubleTurnTables, FitsOfTheTangentAreAsCloseAsTheyClaim) {
    const RawTable table = tan_pole_table64();
    const Real half_step = pi() / 512 * (1 + power_of_two(-10));
    for (int i = 0; i < 256; ++i) {
        std::vector<Real> e;
        for (std::uint64_t pattern : entry(table, i)) e.push_back(real(pattern));
        Real largest;
        for (int k = -32; k <= 32; ++k) {
            const Real r = half_step * k / 32 + power_of_two(-60);
            const Real regular = tan(pi() * i / 256 + r) - e[2] / (pi() * (128 - i) / 256 - r);
            Real fit = e[12];
            for (int degree = 6; degree >= 2; --degree) fit = e[std::size_t(degree) + 5] + r * fit;
            fit = (e[3] + e[4]) + r * ((e[5] + e[6]) + r * fit);
            const Real error = abs(i == 128 ? fit - regular : fit / regular - 1);
            if (error > largest) largest = error;
        }
        EXPECT_LE(largest, tan_pole_fit_error64(i)) << i;
        EXPECT_GE(largest, 0.8 * tan_pole_fit_error64(i)) << i;
    }
}

TEST(DoubleTurnTables, PointsOfTheRareRoutines) {
    const RawTable table = circle_points_table();
    ASSERT_EQ(table.patterns.size(), 64u * 4);
    EXPECT_EQ(entry(table, 1), (Row{0xbf73b92e176d6d31, 0x3fb917a6bc29b42c, 0xbc3e2718e0000000, one}));
    for (int i = 0; i < 64; ++i) {
        const Row row = entry(table, i);
        EXPECT_LE(abs(real(row[1]) + real(row[2]) - sin(2 * pi() * i / 64)), power_of_two(-78)) << i;
        EXPECT_LE(abs(real(row[3]) + real(row[0]) - cos(2 * pi() * i / 64)), power_of_two(-55)) << i;
    }
}

TEST(DoubleTurnTables, SlicesAddUpToFourOverPi) {
    const Patterns slices = four_over_pi_slices_table().patterns;
    ASSERT_EQ(slices.size(), 51u);
    EXPECT_EQ(Patterns(slices.begin(), slices.begin() + 6),
              (Patterns{0, 0x4c745f3060000000, 0x4aeb939100000000, 0x494529fc20000000, 0x47ad5f47c0000000,
                        0x4624d37700000000}));
    EXPECT_EQ(slices[50], 0u);
    mpfr_t sum;  // exact
    mpfr_init2(sum, 1300);
    mpfr_set_zero(sum, 1);
    for (std::uint64_t slice : slices) {
        EXPECT_LE(real(slice).significant_bits(), 25);  // 26 more, and a product has 51
        EXPECT_EQ(mpfr_add(sum, sum, real(slice).mpfr(), MPFR_RNDN), 0);
    }
    mpfr_t rest;  // 4/pi 2^200 less the sum: the bits from 2^-1025 on
    mpfr_init2(rest, 1600);
    mpfr_const_pi(rest, MPFR_RNDN);
    mpfr_ui_div(rest, 4, rest, MPFR_RNDN);
    mpfr_mul_2si(rest, rest, 200, MPFR_RNDN);
    mpfr_sub(rest, rest, sum, MPFR_RNDN);
    EXPECT_GE(mpfr_sgn(rest), 0);
    EXPECT_LT(mpfr_cmp_ui_2exp(rest, 1, -1024), 0);
    mpfr_clears(sum, rest, static_cast<mpfr_ptr>(nullptr));
}

// The reduction.

TEST(DoubleReduction, FractionIsNearTheExactOne) {
    const Program program = record_program("fraction", 2, {Type::f64}, [](const std::vector<int>& arguments) {
        const Fraction64 fraction = fraction_of_turn(F64(arguments[0], nullptr));
        return std::vector<int>{fraction.upper.node, fraction.lower.node};
    });
    const auto expect_near = [&](std::uint64_t x) {
        const Patterns words = interpret(program, {&x, 1}).outputs;
        const auto integer = [](std::uint64_t word) {
            return Real(double(word >> 32)) * power_of_two(32) + Real(double(word & 0xffffffff));
        };
        const Real got = integer(words[0]) * power_of_two(64) + integer(words[1]);
        // x / (2 pi) in quarters of its own, so that no bits are lost.
        const int e = int(x >> 52);
        const Real significand = real((x & 0x000fffffffffffff) | std::uint64_t(1075) << 52);
        const Real quarter_turns = significand * fraction_of_two_over_pi(e - 1077);
        const Real exact = fraction_of(quarter_turns) * power_of_two(128);
        EXPECT_LE(abs(exact - got), Real(4)) << std::hex << x;
    };
    for (std::uint64_t x : arguments_from(0x1p16, 2)) expect_near(x);
    for (std::uint64_t x : hardest_arguments()) expect_near(x);
}

// Kernels.

TEST(DoubleCircular, ZerosAndTinyArguments) {
    const Patterns zeros{0, sign};
    for (const char* family : {"sin", "sincos", "tan", "tan_native"})
        EXPECT_EQ(results(family, zeros), zeros) << family;
    EXPECT_EQ(results("sincos", zeros, 1), Patterns(2, one));
    EXPECT_EQ(results("cos", {0, sign, 1, sign | 1, 0x3c90000000000000, 0xbc90000000000000}), Patterns(6, one));
    for (double x : {1e-20, -3e-200, 5e-324, -2.3e-308})
        for (const char* family : {"sin", "sincos"})
            EXPECT_EQ(results(family, {pattern_of(x)}), Patterns{pattern_of(x)});
}

TEST(DoubleCircular, SineAndCosineTogetherAreTheSameInBothForms) {
    const Patterns arguments = stratified_patterns(Lane::f64, 6, {}, 1);
    for (std::size_t output : {0, 1})
        for (int width : widths)
            EXPECT_EQ(results("sincos", arguments, output, width), results("sincosreg", arguments, output, width));
}

TEST(DoubleCircular, MultiplesOfAQuarterTurnBelowTheLimits) {
    Patterns arguments;
    for (int e = 1023; e < 1023 + 23; ++e) arguments.push_back(nearest_to_quarter_turns(e));
    for (double k = 1; k < 5340353; k = std::ceil(k * 1.02))
        for (int ulp = -2; ulp <= 2; ++ulp) arguments.push_back(pattern_of(k * M_PI_2) + std::uint64_t(ulp));
    for (const char* family : {"sin", "cos", "sincos", "tan"})
        expect_errors_below(family, find_described(family)->accuracy.ulp, arguments);
}

TEST(DoubleCircular, LargeArguments) {
    Patterns arguments = arguments_from(0x1p24, 2);
    for (std::uint64_t x : hardest_arguments())
        if (x > pattern_of(0x1p24)) arguments.push_back(x);
    for (const char* family : {"sin", "cos", "sincos"}) expect_errors_below(family, 0.52, arguments);
    for (const char* family : {"tan", "tan_native"}) expect_errors_below(family, 3.5, arguments);
    expect_errors_below("tan", 3.5, negated(arguments));  // which may take entries with another weight of the pole
    EXPECT_EQ(results("tan", arguments), results("tan_native", arguments));
    for (const auto& [family, is_odd] : {std::pair{"sin", true}, {"cos", false}}) {
        const Patterns expected = results(family, arguments);
        EXPECT_EQ(results(family, negated(arguments)), is_odd ? negated(expected) : expected) << family;
    }
}

// The short tiers hand what is above their limits to the rare routine, which is a different way to the same values.
TEST(DoubleCircular, ShortTiersAboveTheirLimits) {
    Patterns middle, huge;
    for (std::uint64_t x : arguments_from(0x1p24, 12)) (x < pattern_of(0x1p30) ? middle : huge).push_back(x);
    for (std::uint64_t x : hardest_arguments())
        if (x > pattern_of(0x1p24) && x < pattern_of(0x1p30)) middle.push_back(x);
    for (const char* family : {"sin_native", "cos_native", "sincos_native"}) {
        expect_errors_below(family, 0.52, middle);
        const Patterns negative = results(family, negated(middle));
        EXPECT_EQ(negative, family[0] == 'c' ? results(family, middle) : negated(results(family, middle))) << family;
    }
    // From 2^30 on the error is an absolute one.
    for (const char* family : {"sin_native", "cos_native"}) {
        const auto exact = family[0] == 's' ? static_cast<Real (*)(const Real&)>(sin) : cos;
        const Patterns found = results(family, huge);
        for (std::size_t k = 0; k < huge.size(); ++k)
            EXPECT_LE(abs(real(found[k]) - exact(real(huge[k]))), Real(0x1p-48)) << family << std::hex << huge[k];
    }
}

// The rare routines.

// The kernels send the rare routines large arguments only, but they know all of them.
TEST(DoubleCircularRare, FiniteArguments) {
    Patterns arguments{0, sign, 1, 0x3020000000000000, 0x3030000000000000};
    for (std::uint64_t x : stratified_patterns(Lane::f64, 11, {}, 1))
        if ((x & ~sign) < pattern_of(0x1p30)) arguments.push_back(x);
    arguments.push_back(0x57b0213080000000);  // whose count of eighths has a leading one alone
    for (const char* family : {"sin", "cos"})
        for (std::uint64_t x : arguments) {
            const RareResult got = call_rare(*find_family(family), {x});
            EXPECT_EQ(got.status, 0);
            EXPECT_LE(error_of(*find_family(family), {&x, 1}, {&got.pattern, 1}), 1)
                << family << std::hex << " 0x" << x;
        }
    for (std::uint64_t x : {std::uint64_t(0), sign}) EXPECT_EQ(call_rare(*find_family("sin"), {x}).pattern, x);
}

TEST(DoubleCircularRare, InfinityIsInvalidAndNanIsQuieted) {
    for (const char* family : {"sin", "cos", "tan"}) {
        const Family& found = *find_family(family);
        for (std::uint64_t x : {infinity, sign | infinity})
            EXPECT_EQ(call_rare(found, {x}), (RareResult{0xfff8000000000000, 1, _MM_EXCEPT_INVALID})) << family;
        for (std::uint64_t x : {0x7ff8000000000001u, 0xfff8123456789abcu})
            EXPECT_EQ(call_rare(found, {x}), (RareResult{x, 0, 0})) << family;
        EXPECT_EQ(call_rare(found, {0x7ff0000000000001}), (RareResult{0x7ff8000000000001, 0, _MM_EXCEPT_INVALID}));
    }
}

}  // namespace
}  // namespace tuvo

// The hyperbolic functions: tables and fits, the reduction, rare routines, and the ends of the range.
#include "inverse/hyperbolic_tables.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "tests/accuracy.hpp"
#include "tests/handed_over.hpp"
#include "tests/inputs.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_outcome.hpp"

extern "C" {
extern const std::uint64_t hyper_exp2_pairs[64][2];
}

namespace tuvo {
namespace {

using Row = std::vector<std::uint64_t>;

Row entry(const RawTable& table, int index) {
    const auto first = table.patterns.begin() + index * table.fields;
    return {first, first + table.fields};
}
Real f64(std::uint64_t pattern) { return Real::from_pattern(Lane::f64, pattern); }
std::uint64_t pattern_of(double x) { return std::bit_cast<std::uint64_t>(x); }
std::uint64_t pattern_of(float x) { return std::bit_cast<std::uint32_t>(x); }

constexpr std::uint64_t one = 0x3ff0000000000000, half = 0x3fe0000000000000;

TEST(HyperbolicTables, KnownRows) {
    const RawTable sine = sinh_kernel_table(), cosine = cosh_kernel_table();
    ASSERT_EQ(sine.patterns.size(), 128u * 2);
    ASSERT_EQ(cosine.patterns.size(), 257u);
    EXPECT_EQ(entry(sine, 0), (Row{0, half}));
    EXPECT_EQ(entry(sine, 64), (Row{pattern_of(0.35355339059327376), pattern_of(0.35355339059327376)}));  // sqrt(1/8)
    EXPECT_EQ(entry(cosine, 0), Row{half});
    EXPECT_EQ(entry(cosine, 128), Row{pattern_of(0.7071067811865476)});
    EXPECT_EQ(entry(cosine, 256), Row{one});

    const RawTable cubics = tanhf_kernel_table(), polynomials = tanh_kernel_table();
    ASSERT_EQ(cubics.patterns.size(), 134u * 4);
    ASSERT_EQ(polynomials.patterns.size(), 60u * 16);
    EXPECT_EQ(entry(cubics, 0), (Row{0, pattern_of(1.0000000080972835), pattern_of(-3.8282289125186144e-06),
                                     pattern_of(-0.33309708258468135)}));
    EXPECT_EQ(entry(cubics, 133), (Row{one, 0, 0, 0}));
    EXPECT_EQ(entry(polynomials, 0)[0], 0u);
    EXPECT_EQ(entry(polynomials, 0)[1], one);
    EXPECT_EQ(entry(polynomials, 0)[11], 0u);
    EXPECT_EQ(entry(polynomials, 1)[11], pattern_of(-0.1328125));
    EXPECT_EQ(entry(polynomials, 58)[11], pattern_of(-19.0));
    Row saturated(16);
    saturated[0] = saturated[12] = one;
    EXPECT_EQ(entry(polynomials, 59), saturated);
}

// The rare routines leave out the product of the polynomial and lo: it must be below the half of an ulp of hi.
TEST(HyperbolicTables, PairsOfTheRareRoutines) {
    EXPECT_EQ(hyper_exp2_pairs[0][0], one);
    EXPECT_EQ(hyper_exp2_pairs[0][1], 0u);
    for (int j = 0; j < 64; ++j) {
        const Real hi = f64(hyper_exp2_pairs[j][0]), lo = f64(hyper_exp2_pairs[j][1]), exact = exp2(Real(j) / 64);
        EXPECT_LE(abs(lo), power_of_two(-53)) << j;
        EXPECT_LE(abs(hi + lo - exact), power_of_two(-106)) << j;
    }
}

/// Horner's scheme over the patterns, lowest degree first, without roundings.
Real evaluate(const std::uint64_t* first, int count, const Real& t) {
    Real sum;
    for (int k = count - 1; k >= 0; --k) sum = sum * t + f64(first[k]);
    return sum;
}

// Each row claims its largest error; the claim is met, and not by far. A mistyped digit would show here.
TEST(HyperbolicTables, FitsHaveTheErrorsTheyClaim) {
    struct Table {
        RawTable rows;
        int fitted, coefficients;
        double (*error)(int);
        Lane lane;             ///< of the argument
        std::uint64_t start;   ///< pattern at which row 1 begins
        std::uint64_t length;  ///< of a row, in patterns
    };
    const Table tables[] = {
        {tanhf_kernel_table(), 133, 4, tanhf_fit_error, Lane::f32, 0x3d000000, 1u << 19},
        {tanh_kernel_table(), 59, 11, tanh_fit_error, Lane::f64, 0x3fc0000000000000, std::uint64_t{1} << 49}};
    for (const Table& table : tables) {
        for (int row = 0; row < table.fitted; ++row) {
            const std::uint64_t end = table.start + std::uint64_t(row) * table.length;
            const std::uint64_t start = row ? end - table.length : end - (20ull << (table.lane == Lane::f32 ? 23 : 52));
            const Row values = entry(table.rows, row);
            const Real shift = table.coefficients == 11 ? f64(values[11]) : Real();
            Real largest;
            constexpr int points = 64;
            for (int k = 0; k <= points; ++k) {
                // Chebyshev's points, where such errors have their extremes; row 0 by the argument itself.
                const double position = (1 - std::cos(k * 3.141592653589793 / points)) / 2;
                const Real low = Real::from_pattern(table.lane, start), high = Real::from_pattern(table.lane, end);
                const Real a = low + (high - low) * position, exact = oracle("tanh", {&a, 1}).value();
                const Real got = evaluate(values.data(), table.coefficients, a + shift);
                largest = std::max(largest, abs(got / exact - 1), [](const Real& x, const Real& y) { return x < y; });
            }
            EXPECT_LE(largest.to_double(), table.error(row)) << table.coefficients << ' ' << row;
            EXPECT_GE(largest.to_double(), 0.7 * table.error(row)) << table.coefficients << ' ' << row;
            EXPECT_LT(table.error(row), table.lane == Lane::f32 ? 0x1.2p-25 : 0x1.8p-54) << row;
        }
    }
}

// Each step count times the head of its ln 2 is exact; a difference of two near numbers is, too. So r is good where a
// is next to a multiple of the step.
TEST(Hyperbolic, ProductsOfStepCountsWithTheHeadAreExact) {
    const Real single = Real::from_pattern(Lane::f32, 0x3f317000);
    for (int n = 1; n <= 126; ++n) ASSERT_LE((single * n).significant_bits(), 24) << n;
    for (int n = 1; n < 1022 * 256; ++n) {
        if (n < 1022 * 128) {
            ASSERT_LE((f64(0x3fe62e42fefa0000) * n).significant_bits(), 53) << n;
        }
        ASSERT_LE((f64(0x3fe62e42fefc0000) * n).significant_bits(), 53) << n;
    }
}

TEST(Hyperbolic, LanesHandedOver) {
    struct Case {
        const char* family;
        std::uint64_t last;  ///< that the vector path finishes
    };
    const Case cases[] = {{"sinhf", 0x42aeac4e},        {"sinhf_native", 0x42aeac4e},
                          {"coshf", 0x42aeac4d},        {"coshf_native", 0x42aeac4d},
                          {"tanhf", 0x7f07ffff},        {"sinh", 0x40861d99ffffffff},
                          {"cosh", 0x40861d99ffffffff}, {"tanh_native", 0x7fe1ffffffffffff}};
    for (const auto& [name, last] : cases) {
        const Family& family = *find_family(name);
        const bool single = family.element == Lane::f32;
        const std::uint64_t sign = single ? 0x80000000 : 0x8000000000000000,
                            infinity = single ? 0x7f800000 : 0x7ff0000000000000;
        EXPECT_EQ(handed_over(family, {0, last, sign | last, sign}), Row{}) << name;
        EXPECT_EQ(handed_over(family, {last + 1, sign | (last + 1), sign | infinity, infinity + 1}),
                  (Row{last + 1, sign | (last + 1), sign | infinity, infinity + 1}))
            << name;
    }
}

TEST(HyperbolicRare, SpecialValuesStatusAndFlags) {
    constexpr unsigned invalid = _MM_EXCEPT_INVALID, overflow = _MM_EXCEPT_OVERFLOW;
    constexpr std::uint64_t sign = 0x8000000000000000, infinity = 0x7ff0000000000000;
    constexpr std::uint64_t signf = 0x80000000, infinityf = 0x7f800000;
    struct Case {
        const char* family;
        std::uint64_t x;
        RareResult expected;
    };
    const Case cases[] = {
        {"sinhf", signf | infinityf, {signf | infinityf, 0, 0}},
        {"coshf", signf | infinityf, {infinityf, 0, 0}},
        {"tanhf", signf | infinityf, {0xbf800000, 0, 0}},
        {"tanhf", 0x7f7fffff, {0x3f800000, 0, 0}},
        {"sinhf", infinityf | 5, {infinityf | 0x400005, 0, invalid}},
        {"coshf", signf | infinityf | 5, {signf | infinityf | 0x400005, 0, invalid}},
        {"tanhf", signf | infinityf | 0x400005, {signf | infinityf | 0x400005, 0, 0}},
        {"sinh", infinity, {infinity, 0, 0}},
        {"cosh", sign | infinity, {infinity, 0, 0}},
        {"tanh", 0xffefffffffffffff, {sign | one, 0, 0}},
        {"sinh", sign | infinity | 5, {sign | infinity | 0x8000000000005, 0, invalid}},
        {"cosh", infinity | 0x8000000000005, {infinity | 0x8000000000005, 0, 0}},
        {"tanh", infinity | 5, {infinity | 0x8000000000005, 0, invalid}},
        // Ends of the range. In float there are three ways to infinity: the conversion's has no status of its own.
        {"sinhf", 0x42b2d4fc, {0x7f7fffec, 0, 0}},
        {"coshf", 0x42b2d4fc, {0x7f7fffec, 0, 0}},
        {"sinhf", signf | 0x42b2d4fd, {signf | infinityf, 3, overflow}},
        {"coshf", 0x42b2d4fd, {infinityf, 3, overflow}},
        {"sinh", sign | 0x408633ce8fb9f87d, {0xffeffffffffffd3b, 0, 0}},
        {"cosh", 0x408633ce8fb9f87d, {0x7feffffffffffd3b, 0, 0}},
        {"sinh", sign | 0x408633ce8fb9f87e, {sign | infinity, 3, overflow}},
        {"cosh", 0x408633ce8fb9f87e, {infinity, 3, overflow}},
        {"cosh", 0x7fefffffffffffff, {infinity, 3, overflow}},
    };
    for (const auto& [name, x, expected] : cases)
        EXPECT_EQ(call_rare(*find_family(name), {x}), expected) << name << ' ' << std::hex << x;
}

double error(const Family& family, std::uint64_t x, std::uint64_t got) { return error_of(family, {&x, 1}, {&got, 1}); }

// All floats that are handed over, and every double of the last thousand below overflow: no result is infinite too
// soon.
TEST(HyperbolicRare, AccuracyUpToOverflow) {
    for (const char* name : {"sinhf", "coshf"}) {
        const Family& family = *find_family(name);
        FloatErrorScan scan(family.operation);
        for (std::uint32_t x = 0x42aeac4e; x < 0x42b2d4fd; ++x) {
            const RareResult got = call_rare(family, {x});
            ASSERT_EQ(got, (RareResult{got.pattern, 0, 0})) << std::hex << x;
            scan.add(x, std::uint32_t(got.pattern));
        }
        EXPECT_LE(scan.max_error(), 0.500001) << name << std::hex << scan.worst_input();
    }
    RandomBits random(1);
    for (const char* name : {"sinh", "cosh"}) {
        const Family& family = *find_family(name);
        constexpr std::uint64_t first = 0x40861d9a00000000, end = 0x408633ce8fb9f87e;
        for (std::uint64_t k = 0; k < 3000; ++k) {
            const std::uint64_t x = k < 1000 ? end - 1 - k : first + random() % (end - first);
            const RareResult got = call_rare(family, {x});
            ASSERT_EQ(got, (RareResult{got.pattern, 0, 0})) << std::hex << x;
            ASSERT_LE(error(family, x, got.pattern), 0.53) << name << ' ' << std::hex << x;
        }
    }
}

TEST(Hyperbolic, ZerosAndSmallArguments) {
    for (const char* name : {"sinh", "tanh"})
        for (const char* suffix : {"f", "f_native", "", "_native"}) {
            const Family& family = *find_family(std::string(name) + suffix);
            const bool single = family.element == Lane::f32;
            const std::uint64_t sign = single ? 0x80000000 : 0x8000000000000000;
            for (std::uint64_t x : {std::uint64_t{0}, sign})
                EXPECT_EQ(outputs_of(family, {&x, 1})[0], x) << name << suffix;
            // Below them x^3 is nothing beside x, down to the least subnormal. The native sine's slope isn't quite 1.
            if (family.name() == "sinhf_native") continue;
            const std::uint64_t largest = single ? 0x38000000 : 0x3e20000000000000;
            for (std::uint64_t x = sign | largest; x > sign; x -= (x - sign) / 64 + 1)
                ASSERT_EQ(outputs_of(family, {&x, 1})[0], x) << name << suffix << std::hex << x;
        }
}

// Neighbouring rows meet, no result exceeds 1, and every one is 1 from where it should be.
TEST(Hyperbolic, TangentSaturates) {
    const Family &single = *find_family("tanhf"), &twice = *find_family("tanh");
    const auto at = [](const Family& family, std::uint64_t x) { return outputs_of(family, {&x, 1})[0]; };
    std::uint64_t last = 0;
    for (std::uint32_t x = 0x41000000; x < 0x41280000; x += 97) {  // 8 to 10.5
        const std::uint64_t y = at(single, x);
        ASSERT_LE(last, y + 1) << std::hex << x;
        ASSERT_LE(y, 0x3f800000u) << std::hex << x;
        last = y;
    }
    EXPECT_EQ(at(single, pattern_of(9.1f)), 0x3f800000u);
    EXPECT_EQ(at(single, pattern_of(-25.0f)), 0xbf800000u);
    for (double x : {20.0, 700.0, 1e308}) EXPECT_EQ(at(twice, pattern_of(x)), one) << x;
    for (double x = 18; x < 20; x += 0.01) ASSERT_LE(at(twice, pattern_of(x)), one) << x;
}

}  // namespace
}  // namespace tuvo

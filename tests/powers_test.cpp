// The powers: their rare routines called directly, and which lanes go there.
#include <bit>
#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include "frame/description/families.hpp"
#include "tests/accuracy.hpp"
#include "tests/inputs.hpp"
#include "tests/oracle.hpp"
#include "tests/power_arguments.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

constexpr float inf = HUGE_VALF;
const float nan = __builtin_nanf("0x123000"), other = __builtin_nanf("0x321000"), made = -__builtin_nanf("");
constexpr unsigned invalid = _MM_EXCEPT_INVALID, by_zero = _MM_EXCEPT_DIV_ZERO, over = _MM_EXCEPT_OVERFLOW,
                   under = _MM_EXCEPT_UNDERFLOW;

/// A pattern of the lane's type for a value that a float or a 32-bit integer holds.
std::uint64_t pattern_of(Lane lane, double x) {
    if (lane == Lane::f32) return std::bit_cast<std::uint32_t>(static_cast<float>(x));
    if (lane == Lane::f64) return std::bit_cast<std::uint64_t>(x);
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(x));
}

struct Case {
    double x, y, result;
    int status = 0;
    unsigned flags = 0;
};

void expect_cases(const char* operation, std::span<const Case> cases) {
    for (const std::string& name : {std::string(operation) + "f", std::string(operation)}) {
        const Family& family = *find_family(name);
        if (!find_described(name)) continue;
        for (const Case& c : cases) {
            const Patterns arguments{pattern_of(family.arguments[0], c.x), pattern_of(family.arguments[1], c.y)};
            EXPECT_EQ(call_rare(family, arguments),
                      (RareResult{pattern_of(family.element, c.result), c.status, c.flags}))
                << name << "(" << c.x << ", " << c.y << ")";
        }
    }
}

// The same rows in float and in double, each with its neighbours: odd, even and other exponents, both signs.
TEST(PowersRare, ClassesOfPow) {
    constexpr Case cases[] = {
        {-2, 3, -8},
        {-2, -2, 0.25},
        {4, 0.5, 2},
        {2, 0x1p-70, 1},
        {-2, 0x1p80, inf, 0, over},
        {2, 5000, inf, 0, over},
        {-2, 5001, -inf, 0, over},
        {2, -5000, 0, 0, under},
        {-2, -5001, -0.0, 0, under},
        {0.5, inf, 0},
        {-0.5, inf, 0},
        {0.5, -inf, inf},
        {-0.5, -inf, inf},
        {2, inf, inf},
        {-2, inf, inf},
        {2, -inf, 0},
        {-2, -inf, 0},
        {inf, 2, inf},
        {inf, -2, 0},
        {-inf, 3, -inf},
        {-inf, 2, inf},
        {-inf, 2.5, inf},
        {-inf, -3, -0.0},
        {-inf, -2, 0},
        {-inf, -2.5, 0},
        {inf, inf, inf},
        {-inf, -inf, 0},
        {0, 3, 0},
        {-0.0, 3, -0.0},
        {-0.0, 1, -0.0},
        {-0.0, 2, 0},
        {-0.0, 2.5, 0},
        {-0.0, 0.75, 0},
        {-0.0, inf, 0},
        {0, -1, inf, 1, by_zero},
        {-0.0, -3, -inf, 1, by_zero},
        {-0.0, -2, inf, 1, by_zero},
        {-0.0, -0.5, inf, 1, by_zero},
        {-0.0, -inf, inf, 1, by_zero},
        {-1, 3, -1},
        {-1, -4, 1},
        {-1, inf, 1},
        {-1, -inf, 1},
        {1, -inf, 1},
        {inf, 0, 1},
    };
    expect_cases("pow", cases);
    const Case of_nan[] = {{nan, 0, 1},
                           {other, -0.0, 1},
                           {1, nan, 1},
                           {nan, 2, nan},
                           {2, nan, nan},
                           {nan, other, nan},
                           {-0.0, nan, nan},
                           {-inf, other, other},
                           {-1, 0.5, made, 1, invalid},
                           {-0.5, -2.5, made, 1, invalid}};
    expect_cases("pow", of_nan);
}

// An integer's parity at every length: its last bit stands anywhere in the significand, or beyond it.
TEST(PowersRare, ParityOfExponents) {
    for (const char* name : {"powf", "pow"}) {
        const Family& family = *find_family(name);
        if (!find_described(name)) continue;
        const int bits = family.element == Lane::f32 ? 24 : 53;
        const auto root_of_minus_zero = [&](double y) {
            return call_rare(family, {pattern_of(family.element, -0.0), pattern_of(family.element, y)}).pattern;
        };
        for (int length = 1; length <= bits + 2; ++length) {
            const double power = std::ldexp(1, length);
            EXPECT_EQ(root_of_minus_zero(power), 0u) << name << ' ' << power;
            const std::uint64_t odd = length < bits ? pattern_of(family.element, -0.0) : 0;
            EXPECT_EQ(root_of_minus_zero(power + 1), odd) << name << ' ' << power + 1;
            EXPECT_EQ(root_of_minus_zero(power - 1), length <= bits ? pattern_of(family.element, -0.0) : 0)
                << power - 1;
            if (length < bits - 1) {
                EXPECT_EQ(root_of_minus_zero(power + 0.5), 0u) << name << ' ' << power + 0.5;
            }
        }
    }
}

TEST(PowersRare, ClassesOfPowr) {
    const Case cases[] = {
        {nan, 0, made, 0, invalid},
        {inf, 0, made, 0, invalid},
        {inf, -0.0, made, 0, invalid},
        {-inf, 2, made, 1, invalid},
        {-inf, nan, made, 1, invalid},
        {1, 3, 1},
        {1, inf, made, 0, invalid},
        {1, nan, made, 0, invalid},
        {0, 0, made, 0, invalid},
        {-0.0, -0.0, made, 0, invalid},
        {0, 3, 0},
        {-0.0, 3, 0},
        {-0.0, inf, 0},
        {0, -1, inf, 0, by_zero},
        {-0.0, -1, inf, 0, by_zero},
        {0, -inf, inf, 0, by_zero},
        {-8, 2, made, 1, invalid},
        {-1, inf, made, 1, invalid},
        {-0.0, nan, made, 1, invalid},
        {0, nan, nan},
        {3, 0, 1},
        {3, -0.0, 1},
        {3, nan, nan},
        {inf, other, other},
        {4, -0.5, 0.5},
        {2, 5000, inf, 0, over},
        {0.5, 5000, 0, 0, under},
        {inf, 3, inf},
        {3, inf, inf},
        {inf, -3, 0},
        {3, -inf, 0},
        {0.5, inf, 0},
        {0.5, -inf, inf},
    };
    expect_cases("powr", cases);
}

TEST(PowersRare, ClassesOfPown) {
    constexpr double most = 2147483647, least = -2147483648.0;
    const Case cases[] = {
        {nan, 0, 1},
        {0, 0, 1},
        {1, 5, 1},
        {nan, 2, nan},
        {-0.0, 3, -0.0},
        {-0.0, 2, 0},
        {-0.0, most, -0.0},
        {-0.0, -3, -inf, 1, by_zero},
        {-0.0, least, inf, 1, by_zero},
        {0, -3, inf, 1, by_zero},
        {-1, most, -1},
        {-1, least, 1},
        {-inf, 3, -inf},
        {-inf, 2, inf},
        {inf, 1, inf},
        {-inf, -3, -0.0},
        {-inf, least, 0},
        {-3, 3, -27},
        {-2, -2, 0.25},
        {-2, most, -inf, 0, over},
        {-2, least, 0, 0, under},
    };
    expect_cases("pown", cases);
}

TEST(PowersRare, ClassesOfRootn) {
    constexpr double most = 2147483647, least = -2147483648.0;
    const Case cases[] = {
        {8, 0, made, 0, invalid},
        {nan, 0, made, 0, invalid},
        {-0.0, -2, inf, 0, by_zero},
        {-0.0, 2, 0},
        {-0.0, -3, -inf, 0, by_zero},
        {0, -3, inf, 0, by_zero},
        {-0.0, 3, -0.0},
        {-inf, -3, -0.0},
        {-inf, most, -inf},
        {-inf, 2, made, 0, invalid},
        {-8, 2, made, 0, invalid},
        {-nan, 2, made, 0, invalid},
        {-8, 3, -2},
        {-8, -3, -0.5},
        {-1, 3, -1},
        {1, least, 1},
        {nan, 2, nan},
        {nan, 3, nan},
        {inf, 2, inf},
        {inf, least, 0},
    };
    expect_cases("rootn", cases);
}

/// Largest errors of a rare routine over finite arguments: of normal results, and of subnormal ones.
std::pair<double, double> core_errors(const Family& family, int bases) {
    RandomBits random(5);
    double normal = 0, subnormal = 0;
    const double smallest = family.element == Lane::f32 ? 0x1p-126 : 0x1p-1022;
    const Patterns drawn = stratified_patterns(family.element, 1, {}, 16);
    for (int k = 0; k < bases; ++k) {
        const std::uint64_t x = drawn[random() % drawn.size()];
        const Patterns arguments{x, exponent_for(family, x, random)};
        const RareResult got = call_rare(family, arguments);
        const Real exact = oracle(family.operation, std::vector{Real::from_pattern(family.element, x),
                                                                Real::from_pattern(family.arguments[1], arguments[1])})
                               .value();
        const double error = ulp_error(family.element, got.pattern, exact);
        if (!exact.is_finite()) {
            EXPECT_EQ(error, 0) << family.name() << " " << hex(arguments);
            continue;
        }
        EXPECT_EQ(got.status, 0) << family.name() << " " << hex(arguments);
        double& largest = abs(exact) < Real(smallest) ? subnormal : normal;
        largest = std::max(largest, error);
    }
    return {normal, subnormal};
}

// The bounds are the measured maxima that stand beside the routines, rounded up.
TEST(PowersRare, CoresAreAccurate) {
    struct Bound {
        const char* name;
        double normal, subnormal;
    };
    constexpr Bound bounds[] = {
        {"powf", 0.587, 0.783}, {"powrf", 1.14, 0.91},  {"pownf", 0.969, 0.846}, {"rootnf", 0.512, 0.592},
        {"pow", 0.511, 0.752},  {"powr", 0.511, 0.752}, {"pown", 0.511, 0.752},  {"rootn", 0.511, 0.752},
    };
    for (const auto& [name, normal, subnormal] : bounds) {
        const auto errors = core_errors(*find_family(name), 12000);
        EXPECT_LE(errors.first, normal) << name;
        EXPECT_LE(errors.second, subnormal) << name;
    }
}

/// Lanes by the patterns of a base and the values of exponents, that the vector path finishes or that are rare.
struct LaneSplit {
    std::vector<const char*> names;
    std::vector<std::pair<std::uint64_t, double>> ordinary, rare;
};

void expect_split(const LaneSplit& split) {
    for (const char* name : split.names) {
        const DescribedFamily& described = *find_described(name);
        const Program program = record_family(described);
        for (bool rare : {false, true})
            for (const auto& [x, y] : rare ? split.rare : split.ordinary)
                EXPECT_EQ(interpret(program, Patterns{x, pattern_of(described.family->arguments[1], y)}).rare, rare)
                    << name << " " << hex({x}) << " " << y;
    }
}

TEST(FloatPowers, RareLanes) {
    constexpr std::uint64_t two = 0x40000000, sign = 0x80000000;
    expect_split({{"powf", "powf_native", "powf_rm", "powrf", "powrf_native", "powrf_half"},
                  {{0x00800000, 0.5}, {0x7f7ffffe, -0.5}, {two, 93}, {two, -93}, {two, 0}, {two, 0x1p-149}},
                  {{0, 1},
                   {0x007fffff, 1},
                   {0x7f7fffff, 0.5},
                   {0x7f800000, 1},
                   {0x7fc00000, 1},
                   {sign | two, 2},
                   {sign, 1},
                   {two, inf},
                   {two, nan}}});
    expect_split({{"powf"}, {{two, 149.99}, {two, -149.99}}, {{two, 150.01}, {two, -150.01}}});
    expect_split({{"powrf"}, {{two, 93.5}, {two, -93.5}}, {{two, 93.6}, {two, -93.6}}});
    expect_split(
        {{"pownf", "pownf_native"},
         {{two, 125}, {two, -125}, {sign | two, 3}, {sign | 0x7f7ffffe, 0}, {0x00800000, 0}, {0x3f800001, 500000001}},
         {{two, 126}, {two, -126}, {0, 1}, {sign | 0x7f7fffff, 1}, {sign | 0x007fffff, 1}, {0x7f800000, 1}}});
    expect_split({{"rootnf", "rootnf_native"},
                  {{two, 1}, {sign | two, 3}, {sign | two, -2147483647.0}, {two, -2147483648.0}, {0x04000000, -1}},
                  {{two, 0}, {sign | two, 2}, {sign | two, -2147483648.0}, {0x00800000, 1}, {0x7f7fffff, 2}, {0, 1}}});
}

std::uint64_t result_of(const char* name, double x, double y) {
    const Family& family = *find_family(name);
    return outputs_of(family, Patterns{pattern_of(family.element, x), pattern_of(family.arguments[1], y)}).front();
}

// What single terms of the polynomials, and integers beyond float, come to.
TEST(FloatPowers, KnownResults) {
    EXPECT_EQ(result_of("powf", 3, 0), 0x3f800000u);
    EXPECT_EQ(result_of("powrf", 3, 0), 0x3f800000u);
    EXPECT_EQ(result_of("powf_native", 3, 0), 0x3f800000u);
    EXPECT_EQ(result_of("pownf", 3, 0), 0x3f800001u);
    EXPECT_EQ(result_of("pownf_native", -3, 0), 0x3f7ffb0du);
    EXPECT_EQ(result_of("rootnf_native", -1, 3), 0xbf7ffb0du);
    EXPECT_EQ(result_of("rootnf", -8, 3), 0xc0000000u);
    EXPECT_EQ(result_of("rootnf", 1, -2147483648.0), 0x3f800000u);
    EXPECT_EQ(result_of("powf", 0x1p-140, 0.5), result_of("powrf", 0x1p-140, 0.5));  // from the rare routines
    EXPECT_EQ(result_of("powf", 0x1p-125, 1.19),
              std::bit_cast<std::uint32_t>(float(std::pow(0x1p-125, double(1.19f)))));
    // 2^24 + 1 is no float: without what its conversion loses, the result would be off by 40 ulp.
    EXPECT_LE(error_of(*find_family("pownf"), Patterns{pattern_of(Lane::f32, 1 + 0x1.4p-18), 16777217},
                       Patterns{result_of("pownf", 1 + 0x1.4p-18, 16777217)}),
              12);
}

constexpr std::uint64_t high(std::uint64_t word) { return word << 32; }

TEST(DoublePowers, RareLanes) {
    constexpr std::uint64_t two = high(0x40000000), sign = high(0x80000000);
    expect_split({{"pow", "powr", "pow_native", "powr_native"},
                  {{high(0x00100000), 0.5}, {high(0x7ff00000) - 1, -0.5}, {two, 0}, {two, 5e-324}, {two, -999}},
                  {{0, 1},
                   {high(0x00100000) - 1, 1},
                   {high(0x7ff00000), 1},
                   {high(0x7ff80000), 1},
                   {sign | two, 2},
                   {sign, 1},
                   {high(0x3ff00000) + 1, 0x1p1017},
                   {high(0x3ff00000) + 1, -inf},
                   {two, 1023.5},
                   {two, nan}}});
    expect_split({{"pow", "powr"}, {{two, 999.999}}, {{two, 1000}, {two, -1000}}});
    expect_split({{"pow_native", "powr_native"}, {{two, 1021.9}, {two, -1021.9}}, {{two, 1022}, {two, -1022}}});
    expect_split({{"pown", "pown_native"},
                  {{two, 989}, {sign | two, -989}, {sign | (high(0x7ff00000) - 1), 0}, {high(0x00100000), 0}},
                  {{two, 1022}, {0, 1}, {sign | (high(0x00100000) - 1), 1}, {high(0x7ff00000), 1}}});
    expect_split({{"pown"}, {}, {{two, 990}, {sign | two, -990}}});
    expect_split(
        {{"rootn", "rootn_native"},
         {{two, 1}, {sign | two, 3}, {sign | two, -2147483647.0}, {two, -2147483648.0}, {high(0x02000000), -1}},
         {{two, 0}, {sign | two, 2}, {sign | two, -2147483648.0}, {high(0x00100000), 1}, {0, 1}}});
}

TEST(DoublePowers, KnownResults) {
    constexpr std::uint64_t one = 0x3ff0000000000000, sign = 0x8000000000000000;
    for (const char* name : {"pow", "powr", "pow_native", "powr_native", "pown", "pown_native"}) {
        EXPECT_EQ(result_of(name, 3, 0), one) << name;
        EXPECT_EQ(result_of(name, 1, 12345), one) << name;
    }
    for (const char* name : {"rootn", "rootn_native"}) {
        EXPECT_EQ(result_of(name, 1, -2147483648.0), one) << name;
        EXPECT_EQ(result_of(name, -1, 3), sign | one) << name;
    }
    EXPECT_EQ(result_of("rootn", -8, 3), pattern_of(Lane::f64, -2));
    EXPECT_EQ(result_of("pown", -3, 33), pattern_of(Lane::f64, -5559060566555523));
    EXPECT_EQ(result_of("pow", -2, -1077), sign);  // rounds to zero, and keeps its sign
    EXPECT_EQ(result_of("pow", -2, -1073), sign | 2);
}

}  // namespace
}  // namespace tuvo

// Division, roots and the hypotenuse: their tables, their rare routines called directly, and which lanes go there.
#include <cmath>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "divroot/root_tables.hpp"
#include "frame/description/real.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

TEST(RootTables, FollowTheirRules) {
    struct Table {
        RawTable data;
        std::vector<const char*> symbols;
        int cells, fraction_bits;
        std::vector<std::pair<int, double>> rows;
    };
    const Table tables[] = {
        {rsqrt_table(),
         {"rsqrt_table", "rsqrtf_table"},
         32,
         12,
         {{0, 1.0}, {1, 0.9847412109375}, {32, 0.7071533203125}, {33, 0.6962890625}, {64, 0.5}}},
        {sqrt_seed_table(),
         {"sqrtf_seed_table", "hypotf_seed_table", "hypot_seed_table"},
         256,
         10,
         {{0, 1.0}, {1, 0.998046875}, {255, 0.7080078125}, {256, 0.70703125}, {511, 0.50048828125}}},
    };
    for (const Table& table : tables) {
        for (const char* symbol : table.symbols) EXPECT_EQ(rare_table(symbol).patterns, table.data.patterns);
        for (const auto& [index, value] : table.rows)
            EXPECT_EQ(table.data.patterns[index], __builtin_bit_cast(std::uint64_t, value));
        const int first_odd = static_cast<int>(table.data.patterns.size()) - table.cells;  // from there on, up to 4
        for (int i = 0; i < first_odd + table.cells; ++i) {
            const Real point = i < first_odd ? 1 + Real(i) / table.cells : 2 * Real(i) / table.cells;
            const Real entry = Real::from_pattern(Lane::f64, table.data.patterns[i]);
            EXPECT_LE(abs(entry - 1 / sqrt(point)), power_of_two(-table.fraction_bits - 2)) << i;
            EXPECT_LE(entry.significant_bits(), table.fraction_bits + 1) << i;
            EXPECT_LE((entry * entry).significant_bits(), 53) << i;
        }
    }
}

std::uint64_t pattern_of(Lane lane, float x) {
    return lane == Lane::f32 ? __builtin_bit_cast(std::uint32_t, x) : __builtin_bit_cast(std::uint64_t, double(x));
}

TEST(DivisionRootsRare, SpecialValues) {
    constexpr int ordinary = 0, domain = 1, pole = 2;
    constexpr unsigned invalid = _MM_EXCEPT_INVALID, by_zero = _MM_EXCEPT_DIV_ZERO;
    constexpr float infinity = HUGE_VALF;
    const float nan = __builtin_nanf("0x123000"), other = __builtin_nanf("0x321000"), made = -__builtin_nanf("");
    struct Case {
        std::vector<float> arguments;
        float result;
        int status;
        unsigned flags;
    };
    const Case quotients[] = {
        {{-1.0f, 0.0f}, -infinity, pole, by_zero},
        {{0.0f, -0.0f}, made, pole, invalid},
        {{nan, 0.0f}, nan, pole, 0},
        {{infinity, infinity}, made, ordinary, invalid},
        {{1.0f, nan}, nan, ordinary, 0},
        {{6.0f, -3.0f}, -2.0f, ordinary, 0},
    };
    const Case reciprocals[] = {
        {{0.0f}, infinity, pole, by_zero}, {{-0.0f}, -infinity, pole, by_zero}, {{nan}, nan, ordinary, 0},
        {{-infinity}, -0.0f, ordinary, 0}, {{-0.5f}, -2.0f, ordinary, 0},
    };
    const Case roots[] = {
        {{0.0f}, 0.0f, ordinary, 0},          {{-0.0f}, -0.0f, ordinary, 0},
        {{infinity}, infinity, ordinary, 0},  {{nan}, nan, ordinary, 0},
        {{-infinity}, made, domain, invalid}, {{-0x1p-149f}, made, domain, invalid},
        {{0x1p-148f}, 0x1p-74f, ordinary, 0},
    };
    const Case reciprocal_roots[] = {
        {{0.0f}, infinity, pole, by_zero},    {{-0.0f}, -infinity, pole, by_zero},
        {{infinity}, 0.0f, ordinary, 0},      {{nan}, nan, ordinary, 0},
        {{-infinity}, made, domain, invalid}, {{-0x1p-149f}, made, domain, invalid},
        {{0x1p-148f}, 0x1p74f, ordinary, 0},
    };
    const Case hypotenuses[] = {
        {{-infinity, nan}, infinity, ordinary, 0},
        {{nan, -infinity}, infinity, ordinary, 0},
        {{1.0f, -infinity}, infinity, ordinary, 0},
        {{nan, 1.0f}, nan, ordinary, 0},
        {{0.0f, nan}, nan, ordinary, 0},
        {{other, nan}, other, ordinary, 0},
        {{-0.0f, -0.0f}, 0.0f, ordinary, 0},
        {{-3.0f, -4.0f}, 5.0f, ordinary, 0},
        {{0x1p-149f, 0.0f}, 0x1p-149f, ordinary, 0},
    };
    const std::pair<const char*, std::span<const Case>> routines[] = {
        {"divf_half", quotients},    {"div", quotients},      {"invf_half", reciprocals},
        {"inv", reciprocals},        {"sqrtf_half", roots},   {"rsqrtf", reciprocal_roots},
        {"rsqrt", reciprocal_roots}, {"hypotf", hypotenuses}, {"hypot", hypotenuses}};
    for (const auto& [name, cases] : routines) {
        const Family& family = *find_family(name);
        for (const Case& c : cases) {
            SCOPED_TRACE(family.rare_routine + testing::PrintToString(c.arguments));
            Patterns arguments;
            for (float x : c.arguments) arguments.push_back(pattern_of(family.element, x));
            const RareResult got = call_rare(family, arguments);
            EXPECT_EQ(got.pattern, pattern_of(family.element, c.result)) << std::hex << got.pattern;
            EXPECT_EQ(got.status, c.status);
            EXPECT_EQ(got.flags, c.flags);
        }
    }
    const RareResult too_large = call_rare(*find_family("hypot"), {0x7fefffffffffffff, 0x7fefffffffffffff});
    EXPECT_EQ(too_large.pattern, 0x7ff0000000000000);
    EXPECT_EQ(too_large.flags, unsigned{_MM_EXCEPT_OVERFLOW});
}

// The bounds are the measured maxima that stand beside the routines.
TEST(DivisionRootsRare, Accuracy) {
    const std::pair<const char*, double> bounds[] = {{"divf_half", 0.5}, {"div", 0.5},        {"invf_half", 0.5},
                                                     {"inv", 0.5},       {"sqrtf_half", 0.5}, {"rsqrtf", 0.5},
                                                     {"rsqrt", 0.5001},  {"hypotf", 0.5},     {"hypot", 0.883}};
    RandomBits random(1);
    for (const auto& [name, bound] : bounds) {
        const Family& family = *find_family(name);
        const Lane lane = family.element;
        Patterns drawn = stratified_patterns(lane, 1, {}, lane == Lane::f32 ? 64 : 8);
        // Close below 4: the last entry of the table of reciprocal roots.
        drawn.push_back(lane == Lane::f32 ? 0x407fffff : 0x400fffffffffffff);
        double largest = 0;
        for (std::uint64_t x : drawn) {
            // The second is any, or of similar size: where the heads of both count, and where only one does.
            const std::uint64_t step = ((random() % 32 - 16) << (lane == Lane::f32 ? 23 : 52)) + (random() & 0xfffff);
            const std::uint64_t y = random() % 2 ? x + step : drawn[random() % drawn.size()];
            const Patterns arguments = family.arguments.size() == 1 ? Patterns{x} : Patterns{x, y};
            const Real exact = oracle(family.operation, arguments, lane).value();
            if (!exact.is_finite()) continue;
            const RareResult got = call_rare(family, arguments);
            EXPECT_EQ(got.status, 0) << name << " " << hex(arguments);
            largest = std::max(largest, ulp_error(lane, got.pattern, exact));
        }
        EXPECT_LE(largest, bound) << name;
    }
}

TEST(DivisionRoots, RareLanes) {
    struct Case {
        const char* family;
        std::vector<std::uint32_t> ordinary, rare;  ///< patterns of floats, or high words of doubles
    };
    const Case cases[] = {
        {"divf_native", {0x00800000, 0x7e7fffff, 0xfe7fffff}, {0, 0x007fffff, 0x807fffff, 0x7e800000, 0xff800000}},
        {"invf_half", {0x00800000, 0x7e7fe800, 0xfe7fe800}, {0x80000000, 0x007fffff, 0x7e7fe801, 0xfe7fe801}},
        {"div", {0x00100000, 0x3f800000, 0xfff00000}, {0, 0x80000000, 0x000fffff}},
        {"div_native", {0x000fffff, 0x3ff00000, 0x7ff00000}, {0, 0x80000000, 0x3f800000, 0xbf000000}},
        {"inv", {0x00100000, 0x7ff00000}, {0x80000000, 0x000fffff}},
        {"sqrtf_half", {0x00800000, 0x7f7fffff}, {0, 0x007fffff, 0x7f800000, 0x80800000, 0xffffffff}},
        {"rsqrtf", {0x00800000, 0x7f7fffff}, {0x80000000, 0x007fffff, 0x7f800000, 0xbf800000, 0x7fc00000}},
        {"rsqrt", {0x03500000, 0x7fcfffff}, {0, 0x034fffff, 0x7fd00000, 0x83500000, 0xbff00000, 0xfff00000}},
        {"rsqrt_native", {0x00300000, 0x034fffff, 0x7fcfffff}, {0, 0x002fffff, 0x7fd00000, 0xbff00000}},
        // both arguments alike, at the limits of their squares' sum
        {"hypotf", {0x2e9617e7, 0x4fca62be}, {0, 0x2e9617df, 0x4fca62c6, 0x7f800000, 0xff800001}},
        {"hypot", {0x3dd00000, 0x41f6a09e}, {0, 0x3dcfffff, 0x41f6a0a0, 0x7ff00000, 0xfff80000}},
    };
    for (const Case& c : cases) {
        const DescribedFamily& described = *find_described(c.family);
        const Program program = record_family(described);
        const bool single = described.family->element == Lane::f32;
        for (bool rare : {false, true})
            for (std::uint64_t word : rare ? c.rare : c.ordinary) {
                const Patterns arguments(described.family->arguments.size(), single ? word : word << 32);
                EXPECT_EQ(interpret(program, arguments).rare, rare) << c.family << " " << hex(arguments);
            }
    }
}

// What comes of arguments outside the domain of families without a rare path, and of their neighbours with one.
TEST(DivisionRoots, UnrepairedLanes) {
    const auto result = [](const char* name, std::vector<float> arguments) {
        const Family& family = *find_family(name);
        std::vector<Patterns> lanes;
        for (float x : arguments) lanes.push_back(Patterns(4, pattern_of(family.element, x)));
        const std::uint64_t pattern = call(find_kernel(family, 4), family, 4, lanes).outputs[0][3];
        return Real::from_pattern(family.element, pattern).to_float();
    };
    EXPECT_EQ(result("inv_native", {0.0f}), HUGE_VALF);
    EXPECT_EQ(result("inv_native", {HUGE_VALF}), -HUGE_VALF);  // the exponent wraps
    EXPECT_EQ(result("inv_native", {-HUGE_VALF}), HUGE_VALF);
    EXPECT_TRUE(std::isnan(result("sqrtf_native", {0.0f})));
    EXPECT_TRUE(std::isnan(result("sqrtf_native", {HUGE_VALF})));
    EXPECT_EQ(result("sqrtf_half", {0.0f}), 0.0f);
    EXPECT_EQ(result("hypotf_native", {0.0f, -0.0f}), 0.0f);
    EXPECT_TRUE(std::isnan(result("hypotf_native", {HUGE_VALF, 1.0f})));
    EXPECT_EQ(result("hypotf", {0x3p99f, -0x4p99f}), 0x5p99f);
    EXPECT_EQ(result("hypotf", {0x4p-140f, 0x3p-140f}), 0x5p-140f);
}

}  // namespace
}  // namespace tuvo

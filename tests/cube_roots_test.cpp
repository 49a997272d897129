// The cube roots: their tables, the rare routines called directly, and what the kernels do at the edges.
#include <bit>
#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include "frame/description/families.hpp"
#include "powers/cube_root_tables.hpp"
#include "tests/accuracy.hpp"
#include "tests/inputs.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

Real entry(const RawTable& table, int index, int field = 0) {
    return Real::from_pattern(table.lane, table.patterns.at(static_cast<std::size_t>(index * table.fields + field)));
}

Real cube(const Real& x) { return x * x * x; }

TEST(CubeRootTables, HoldRootsOfMiddlesAndTheirReciprocals) {
    struct Table {
        RawTable data;
        CubeRoot which;
        int first;          ///< entry of remainder 0
        int relative_bits;  ///< of hi + lo
    };
    const Table tables[] = {
        {float_cube_root_pairs(CubeRoot::direct), CubeRoot::direct, 32, 48},
        {float_cube_root_pairs(CubeRoot::reciprocal), CubeRoot::reciprocal, 32, 48},
        {float_cube_root_values(CubeRoot::direct), CubeRoot::direct, 32, 24},
        {float_cube_root_values(CubeRoot::reciprocal), CubeRoot::reciprocal, 32, 24},
        {double_cube_root_pairs(CubeRoot::direct), CubeRoot::direct, 0, 106},
        {double_cube_root_pairs(CubeRoot::reciprocal), CubeRoot::reciprocal, 0, 106},
        {double_cube_root_values(CubeRoot::direct), CubeRoot::direct, 0, 53},
        {double_cube_root_values(CubeRoot::reciprocal), CubeRoot::reciprocal, 0, 53},
    };
    for (const Table& table : tables) {
        const bool pairs = table.data.fields == 4;
        ASSERT_EQ(table.data.patterns.size(), static_cast<std::size_t>((table.first + 96) * table.data.fields));
        for (int k = 0; k < 96; ++k) {
            const int row = table.first + k;
            const Real v = (1 + Real(2 * (k % 32) + 1) / 64) * power_of_two(k / 32);
            const Real hi = entry(table.data, row), root = pairs ? hi + entry(table.data, row, 1) : hi;
            const Real excess = table.which == CubeRoot::direct ? cube(root) / v - 1 : cube(root) * v - 1;
            EXPECT_LE(abs(excess), 3 * power_of_two(-table.relative_bits)) << k;
            EXPECT_EQ(root.to_pattern(table.data.lane), hi.to_pattern(table.data.lane)) << k;
            const Real R = entry(table.data, row, pairs ? 2 : 1);
            EXPECT_LE(abs(R * v / power_of_two(k / 32) + 1), power_of_two(table.data.lane == Lane::f32 ? -24 : -53));
        }
    }
}

// The seeds are so short that the first products with them are exact.
TEST(CubeRootTables, Seeds) {
    const RawTable seeds = cube_root_seeds(), reciprocal = reciprocal_cube_root_seeds(), rem = cube_root_remainders();
    for (const auto& [i, value] : std::map<int, double>{{0, 1.0}, {1, 0.98828125}, {2, 0.9765625}, {31, 0.796875}})
        EXPECT_EQ(entry(seeds, i), Real(value)) << i;
    for (int i = 0; i < 32; ++i) {
        const Real G = entry(seeds, i);
        EXPECT_LE(G.significant_bits(), 8) << i;
        EXPECT_LE(abs(cube(G) * (1 + Real(2 * i + 1) / 64) - 1), Real(0.032)) << i;
    }
    for (int j = 0; j <= 96; ++j) {
        const Real G = entry(reciprocal, j), v = (1 + Real(j % 32) / 32) * power_of_two(j / 32);
        EXPECT_LE(G.significant_bits(), 12) << j;
        EXPECT_LE(abs(cube(G) * v - 1), Real(0.001)) << j;
    }
    const double told[3][2] = {
        {1.0, 0}, {1.2599210441112518, 5.783621333712523e-09}, {1.587401032447815, 1.9520384533345454e-08}};
    for (int k = 0; k < 3; ++k)
        for (int field = 0; field < 2; ++field) EXPECT_EQ(entry(rem, k, field), Real(told[k][field])) << k;
    for (const char* symbol : {"rcbrt_seed_table", "rcbrtf_seed_table"})
        EXPECT_EQ(rare_table(symbol).patterns, reciprocal.patterns);
}

std::uint64_t pattern_of(Lane lane, float x) {
    return lane == Lane::f32 ? std::bit_cast<std::uint32_t>(x) : std::bit_cast<std::uint64_t>(double(x));
}

TEST(CubeRootsRare, SpecialValues) {
    constexpr int ordinary = 0, pole = 2;
    constexpr float inf = HUGE_VALF;
    const float nan = __builtin_nanf("0x123000");
    struct Case {
        float x, root, reciprocal;
        int status;  ///< and flags, of the reciprocal
        unsigned flags;
    };
    const Case cases[] = {
        {0.0f, 0.0f, inf, pole, _MM_EXCEPT_DIV_ZERO},
        {-0.0f, -0.0f, -inf, pole, _MM_EXCEPT_DIV_ZERO},
        {inf, inf, 0.0f, ordinary, 0},
        {-inf, -inf, -0.0f, ordinary, 0},
        {nan, nan, nan, ordinary, 0},
        {-nan, -nan, -nan, ordinary, 0},
        {-64.0f, -4.0f, -0.25f, ordinary, 0},
        {-0x1p-147f, -0x1p-49f, -0x1p49f, ordinary, 0},
    };
    for (const char* name : {"cbrtf", "cbrt", "rcbrtf", "rcbrt"})
        for (const Case& c : cases) {
            const Family& family = *find_family(name);
            const auto pattern = [&](float x) { return pattern_of(family.element, x); };
            EXPECT_EQ(call_rare(family, {pattern(c.x)}), family.operation == "cbrt"
                                                             ? (RareResult{pattern(c.root), ordinary, 0})
                                                             : (RareResult{pattern(c.reciprocal), c.status, c.flags}))
                << name << " " << c.x;
        }
    constexpr std::uint64_t least = 0x8000000000000001, signalling = 0x7ff0000000000005;
    EXPECT_EQ(call_rare(*find_family("rcbrt"), {least}).pattern,
              std::bit_cast<std::uint64_t>(-1 / std::cbrt(0x1p-1074)));
    for (const char* name : {"cbrt", "rcbrt"})
        EXPECT_EQ(call_rare(*find_family(name), {signalling}),
                  (RareResult{0x7ff8000000000005, ordinary, _MM_EXCEPT_INVALID}));
}

// The bounds are the measured maxima that stand beside the routines, rounded up.
TEST(CubeRootsRare, Accuracy) {
    for (const auto& [name, bound] :
         std::map<std::string, double>{{"cbrtf", 0.514}, {"rcbrtf", 0.5}, {"cbrt", 0.501}, {"rcbrt", 0.5035}}) {
        const Family& family = *find_family(name);
        double largest = 0;
        for (std::uint64_t x : stratified_patterns(family.element, 1, {}, family.element == Lane::f32 ? 64 : 8)) {
            const Real exact = oracle(family.operation, {&x, 1}, family.element).value();
            if (!exact.is_finite()) continue;
            const RareResult got = call_rare(family, {x});
            ASSERT_EQ(got, (RareResult{got.pattern, 0, 0})) << name << " " << hex({x});
            largest = std::max(largest, ulp_error(family.element, got.pattern, exact));
        }
        EXPECT_LE(largest, bound) << name;
        EXPECT_GT(largest, bound - 0.02) << name;
    }
}

TEST(CubeRoots, RareLanes) {
    for (const char* name :
         {"cbrtf", "cbrtf_native", "rcbrtf", "rcbrtf_native", "cbrt", "cbrt_native", "rcbrt", "rcbrt_native"}) {
        const Program program = record_family(*find_described(name));
        const bool single = program.argument_types[0] == Type::f32;
        const std::uint64_t infinity = single ? 0x7f800000 : 0x7ff0000000000000;
        const std::uint64_t least = single ? 0x00800000 : 0x0010000000000000;
        const std::uint64_t sign = single ? 0x80000000 : 0x8000000000000000;
        for (std::uint64_t s : {std::uint64_t{0}, sign}) {
            for (std::uint64_t x : {least, infinity - 1})
                EXPECT_FALSE(interpret(program, Patterns{s | x}).rare) << name << " " << hex({s | x});
            for (std::uint64_t x : {std::uint64_t{0}, std::uint64_t{1}, least - 1, infinity, infinity + 1, sign - 1})
                EXPECT_TRUE(interpret(program, Patterns{s | x}).rare) << name << " " << hex({s | x});
        }
    }
}

// Both ends of every interval, where the series is longest, with every remainder and both signs.
TEST(CubeRoots, AccuracyAtTheEndsOfIntervals) {
    for (const char* name : {"cbrtf", "rcbrtf", "cbrt", "rcbrt"}) {
        const DescribedFamily& described = *find_described(name);
        const Family& family = *described.family;
        const Program program = record_family(described);
        const bool single = family.element == Lane::f32;
        const int fraction_bits = single ? 23 : 52;
        for (std::uint64_t i = 0; i < 32; ++i)
            for (int k = 0; k < 30; ++k) {
                const std::uint64_t field = (single ? 127 : 1023) + (k % 10 - 5) * (single ? 23 : 187);
                const std::uint64_t last = k < 10 ? 0 : k < 20 ? 1 : (std::uint64_t{1} << (fraction_bits - 5)) - 1;
                const std::uint64_t x = (k % 2 ? std::uint64_t{1} << (8 * lane_size(family.element) - 1) : 0) |
                                        field << fraction_bits | i << (fraction_bits - 5) | last;
                const Patterns arguments{x};
                ASSERT_LE(error_of(family, arguments, interpret(program, arguments).outputs), described.accuracy.ulp)
                    << name << " " << hex(arguments);
            }
    }
}

}  // namespace
}  // namespace tuvo

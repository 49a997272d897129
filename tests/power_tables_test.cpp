// Tables of the powers: rows that are known, their rules, and the exactness that steps rely on.
#include <map>

#include <gtest/gtest.h>

#include "powers/double_power_tables.hpp"
#include "powers/float_power_tables.hpp"
#include "powers/stage_tables.hpp"

namespace tuvo {
namespace {

Real entry(const RawTable& table, int index, int field = 0) {
    return Real::from_pattern(table.lane, table.patterns.at(static_cast<std::size_t>(index * table.fields + field)));
}

TEST(PowerTables, ReciprocalLogarithms) {
    const RawTable table = reciprocal_logarithms();
    ASSERT_EQ(table.patterns.size(), 513u);
    EXPECT_EQ(table.patterns[0], 0x8000000000000000u);
    EXPECT_EQ(table.patterns[512], 0u);
    // The logarithm of a power of two belongs to the exponent: entries on both sides of the turn are half of it.
    for (int i = 0; i <= 512; ++i) {
        const Real r = 512 + i;
        EXPECT_LE(abs(exp(-entry(table, i)) * (i > 212 ? 1024 : 512) / r - 1), power_of_two(-54)) << i;
        EXPECT_LE(abs(entry(table, i)), Real(0.3476)) << i;
    }
}

TEST(PowerTables, CentredPowers) {
    const RawTable table = centred_powers();
    ASSERT_EQ(table.patterns.size(), 2048u);
    EXPECT_EQ(table.patterns[0], 0x3feffffffc27dd9eu);
    for (int j = 0; j < 2048; ++j)
        EXPECT_LE(abs(entry(table, j) / entry(table, 0) - exp2(Real(j) / 2048)), power_of_two(-52)) << j;
}

TEST(PowerTables, FloatLogarithmTriples) {
    const RawTable table = float_logarithm_triples();
    ASSERT_EQ(table.patterns.size(), 65u * 4);
    const auto expect_row = [&](int i, double hi, float lo, double rcp) {
        EXPECT_EQ(entry(table, i, 0), Real(hi)) << i;
        EXPECT_EQ(entry(table, i, 1), Real(lo)) << i;
        EXPECT_EQ(entry(table, i, 2), Real(rcp)) << i;
    };
    expect_row(0, 0, 0, 1);
    expect_row(64, 0.693115234375, 3.1946183e-05f, 0.5);
    for (int i = 0; i <= 64; ++i) {
        const Real hi = entry(table, i, 0), rcp = entry(table, i, 2), log = -tuvo::log(rcp);
        EXPECT_LE(abs(rcp * (1 + Real(i) / 64) - 1), Real(0.0039)) << i;
        EXPECT_EQ(hi.rounded_to_grid(-14), hi) << i;
        EXPECT_LE(abs(hi + entry(table, i, 1) - log), power_of_two(-38)) << i;
        // Its product with a head, of 9 fraction bits, less 1 is exact; so is the head's sum with hi next to 1.
        for (int head = 512; head < 1024; ++head) ASSERT_LE((rcp * head / 512 - 1).significant_bits(), 24) << i;
    }
}

TEST(PowerTables, FloatPowersOfTwo) {
    const RawTable table = float_powers_of_two();
    ASSERT_EQ(table.patterns.size(), 256u);
    EXPECT_EQ(table.patterns[0], 0x3f800000u);
    EXPECT_EQ(table.patterns[1], 0u);
    EXPECT_EQ(table.patterns[2], 0x3f80b1eeu);
    EXPECT_EQ(table.patterns[3], 0xb3b02666u);
    for (int j = 0; j < 128; ++j)
        EXPECT_LE(abs(entry(table, j) + entry(table, j, 1) - exp2(Real(j) / 128)), power_of_two(-47)) << j;
}

// Heads of 26 bits have exact products with R, and the sums of the heads of logarithms with exponents are exact.
TEST(PowerTables, DoubleLogarithmTriples) {
    const RawTable table = double_logarithm_triples();
    ASSERT_EQ(table.patterns.size(), 1025u * 3);
    const Real c = Real::from_pattern(Lane::f64, 0x3ff7154740000000);
    for (int i : {0, 1024})
        for (int field : {0, 1}) EXPECT_EQ(table.patterns[static_cast<std::size_t>(i * 3 + field)], 0u);
    EXPECT_EQ(entry(table, 0, 2), c);
    EXPECT_EQ(entry(table, 1024, 2), c / 2);
    for (int i = 0; i <= 1024; ++i) {
        const Real hi = entry(table, i, 0), R = entry(table, i, 2);
        EXPECT_EQ(table.patterns[static_cast<std::size_t>(i * 3 + 2)] & 0x3fffffff, 0u) << i;
        EXPECT_EQ(table.patterns[static_cast<std::size_t>(i * 3)] & 0xffffffff, 0u) << i;
        const Real excess = R * (1 + Real(i) / 1024) / c - 1;
        EXPECT_TRUE(excess <= Real(0) && excess > -power_of_two(-22)) << i;
        const Real log = log2(c / R) - (i >= 512 ? 1 : 0);
        EXPECT_LE(abs(hi + entry(table, i, 1) - log), abs(log) * power_of_two(-72)) << i;
        EXPECT_LE(abs(hi), abs(log)) << i;
    }
}

TEST(PowerTables, DoublePowersOfTwo) {
    const RawTable values = double_powers_of_two(), pairs = double_power_of_two_pairs();
    ASSERT_EQ(values.patterns.size(), 128u);
    ASSERT_EQ(pairs.patterns.size(), 256u);
    for (int j = 0; j < 128; ++j) {
        EXPECT_EQ(entry(pairs, j), entry(values, j)) << j;
        EXPECT_LE(abs(entry(pairs, j) + entry(pairs, j, 1) - exp2(Real(j) / 128)), power_of_two(-106)) << j;
        EXPECT_LE(abs(entry(pairs, j, 1)), power_of_two(-53)) << j;
    }
    RawTable from_one = centred_powers_from_one();
    EXPECT_EQ(from_one.patterns[0], 0x3ff0000000000000u);
    from_one.patterns[0] = centred_powers().patterns[0];
    EXPECT_EQ(from_one.patterns, centred_powers().patterns);
}

TEST(PowerTables, StageReciprocals) {
    const std::map<int, std::vector<double>> of_float = {
        {1, {1.0, 0.890625, 0.796875, 0.7265625, 0.6640625, 0.6171875, 0.5703125, 0.53125, 0.5}},
        {2, {1.0, 0.96875, 0.9375, 1.078125, 1.0625, 1.046875, 1.03125, 1.015625, 1.0}},
        {3,
         {1.44140625, 1.435546875, 1.4296875, 1.423828125, 1.419921875, 1.47265625, 1.470703125, 1.466796875,
          1.46484375, 1.4609375, 1.458984375, 1.455078125, 1.453125, 1.44921875, 1.447265625, 1.443359375,
          1.44140625}}};
    for (const auto& [stage, values] : of_float) {
        const RawTable table = stage_reciprocals(float_power_stage(stage));
        ASSERT_EQ(table.patterns.size(), values.size());
        for (std::size_t i = 0; i < values.size(); ++i) EXPECT_EQ(entry(table, int(i)), Real(values[i])) << stage << i;
    }
    const std::map<int, std::map<int, double>> of_double = {
        {1, {{0, 1.0}, {1, 0.969696044921875}, {2, 0.941162109375}, {32, 0.5}}},
        {2, {{0, 1.0}, {1, 0.998046875}, {2, 0.99609375}, {31, 1.0009765625}, {32, 1.0}}},
        {3, {{0, 1.442694902420044}, {128, 1.442694902420044}}}};
    for (const auto& [stage, values] : of_double) {
        const RawTable table = stage_reciprocals(double_power_stage(stage));
        ASSERT_EQ(table.patterns.size(), values.rbegin()->first + 1u);
        for (const auto& [i, value] : values) EXPECT_EQ(entry(table, i), Real(value)) << stage << ' ' << i;
    }
}

// Heads of the logarithms are so short that they add up exactly, with any exponent; and the reciprocals' products are
// exact.
TEST(PowerTables, StageLogarithms) {
    for (const auto stage_of : {float_power_stage, double_power_stage}) {
        int bits = 0;
        for (int number = 1; number <= 3; ++number) {
            const PowerStage stage = stage_of(number);
            const RawTable reciprocals = stage_reciprocals(stage), logarithms = stage_logarithms(stage);
            const bool single = stage.lane == Lane::f32;
            int longest = 0;
            for (int i = 0; i <= stage.last; ++i) {
                const Real rcp = entry(reciprocals, i);
                longest = std::max(longest, rcp.significant_bits());
                const Real log = -log2(rcp / stage.scale) - (number == 1 && 2 * i >= stage.last ? 1 : 0);
                const Real hi = entry(logarithms, i), lo = entry(logarithms, i, 1);
                EXPECT_LE(abs(hi + lo - log), abs(log) * power_of_two(single ? -24 : -72)) << number << ' ' << i;
                EXPECT_LE(abs(hi), abs(log)) << number << ' ' << i;
                if (single)
                    EXPECT_EQ(hi.rounded_to_grid(-17), hi) << number << ' ' << i;
                else
                    EXPECT_LE(hi.significant_bits(), 21) << number << ' ' << i;
            }
            bits += longest;
        }
        EXPECT_LE(bits, stage_of(1).lane == Lane::f32 ? 24 : 53);
    }
}

}  // namespace
}  // namespace tuvo

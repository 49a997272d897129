// The tables of the float logarithms: rows known bit for bit, the sums that the rules ask for, and the properties of hi
// that make the kernels' and routines' sums exact.
#include "explog/float_logarithm_tables.hpp"

#include <array>
#include <bit>

#include <gtest/gtest.h>

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

Real f32(std::uint64_t pattern) { return Real::from_pattern(Lane::f32, pattern); }

std::vector<std::uint64_t> entry(const RawTable& table, int index) {
    const auto first = table.patterns.begin() + index * table.fields;
    return {first, first + table.fields};
}

using Row = std::vector<std::uint64_t>;

/// A kernel's table, by what the kernel does with it.
struct KernelTable {
    RawTable table;
    Real (*log)(const Real&);
    int first;  ///< least and greatest R
    int last;
    std::uint32_t exponent_hi;
    std::uint32_t exponent_lo;

    int index(int r) const {
        auto offset = [](int value) { return std::bit_cast<std::uint32_t>(static_cast<float>(value)) >> 13; };
        return static_cast<int>(offset(r) - offset(first)) / 8;
    }
};

std::array<KernelTable, 2> kernel_tables() {
    return {KernelTable{log10f_kernel_table(), log10, 111, 222, 0x3e9a2100, 0xb64af600},
            KernelTable{log1pf_kernel_table(), log, 128, 256, 0x3f317200, 0x35bfbe00}};
}

TEST(FloatLogarithmTables, KnownKernelRows) {
    const auto [decimal, natural] = kernel_tables();
    EXPECT_EQ(entry(decimal.table, decimal.index(111)), (Row{0xc217b87c, 0x39c7ca28}));
    EXPECT_EQ(entry(decimal.table, decimal.index(128)), (Row{0xc217f7de, 0x39cd2eda}));
    EXPECT_EQ(entry(decimal.table, decimal.index(222)), (Row{0xc218ecbe, 0x39c96014}));
    EXPECT_EQ(entry(natural.table, natural.index(128)), (Row{0xc2aeac38, 0xb93cbf08}));
    EXPECT_EQ(entry(natural.table, natural.index(192)), (Row{0xc2af7bd4, 0xb925ba37}));
    EXPECT_EQ(entry(natural.table, natural.index(256)), (Row{0xc2b00f1c, 0xb93e3e84}));
}

TEST(FloatLogarithmTables, KernelEntriesCoverEveryIndexAndFollowTheRule) {
    for (const KernelTable& kernel : kernel_tables()) {
        ASSERT_EQ(kernel.table.fields, 2);
        std::vector<bool> read(kernel.table.patterns.size() / 2, false);
        ASSERT_EQ(kernel.index(kernel.last) + 1, static_cast<int>(read.size()));
        for (int r = kernel.first; r <= kernel.last; ++r) {
            const Row row = entry(kernel.table, kernel.index(r));
            read[kernel.index(r)] = true;
            const Real rule =
                kernel.log(Real(kernel.last) / r) - 127 * (f32(kernel.exponent_hi) + f32(kernel.exponent_lo));
            EXPECT_LT(abs(f32(row[0]) + f32(row[1]) - rule), Real(2e-11)) << "R = " << r;
        }
        for (std::size_t i = 0; i < read.size(); ++i) {
            if (!read[i]) {
                EXPECT_EQ(entry(kernel.table, i), (Row{0, 0})) << "entry " << i;
            }
        }
    }
}

TEST(FloatLogarithmTables, KernelSumsOfHiAreExact) {
    for (const KernelTable& kernel : kernel_tables()) {
        for (int r = kernel.first; r <= kernel.last; ++r) {
            const Real hi = f32(entry(kernel.table, kernel.index(r))[0]);
            for (int field = 1; field <= 254; ++field)
                ASSERT_LE((field * f32(kernel.exponent_hi) + hi).significant_bits(), 24) << r << ' ' << field;
        }
    }
}

TEST(FloatLogarithmTables, KernelEntriesVanishOnBothSidesOfOne) {
    for (const KernelTable& kernel : kernel_tables()) {
        const Row above = entry(kernel.table, kernel.index(kernel.last));
        const Row below = entry(kernel.table, kernel.index(kernel.first));
        for (int field = 0; field < 2; ++field) {
            const Real exponent_part = f32(field ? kernel.exponent_lo : kernel.exponent_hi);
            EXPECT_TRUE((127 * exponent_part + f32(above[field])).is_zero());
            EXPECT_TRUE((126 * exponent_part + f32(below[field])).is_zero());
        }
    }
}

/// A rare routine's table, with the multiplier of the exponent whose product meets hi.
struct RoutineTable {
    const char* symbol;
    Real (*log)(const Real&);
    std::uint32_t scale;
    int steps;
    int hi_bits;
    std::uint32_t exponent_hi;
    int least_exponent;
    std::vector<std::pair<int, Row>> known;
};

const RoutineTable routine_tables[] = {
    {"logf_table",
     log,
     0x3f800000,
     128,
     18,
     0x3f317200,
     -126,
     {{0, {0x3f800000, 0, 0}}, {1, {0x3f7c0000, 0x3c810000, 0x35acb127}}, {64, {0x3f000000, 0x3f317200, 0x35bfbe8e}}}},
    {"log1pf_table", log, 0x3f800000, 128, 18, 0x3f317200, -126, {}},
    {"log2f_table",
     log2,
     0x43b8aa40,
     1024,
     16,
     0x3f800000,
     -149,
     {{0, {0x43b8aa40, 0, 0}}, {64, {0x4338aa40, 0x3f800000, 0}}}},
    {"log10f_table", log10, 0x42de5c00, 128, 17, 0x3e9a0000, -149, {{0, {0x42de5c00, 0, 0}}}},
};

TEST(FloatLogarithmTables, RoutineEntriesFollowTheRule) {
    for (const RoutineTable& routine : routine_tables) {
        SCOPED_TRACE(routine.symbol);
        const RawTable table = rare_table(routine.symbol);
        ASSERT_EQ(table.fields, 3);
        ASSERT_EQ(table.patterns.size(), 65u * 3);
        for (const auto& [index, row] : routine.known) EXPECT_EQ(entry(table, index), row);
        for (int i = 0; i <= 64; ++i) {
            SCOPED_TRACE(i);
            const Row row = entry(table, i);
            const Real hi = f32(row[1]);
            const Real q = (Real(routine.steps) * 64 / (64 + i)).rounded_to_grid(0) / routine.steps;
            EXPECT_EQ(row[0], (f32(routine.scale) * q).to_pattern(Lane::f32));
            EXPECT_LT(abs(hi + f32(row[2]) + routine.log(q)), Real(3e-13));
            EXPECT_LE(hi.significant_bits(), routine.hi_bits);
            for (int e = routine.least_exponent; e <= 127; ++e)
                ASSERT_LE((e * f32(routine.exponent_hi) + hi).significant_bits(), 24) << e;
        }
    }
    EXPECT_EQ(rare_table("log1pf_table").patterns, rare_table("logf_table").patterns);
    EXPECT_EQ(entry(rare_table("logf_table"), 62), entry(rare_table("logf_table"), 63));
}

// The routine for ln relies on more: the head of the significand, at most 11 bits, times c is exact after the
// subtraction of 1, and joins the exponent's sum without rounding.
TEST(FloatLogarithmTables, NaturalReductionIsExact) {
    const RawTable table = rare_table("logf_table");
    for (int step = 0; step <= 1024; ++step) {
        for (int index : {(step + 7) / 16, (step + 8) / 16}) {  // half way, either may be chosen
            const Row row = entry(table, index);
            const Real product = (1024 + Real(step)) / 1024 * f32(row[0]);
            ASSERT_LE(product.significant_bits(), 24) << step;
            for (int e : {-126, -125, -64, -1, 0, 1, 64, 126, 127}) {
                const Real sum = (product - 1) + (e * f32(0x3f317200) + f32(row[1]));
                ASSERT_LE(sum.significant_bits(), 24) << step << ' ' << e;
            }
        }
    }
}

}  // namespace
}  // namespace tuvo

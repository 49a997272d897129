// The double logarithms: their tables, and their kernels' descriptions where results are exact and where the
// processor's reciprocal decides between two entries of a table.
#include "explog/double_logarithm_tables.hpp"

#include <bit>

#include <gtest/gtest.h>

#include "frame/description/families.hpp"
#include "tests/accuracy.hpp"
#include "tests/oracle.hpp"

namespace tuvo {
namespace {

using Row = std::vector<std::uint64_t>;

Real real(std::uint64_t pattern) { return Real::from_pattern(Lane::f64, pattern); }

Row entry(const RawTable& table, int index) {
    const auto first = table.patterns.begin() + index * table.fields;
    return {first, first + table.fields};
}

void expect_rows(const RawTable& table, const std::vector<std::pair<int, Row>>& known) {
    for (const auto& [index, row] : known) EXPECT_EQ(entry(table, index), row) << "entry " << index;
}

// Kernel tables begin with R = 512.

TEST(DoubleLogarithmTables, KnownRowsOfKernels) {
    expect_rows(log_kernel_table(), {{513 - 512, {0xbf5ff802a9ab10e6}},
                                     {724 - 512, {0xbfd62c82f2b9c795}},
                                     {725 - 512, {0x3fd61965cdb02c1f}},
                                     {1023 - 512, {0x3f50020055655889}}});
    expect_rows(log2_kernel_table(), {{513 - 512, {0xbf670f83ff0a7565}},
                                      {724 - 512, {0xbfdffd799a83ff9b}},
                                      {725 - 512, {0x3fdfe1e649bb6335}},
                                      {1023 - 512, {0x3f57182a894b69c6}}});
    expect_rows(log10_kernel_table(), {{513 - 512, {0xbf4bc48a867884b7}},
                                       {724 - 512, {0xbfc3428e2540096d}},
                                       {725 - 512, {0x3fc331f403985097}},
                                       {1023 - 512, {0x3f3bcef518e29612}}});
    for (const RawTable& table : {log_kernel_table(), log2_kernel_table(), log10_kernel_table()}) {
        EXPECT_EQ(table.patterns.size(), 513u);
        expect_rows(table, {{0, {0}}, {512, {0}}});
    }
    expect_rows(log1p_kernel_table(), {{512 - 512, {0xc086232bdd7a8300, 0xbe1ce91eef3fb100}},
                                       {513 - 512, {0xc086232fdc7ad828, 0xbe1cefcffda73b6a}},
                                       {1024 - 512, {0xc08628b76e3a4180, 0xbe1cf05cd5eed880}}});
}

TEST(DoubleLogarithmTables, Log1pEntriesAddExactlyAndVanishOnBothSidesOfOne) {
    const RawTable table = log1p_kernel_table();
    const Real ln2_hi = real(0x3fe62e42fefa0000), ln2_lo = real(0x3d7cf79abc9e0000);
    for (int r = 512; r <= 1024; ++r) {
        SCOPED_TRACE(r);
        const Row row = entry(table, r - 512);
        const Real rule = log(Real(1024) / r) - 1023 * (ln2_hi + ln2_lo);
        EXPECT_LT(abs(real(row[0]) + real(row[1]) - rule), Real(1e-13));
        for (int field = 1; field <= 0x7f3; ++field)
            ASSERT_LE((field * ln2_hi + real(row[0])).significant_bits(), 53) << field;
        if (r == 512 || r == 1024) {
            const int field = r == 512 ? 1022 : 1023;
            EXPECT_TRUE((field * ln2_hi + real(row[0])).is_zero());
            EXPECT_TRUE((field * ln2_lo + real(row[1])).is_zero());
        }
    }
}

TEST(DoubleLogarithmTables, KnownRowsOfRoutines) {
    expect_rows(rare_table("log_table"), {{0, {0x3ff0000000000000, 0, 0}},
                                                {1, {0x3fef800000000000, 0x3f90205658a00000, 0xbd894f716c1b8bdf}},
                                                {64, {0x3fe0000000000000, 0x3fe62e42fefa3800, 0x3d2ef35793c76730}}});
    EXPECT_EQ(rare_table("log1p_table").patterns, rare_table("log_table").patterns);
    expect_rows(rare_table("log10_table"),
                {{0, {0x3fdbc00000000000, 0, 0}}, {64, {0x3fcbc00000000000, 0x3fd34413509f8000, 0xbd380433b83b532a}}});
    expect_rows(rare_table("log2_rcp"),
                {{0, {0x3f7f8000}}, {1, {0x3f7e8000}}, {2, {0x3f7d8000}}, {3, {0x3f7c8000}}});
    expect_rows(rare_table("log2_log"), {{0, {0x3e1485cbfb44c3b7, 0x3f671b0e00000000}},
                                               {128, {0x3e8721082175afbf, 0x3fe2c38f00000000}},
                                               {255, {0x3e99ac8bc0babe05, 0x3feff47600000000}}});
}

std::uint64_t bits_of(double x) { return std::bit_cast<std::uint64_t>(x); }

TEST(DoubleLogarithms, ExactResults) {
    const auto expect = [](const char* family, std::initializer_list<std::pair<double, double>> cases) {
        const Program program = record_family(*find_described(family));
        for (const auto& [x, result] : cases) {
            const std::uint64_t argument = bits_of(x);
            EXPECT_EQ(interpret(program, {&argument, 1}).outputs[0], bits_of(result)) << family << ' ' << x;
        }
    };
    for (const char* family : {"log", "log_native", "log10", "log10_native"}) expect(family, {{1, 0}});
    for (const char* family : {"log2", "log2_native"})
        expect(family, {{1, 0}, {2, 1}, {4, 2}, {0.5, -1}, {0x1p-1022, -1022}, {0x1p1023, 1023}});
    expect("log1p_native", {{0.0, 0.0}, {-0.0, 0.0}});
    expect("log1p", {{0.0, 0.0}, {-0.0, -0.0}});
    const std::initializer_list<double> tiny{4e-324, -4e-324, 0x1p-1022, 0x1.23456789abcdep-60, -0x1.fedcba9876543p-54};
    for (double x : tiny) expect("log1p", {{x, x}});
}

// Where an estimate decides between two neighbouring integers, each entry of a table is used at one of its ends, and
// the residual is as large as it gets. The lines hold there, on both sides of every decision, with every estimate.
TEST(DoubleLogarithms, BothSidesOfEveryDecision) {
    for (const char* name :
         {"log", "log_native", "log2", "log2_native", "log10", "log10_native", "log1p", "log1p_native"}) {
        SCOPED_TRACE(name);
        const DescribedFamily& described = *find_described(name);
        for (StandIn stand_in : {StandIn::exact, StandIn::low, StandIn::high}) {
            const ByDescription results(described, stand_in);
            const double off = stand_in == StandIn::low    ? 1 - estimate_bound
                               : stand_in == StandIn::high ? 1 + estimate_bound
                                                           : 1;
            for (int r = 512; r < 1024; ++r) {
                for (double scale : {1.0, 0.5}) {
                    for (double side : {-0x1p-22, 0x1p-22}) {
                        const double x = scale * 1024 / (r + 0.5) * off * (1 + side);
                        const std::uint64_t argument = bits_of(described.family->operation == "log1p" ? x - 1 : x);
                        const auto result = results({&argument, 1});
                        EXPECT_LE(error_of(*described.family, {&argument, 1}, result), described.accuracy.ulp)
                            << r << " with the stand-in " << name_of(stand_in);
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace tuvo

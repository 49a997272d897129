// The double exponentials: their tables, the rare routines called directly, and what the kernels do at the edges.
#include "explog/double_exponential_tables.hpp"

#include <algorithm>
#include <cstring>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "frame/description/rare.hpp"
#include "tests/call.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_call.hpp"
#include "tests/recorder.hpp"

extern "C" {
tuvo::RareStatus exp_rare(const double* x, double* r);
tuvo::RareStatus exp2_rare(const double* x, double* r);
tuvo::RareStatus exp10_rare(const double* x, double* r);
tuvo::RareStatus expm1_rare(const double* x, double* r);
}

namespace tuvo {
namespace {

using Row = std::vector<std::uint64_t>;

Row entry(const RawTable& table, int index) {
    const auto first = table.patterns.begin() + index * table.fields;
    return {first, first + table.fields};
}

Real value(std::uint64_t pattern) { return Real::from_pattern(Lane::f64, pattern); }

TEST(DoubleExponentialTables, KnownRows) {
    constexpr std::uint64_t one = 0x3ff0000000000000;
    const RawTable fine = powers_table(1024), coarse = powers_table(128);
    EXPECT_EQ(entry(fine, 0), Row{one});
    EXPECT_EQ(entry(fine, 1), Row{0x3ff002c605e2e8cf});
    EXPECT_EQ(entry(fine, 1023), Row{0x3ffffa74ea381efc});
    EXPECT_EQ(entry(coarse, 1), Row{0x3ff0163da9fb3335});
    EXPECT_EQ(entry(coarse, 127), Row{0x3fffd3c22b8f71f1});
    EXPECT_EQ(entry(expm1_kernel_table(), 0), (Row{0, 0}));
    EXPECT_EQ(entry(expm1_kernel_table(), 1), (Row{0x163da8000000, 0x3e3fb33356d84a67}));
    EXPECT_EQ(entry(expm1_kernel_table(), 127), (Row{0xfd3c228000000, 0x3e4c7b8f884badd2}));
    EXPECT_EQ(entry(expm1_native_kernel_table(), 1), Row{0x163da9fb3335});
}

// The kernel ors the exponent into hi, and takes 1 off: both without a rounding, as long as neither 1 nor the power of
// two is too small beside the other to be seen in full.
TEST(DoubleExponentialTables, HeadsLessOneAreExact) {
    const RawTable table = expm1_kernel_table();
    ASSERT_EQ(table.patterns.size(), 256u);
    for (int j = 0; j < 128; ++j) {
        const Row row = entry(table, j);
        ASSERT_EQ(row[0] >> 52, 0u) << j;
        for (int e = -26; e <= 52; ++e) {
            const Real scale = power_of_two(e), head = value(row[0] | std::uint64_t(e + 1023) << 52);
            ASSERT_LE((head - 1).significant_bits(), 53) << j << ' ' << e;
            const Real power = exp2(Real(j) / 128) * scale;
            ASSERT_LE(abs(head + value(row[1]) * scale - power), power_of_two(e - 79)) << j << ' ' << e;
        }
    }
}

using Routine = UnaryRoutine<double>;
using Outcome = RareOutcome<double>;

constexpr std::uint64_t infinity = 0x7ff0000000000000, quiet = 0x0008000000000000, sign = 0x8000000000000000;

Outcome call(Routine routine, double x) { return call(routine, bits(x)); }

constexpr auto ordinary = RareStatus::ordinary, overflow = RareStatus::overflow, underflow = RareStatus::underflow;

TEST(DoubleExponentialsRare, InfinitiesAndNan) {
    for (Routine routine : {exp_rare, exp2_rare, exp10_rare, expm1_rare}) {
        EXPECT_EQ(call(routine, f64(infinity)), (Outcome{infinity, ordinary, 0}));
        EXPECT_EQ(call(routine, f64(sign | infinity)), (Outcome{routine == expm1_rare ? bits(-1.0) : 0, ordinary, 0}));
        EXPECT_EQ(call(routine, f64(sign | infinity | quiet | 5)), (Outcome{sign | infinity | quiet | 5, ordinary, 0}));
        EXPECT_EQ(call(routine, f64(infinity | 5)), (Outcome{infinity | quiet | 5, ordinary, _MM_EXCEPT_INVALID}));
    }
}

TEST(DoubleExponentialsRare, EndsOfTheRange) {
    struct Case {
        Routine routine;
        std::uint64_t last;  ///< its result is in range
        std::uint64_t expected;
        RareStatus status;
    };
    // The next argument's result is beyond the range.
    const Case cases[] = {
        {exp_rare, 0x40862e42fefa39ef, 0x7fefffffffffff2a, ordinary},   {exp_rare, 0xc0874910d52d3051, 1, underflow},
        {exp2_rare, 0x408fffffffffffff, 0x7feffffffffffd3a, ordinary},  {exp2_rare, 0xc090cbffffffffff, 1, underflow},
        {exp10_rare, 0x40734413509f79fe, 0x7feffffffffffba1, ordinary}, {exp10_rare, 0xc07439b746e36b52, 1, underflow},
        {expm1_rare, 0x40862e42fefa39ef, 0x7fefffffffffff2a, ordinary},
    };
    for (const auto& [routine, last, expected, status] : cases) {
        const bool small = status == underflow;
        EXPECT_EQ(call(routine, f64(last)), (Outcome{expected, status, small ? _MM_EXCEPT_UNDERFLOW : 0u}));
        EXPECT_EQ(call(routine, f64(last + 1)), small ? (Outcome{0, underflow, _MM_EXCEPT_UNDERFLOW})
                                                      : (Outcome{infinity, overflow, _MM_EXCEPT_OVERFLOW}));
    }
    for (double x : {-708.0, -1000.0, -5e-324}) EXPECT_EQ(call(expm1_rare, x), (Outcome{bits(-1.0), ordinary, 0})) << x;
    for (double x : {0.0, -5e-324, 0x1.8p-54}) EXPECT_EQ(call(exp_rare, x), (Outcome{bits(1.0), ordinary, 0})) << x;
    for (int n = -1074; n < 1024; ++n)
        EXPECT_EQ(call(exp2_rare, n),
                  (Outcome{power_of_two(n).to_pattern(Lane::f64), n < -1022 ? underflow : ordinary, 0}));
}

double error(std::string_view operation, double x, std::uint64_t got) {
    const std::uint64_t argument = bits(x);
    return ulp_error(Lane::f64, got, oracle(operation, {&argument, 1}, Lane::f64).value());
}

struct Base {
    std::string_view operation;
    Routine routine;
    Real (*log)(const Real&);
    double smallest_normal, largest;  ///< arguments
    double normal_ulp;                ///< largest error of normal results
    int carried_bits;                 ///< of a subnormal sum before it is rounded, where 43 to 52 are kept
};

const Base bases[] = {{"exp", exp_rare, log, -708.3964185322641, 709.782712893384, 0.52, 58},
                      {"exp2", exp2_rare, log2, -1022, 1024, 0.53, 53},
                      {"exp10", exp10_rare, log10, -307.6526555685887, 308.2547155599167, 0.53, 58}};

TEST(DoubleExponentialsRare, AccuracyOfNormals) {
    RandomBits random(1);
    for (const Base& base : bases) {
        for (int k = 0; k < 20000; ++k) {
            const double position = double(random() >> 11) * 0x1p-53;
            const double end = k % 2 ? base.largest : base.smallest_normal;
            const double x = k % 4 < 2 ? end * position : end * (1 - position / 512);  // everywhere, and near the ends
            const Outcome got = call(base.routine, x);
            ASSERT_LE(error(base.operation, x, got.pattern), base.normal_ulp) << base.operation << ' ' << x;
            ASSERT_EQ(got, (Outcome{got.pattern, ordinary, 0})) << base.operation << ' ' << x;
            if (base.routine == exp_rare && x > 0) {
                ASSERT_EQ(call(expm1_rare, x), got) << x;
            }
        }
    }
}

// Arguments next to those whose exact power lies half way between two subnormals, for each number of bits that is left.
// A sum that was rounded before would be wrong by half a unit of its own last bit more, which is what bounds exp2.
TEST(DoubleExponentialsRare, SubnormalsAreRoundedOnce) {
    RandomBits random(2);
    for (const Base& base : bases) {
        for (int kept = 1; kept <= 52; ++kept) {
            const double carried = kept > 42 ? base.carried_bits : 53;
            const double bound = 0.5 + 1.05 * (power_of_two(kept - 1) / power_of_two(int(carried))).to_double();
            for (int k = 0; k < 300; ++k) {
                const std::uint64_t low = std::uint64_t{1} << (kept - 1);
                const Real half_way = (Real(double(low | (random() & (low - 1)))) + 0.5) * power_of_two(-1074);
                const double x = f64(base.log(half_way).to_pattern(Lane::f64) + random() % 3 - 1);
                const Outcome got = call(base.routine, x);
                ASSERT_LE(error(base.operation, x, got.pattern), bound) << base.operation << ' ' << kept << ' ' << x;
                ASSERT_EQ(got.status, underflow) << base.operation << ' ' << x;
                ASSERT_EQ(got.flags & ~unsigned{_MM_EXCEPT_UNDERFLOW}, 0u) << base.operation << ' ' << x;
            }
        }
    }
}

/// What a kernel of four lanes gives.
struct Called {
    Row results;
    unsigned flags;
    std::vector<int> rare;  ///< lanes that it hands to the rare routine, in that order
};

Called call(const char* family, const std::vector<double>& x) {
    const Family& found = *find_family(family);
    Row lanes;
    for (double lane : x) lanes.push_back(bits(lane));
    Called called;
    on_rare_call = [&](const RareCall& rare) {
        double argument;
        std::memcpy(&argument, rare.pointers[0], 8);
        called.rare.push_back(int(std::find(lanes.begin(), lanes.end(), bits(argument)) - lanes.begin()));
        return Clobber::whole;
    };
    call(find_recorded_kernel(found, 4), found, 4, {{lanes}});
    const CallResult result = call(find_kernel(found, 4), found, 4, {{lanes}});
    called.results = result.outputs[0];
    called.flags = result.exception_flags & all_but_inexact;
    return called;
}

TEST(DoubleExponentials, EndsAreRepairedWithoutTheRareRoutine) {
    for (const char* family : {"exp", "exp_native"}) {
        const Called two = call(family, {710, -746, 709.5, -720});
        EXPECT_EQ(two.rare, (std::vector{2, 3})) << family;
        EXPECT_EQ(Row(two.results.begin(), two.results.begin() + 2), (Row{infinity, 0})) << family;
        EXPECT_LT(error("exp", 709.5, two.results[2]), 0.52) << family;
        EXPECT_LT(error("exp", -720, two.results[3]), 0.51) << family;

        const Called none = call(family, {710, -746, 720, -5});
        EXPECT_EQ(none.rare, std::vector<int>{}) << family;
        EXPECT_EQ(none.flags, 0u) << family;
        EXPECT_EQ(call(family, {f64(infinity), f64(sign | infinity), f64(infinity | quiet), 1e300}).rare,
                  std::vector{2})
            << family;
    }
}

TEST(DoubleExponentials, VectorPathsEndShortOfTheirRange) {
    EXPECT_EQ(call("exp2", {1021, 1022, -1021, -1022}).rare, (std::vector{1, 3}));
    EXPECT_EQ(call("exp10_native", {307.65, 307.66, -307.66, f64(infinity | quiet)}).rare, (std::vector{1, 2, 3}));
    EXPECT_EQ(call("expm1", {707.7, 707.8, -707.7, f64(infinity | quiet)}).rare, (std::vector{1, 3}));
}

TEST(DoubleExponentials, ZeroAndTinyArguments) {
    const double tiny = 5e-324;
    for (const char* family : {"exp", "exp_native", "exp2", "exp10"})
        EXPECT_EQ(call(family, {0.0, -0.0, tiny, -tiny}).results, Row(4, bits(1.0))) << family;
    // Fits that spread their error miss 1.
    EXPECT_EQ(call("exp2_native", {0.0, -0.0, tiny, -tiny}).results, Row(4, 0x3ff0000000261500));
    EXPECT_EQ(call("exp10_native", {0.0, -0.0, tiny, -tiny}).results, Row(4, 0x3ff0000000261501));
    for (const char* family : {"expm1", "expm1_native"})
        EXPECT_EQ(call(family, {0.0, -0.0, 0x1p-60, -tiny}).results, (Row{0, sign, bits(0x1p-60), bits(-tiny)}))
            << family;
}

}  // namespace
}  // namespace tuvo

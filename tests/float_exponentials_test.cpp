// The float exponentials: their tables, the rare routines called directly, and what the kernels do at the edges.
#include "explog/exponential_tables.hpp"

#include <cmath>
#include <cstring>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "frame/description/rare.hpp"
#include "tests/call.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_call.hpp"
#include "tests/recorder.hpp"

extern "C" {
tuvo::RareStatus expf_rare(const float* x, float* r);
tuvo::RareStatus exp2f_rare(const float* x, float* r);
tuvo::RareStatus exp10f_rare(const float* x, float* r);
tuvo::RareStatus expm1f_rare(const float* x, float* r);

extern const std::uint64_t exp_table[64][2];
}

namespace tuvo {

namespace {

using Row = std::vector<std::uint64_t>;

Row entry(const RawTable& table, int index) {
    const auto first = table.patterns.begin() + index * table.fields;
    return {first, first + table.fields};
}

Real value(const RawTable& table, std::uint64_t pattern) { return Real::from_pattern(table.lane, pattern); }

TEST(ExponentialTables, KnownRows) {
    const RawTable decimal = exp10f_kernel_table(), less_one = expm1f_kernel_table();
    const RawTable less_one_native = expm1f_native_kernel_table(), rare = exp_rare_table();
    EXPECT_EQ(entry(decimal, 0), (Row{0x3f800000, 0}));
    EXPECT_EQ(entry(decimal, 1), (Row{0x3f80b1ed, 0x331fb333}));
    EXPECT_EQ(entry(decimal, 127), (Row{0x3ffe9e11, 0x3338f71f}));
    EXPECT_EQ(entry(less_one, 0), (Row{0, 0}));
    EXPECT_EQ(entry(less_one, 1), (Row{0x16000, 0x391a3e78}));
    EXPECT_EQ(entry(less_one, 32), (Row{0x350000, 0x391e667f}));
    EXPECT_EQ(entry(less_one_native, 0), Row{0});
    EXPECT_EQ(entry(less_one_native, 1), Row{0x2cd87});
    EXPECT_EQ(entry(less_one_native, 16), Row{0x3504f3});
    EXPECT_EQ(entry(rare, 0), (Row{0x3ff0000000000000, 0}));
    EXPECT_EQ(entry(rare, 1), (Row{0x3ff02c9a3e778061, 0xbc7160139cd8dc5d}));
    EXPECT_EQ(entry(rare, 63), (Row{0x3fffa7c1819e90d8, 0x3c77893b4d91cd9d}));
    EXPECT_EQ(Row(exp_table[0], exp_table[0] + 128), rare.patterns);
}

// The kernel ors the exponent into hi, and takes 1 off: both without a rounding, as long as neither 1 nor the power of
// two is too small beside the other to be seen in full.
TEST(ExponentialTables, HeadsLessOneAreExact) {
    const RawTable table = expm1f_kernel_table();
    ASSERT_EQ(table.patterns.size(), 128u);
    for (int j = 0; j < 64; ++j) {
        const Row row = entry(table, j);
        EXPECT_EQ(row[0] & 0xff8007ff, 0u) << j;
        for (int e = -12; e <= 23; ++e) {
            const Real head = value(table, row[0] | std::uint64_t(e + 127) << 23);
            const Real exact = exp2(Real(j) / 64) * power_of_two(e);
            ASSERT_LT(abs(head + value(table, row[1]) * power_of_two(e) - exact), power_of_two(e - 36)) << j;
            ASSERT_EQ((head - 1).to_float(), head - 1) << j << ' ' << e;
        }
    }
}

using Routine = UnaryRoutine<float>;
using Outcome = RareOutcome<float>;

constexpr std::uint32_t infinity = 0x7f800000, sign = 0x80000000, quiet = 0x00400000, minus_one = 0xbf800000;

TEST(FloatExponentialsRare, InfinitiesAndNan) {
    for (Routine routine : {expf_rare, exp2f_rare, exp10f_rare, expm1f_rare}) {
        EXPECT_EQ(call(routine, infinity), (Outcome{infinity, RareStatus::ordinary, 0}));
        const std::uint32_t lowest = routine == expm1f_rare ? minus_one : 0;
        EXPECT_EQ(call(routine, sign | infinity), (Outcome{lowest, RareStatus::ordinary, 0}));
        for (std::uint32_t nan : {infinity | quiet, sign | infinity | quiet | 5}) {
            EXPECT_EQ(call(routine, nan), (Outcome{nan, RareStatus::ordinary, 0}));
            EXPECT_EQ(call(routine, (nan & ~quiet) | 1).pattern, nan | 1);
        }
    }
}

TEST(FloatExponentialsRare, EndsOfTheRange) {
    constexpr auto ordinary = RareStatus::ordinary, overflow = RareStatus::overflow, underflow = RareStatus::underflow;
    constexpr unsigned OE = _MM_EXCEPT_OVERFLOW, UE = _MM_EXCEPT_UNDERFLOW;
    struct Case {
        Routine routine;
        std::uint32_t x;
        Outcome expected;
    };
    const Case cases[] = {
        {expf_rare, 0x42b17217, {0x7f7fff84, ordinary, 0}},  // the largest with a finite power
        {expf_rare, 0x42b17218, {infinity, overflow, OE}},
        {expf_rare, 0xc2cff1b4, {1, underflow, UE}},
        {expf_rare, 0xc2cff1b5, {0, underflow, UE}},
        {expf_rare, 0xc2aeac50, {0x007fffe6, underflow, UE}},
        {exp2f_rare, 0x42ffffff, {0x7f7fffa7, ordinary, 0}},
        {exp2f_rare, 0x43000000, {infinity, overflow, OE}},
        {exp2f_rare, 0xc2fc0000, {0x00800000, ordinary, 0}},
        {exp2f_rare, 0xc2fc0001, {0x007fffd4, underflow, UE}},
        {exp2f_rare, 0xc3150000, {1, underflow, 0}},  // 2^-149, exact
        {exp2f_rare, 0xc315ffff, {1, underflow, UE}},
        {exp2f_rare, 0xc3160000, {0, underflow, UE}},  // half way between 0 and the least subnormal
        {exp10f_rare, 0x421a209a, {0x7f7fffb3, ordinary, 0}},
        {exp10f_rare, 0x421a209b, {infinity, ordinary, OE}},  // by the conversion to float
        {exp10f_rare, 0x421a209c, {infinity, overflow, OE}},
        {exp10f_rare, 0xc217b818, {0x00800008, ordinary, 0}},
        {exp10f_rare, 0xc217b819, {0x007fffbe, underflow, UE}},
        {exp10f_rare, 0xc2349e35, {1, underflow, UE}},
        {exp10f_rare, 0xc2349e36, {0, underflow, 0}},
        {expm1f_rare, 0xc2c80000, {minus_one, ordinary, 0}},
        {expm1f_rare, 0x42b00000, {0x7ef882b7, ordinary, 0}},  // 88
        {expm1f_rare, 0x42b17218, {infinity, overflow, OE}},
    };
    for (const auto& [routine, x, expected] : cases) EXPECT_EQ(call(routine, x), expected) << std::hex << x;
}

// In double there are so many bits to spare that all results are those nearest to the exact ones, but for cases that
// are almost half way. A second rounding, at the place of a subnormal, would be seen in all binades below the normal
// ones.
TEST(FloatExponentialsRare, SubnormalsAndOthersAreRoundedOnce) {
    struct Range {
        const char* operation;
        Routine routine;
        std::uint32_t first, last;  ///< negative, with subnormal results
        std::uint32_t largest;
    };
    const Range ranges[] = {{"exp", expf_rare, 0xc2aeac50, 0xc2cff1b4, 0x42b17217},
                            {"exp2", exp2f_rare, 0xc2fc0001, 0xc315ffff, 0x42ffffff},
                            {"exp10", exp10f_rare, 0xc217b819, 0xc2349e35, 0x421a209a}};
    for (const auto& [operation, routine, first, last, largest] : ranges) {
        SCOPED_TRACE(operation);
        FloatErrorScan scan(operation);
        for (std::uint32_t x = first; x <= last; ++x) {
            const Outcome got = call(routine, x);
            ASSERT_EQ(got.status, RareStatus::underflow) << std::hex << x;
            scan.add(x, got.pattern);
        }
        const std::uint32_t thresholds[] = {0x25800000};  // 2^-52
        for (std::uint32_t x : stratified_floats(1, thresholds)) {
            if (x > (x & sign ? first - 1 : largest)) continue;
            const Outcome got = call(routine, x);
            ASSERT_EQ(got, (Outcome{got.pattern, RareStatus::ordinary, 0})) << std::hex << x;
            scan.add(x, got.pattern);
        }
        EXPECT_LE(scan.max_error(), 0.500001) << "at " << std::hex << scan.worst_input();
    }
    for (std::uint32_t x = 0x42ad0000; x <= 0x42b17217; ++x)
        ASSERT_EQ(call(expm1f_rare, x), call(expf_rare, x)) << std::hex << x;
}

/// A call whose rare routine is only watched.
struct Watched {
    std::vector<std::uint64_t> results;
    unsigned flags;
    std::vector<float> handed_over;  ///< arguments that went to the rare routine
};

Watched watch(const char* family_name, int width, std::vector<float> lanes) {
    const Family& family = *find_family(family_name);
    lanes.resize(std::size_t(width), 1.0f);
    std::vector<std::vector<std::uint64_t>> arguments(1);
    for (float lane : lanes) arguments[0].push_back(bits(lane));
    Watched watched;
    on_rare_call = [&](const RareCall& call) {
        watched.handed_over.emplace_back();
        std::memcpy(&watched.handed_over.back(), call.pointers[0], sizeof(float));
        return Clobber::whole;
    };
    const CallResult result = call(find_recorded_kernel(family, width), family, width, arguments);
    EXPECT_EQ(result.violations, std::vector<std::string>{});
    watched.results = result.outputs[0];
    watched.flags = result.exception_flags & all_but_inexact;
    return watched;
}

TEST(FloatExponentials, RepairedLanesNeedNoRareRoutineAndRaiseNothing) {
    for (const char* family : {"expf", "expf_rm", "expf_native", "expf_half"})
        for (int width : {4, 8, 16}) {
            SCOPED_TRACE(std::string(family) + " at width " + std::to_string(width));
            const Watched repaired = watch(family, width, {89.0f, -104.0f, 1e6f, -1000.0f});
            EXPECT_EQ(Row(repaired.results.begin(), repaired.results.begin() + 4), (Row{infinity, 0, infinity, 0}));
            EXPECT_EQ(repaired.handed_over, std::vector<float>{});
            EXPECT_EQ(repaired.flags, 0u);

            const Watched subnormal = watch(family, width, {0.5f, -90.0f, 1.0f, INFINITY});
            EXPECT_EQ(subnormal.handed_over, std::vector<float>{-90.0f});
            EXPECT_EQ(subnormal.results[3], infinity);

            const Watched with_nan = watch(family, width, {-1000.0f, NAN});
            EXPECT_EQ(with_nan.results[0], 0u);
            ASSERT_EQ(with_nan.handed_over.size(), 1u);
            EXPECT_TRUE(std::isnan(with_nan.handed_over[0]));
        }
}

TEST(FloatExponentials, LimitsBelongToTheVectorPath) {
    const std::pair<const char*, std::uint32_t> limits[] = {
        {"expf", 0x42aeac4f},          {"expf_rm", 0x42aeac4f},      {"expf_native", 0x42aeac4f},
        {"exp2f", 0x42fc0000},         {"exp2f_native", 0x42fc0000}, {"exp10f", 0x4217b818},
        {"exp10f_native", 0x4217b818}, {"expm1f", 0x42ad496b},       {"expm1f_native", 0x42ad496b}};
    for (const auto& [family, limit] : limits)
        for (float direction : {1.0f, -1.0f}) {
            const float inside = direction * f32(limit), outside = direction * f32(limit + 1);
            EXPECT_EQ(watch(family, 4, {inside, outside}).handed_over, std::vector<float>{outside}) << family;
        }
}

TEST(FloatExponentials, ResultsAtZero) {
    const std::uint32_t one = bits(1.0f), tiny = 0x80000001;
    for (const char* family : {"expf", "expf_rm", "expf_native", "expf_half", "exp2f", "exp2f_rm", "exp10f"})
        EXPECT_EQ(watch(family, 4, {0.0f, -0.0f, f32(tiny), -0x1p-80f}).results, (Row{one, one, one, one})) << family;
    // The error of their polynomial is spread over the interval, and zero has its share.
    for (const char* family : {"exp2f_native", "exp2f_half", "exp10f_native", "exp10f_half", "exp10f_rm"})
        EXPECT_EQ(watch(family, 4, {0.0f, 0.0f, -0.0f, -0.0f}).results, Row(4, 0x3f7ffb49)) << family;
    for (const char* family : {"expm1f", "expm1f_native"})
        EXPECT_EQ(watch(family, 4, {0.0f, -0.0f, f32(tiny), 0x1p-80f}).results, (Row{0, sign, tiny, bits(0x1p-80f)}))
            << family;
}

}  // namespace
}  // namespace tuvo

// The rare routines of the float logarithms, called directly: value, status and exception flags of the special cases,
// and the accuracy of the others.
#include "tests/rare_call.hpp"

#include <cmath>
#include <optional>
#include <span>
#include <string_view>

#include <gtest/gtest.h>

#include "frame/description/tables.hpp"
#include "tests/oracle.hpp"

extern "C" {
tuvo::RareStatus logf_rare(const float* x, float* r);
tuvo::RareStatus log1pf_rare(const float* x, float* r);
tuvo::RareStatus log2f_rare(const float* x, float* r);
tuvo::RareStatus log10f_rare(const float* x, float* r);

extern const std::uint32_t logf_table[65][3];
extern const std::uint32_t log1pf_table[65][3];
extern const std::uint32_t log2f_table[65][3];
extern const std::uint32_t log10f_table[65][3];
}

namespace tuvo {

namespace {

using Outcome = RareOutcome<float>;

constexpr std::uint32_t sign = 0x80000000;
constexpr std::uint32_t infinity = 0x7f800000;
constexpr std::uint32_t quiet = 0x00400000;
constexpr std::uint32_t one = 0x3f800000;
constexpr std::uint32_t smallest_normal = 0x00800000;

struct Logarithm {
    std::string_view name;
    std::string_view operation;
    UnaryRoutine<float> routine;
};

constexpr Logarithm logarithms_of_x[] = {
    {"logf_rare", "log", logf_rare}, {"log2f_rare", "log2", log2f_rare}, {"log10f_rare", "log10", log10f_rare}};

std::vector<std::uint32_t> inputs() {
    // Both ends of the near-one branches, and of the routines' table cells at the edge of a binade.
    const std::uint32_t thresholds[] = {bits(1 - 0.009765625f), bits(1 + 0.009765625f), bits(1 - 0.005859375f),
                                        bits(1 + 0.005859375f), bits(2 - 0x1p-7f),      bits(1 + 0x1p-7f)};
    return stratified_floats(1, thresholds);
}

TEST(FloatLogarithmsRare, LinkedTablesAreTheComputedOnes) {
    const std::pair<const char*, const std::uint32_t(*)[3]> linked[] = {{"logf_table", logf_table},
                                                                        {"log1pf_table", log1pf_table},
                                                                        {"log2f_table", log2f_table},
                                                                        {"log10f_table", log10f_table}};
    for (const auto& [symbol, data] : linked) {
        const RawTable& table = rare_tables().at(symbol);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 64, 0u) << symbol;
        EXPECT_EQ(std::vector<std::uint64_t>(data[0], data[0] + 65 * 3), table.patterns) << symbol;
    }
}

TEST(FloatLogarithmsRare, ZerosArePoles) {
    for (const Logarithm& log : logarithms_of_x) {
        SCOPED_TRACE(log.name);
        expect_pole(log.routine, 0);
        expect_pole(log.routine, sign);
    }
    expect_pole(log1pf_rare, sign | one);
}

TEST(FloatLogarithmsRare, NegativesAreDomainErrors) {
    for (std::uint32_t x : inputs()) {
        if (x <= sign || x > (sign | infinity)) continue;
        for (const Logarithm& log : logarithms_of_x) {
            SCOPED_TRACE(log.name);
            expect_domain_error(log.routine, x);
        }
        if (x > (sign | one)) expect_domain_error(log1pf_rare, x);
    }
}

TEST(FloatLogarithmsRare, InfinityAndNanPassThrough) {
    RandomBits random(2);
    for (UnaryRoutine<float> routine : {logf_rare, log2f_rare, log10f_rare, log1pf_rare}) {
        expect_ordinary(routine, infinity, infinity);
        for (int i = 0; i < 64; ++i) {
            const std::uint32_t nan = static_cast<std::uint32_t>(random()) | infinity | quiet;
            expect_ordinary(routine, nan, nan);
            const Outcome signalling = call(routine, (nan & ~quiet) | 1);
            EXPECT_EQ(signalling.pattern, nan | 1);
            EXPECT_EQ(signalling.status, RareStatus::ordinary);
        }
    }
}

TEST(FloatLogarithmsRare, ExactResults) {
    for (UnaryRoutine<float> routine : {logf_rare, log2f_rare, log10f_rare}) expect_ordinary(routine, one, 0);
    expect_ordinary(log1pf_rare, 0, 0);
    for (int e = -149; e <= 127; ++e)
        expect_ordinary(log2f_rare, bits(std::ldexp(1.0f, e)), bits(static_cast<float>(e)));
}

double error_in_ulp(std::string_view operation, std::uint32_t x, std::uint32_t got) {
    const std::uint64_t argument = x;
    return ulp_error(Lane::f32, got, oracle(operation, {&argument, 1}, Lane::f32).value());
}

// The bounds are the measured maxima that stand beside the routines, rounded up.

TEST(FloatLogarithmsRare, AccuracyOfSubnormals) {
    const double bounds[] = {1.034, 0.55, 0.545};
    for (std::size_t i = 0; i < std::size(bounds); ++i) {
        const auto& [name, operation, routine] = logarithms_of_x[i];
        SCOPED_TRACE(name);
        RandomBits random(3);
        std::vector<std::uint32_t> subnormals{1, 2, 3, 0x3b60, 0x36c4b2, 0x4d92ef, smallest_normal - 1};
        for (int n = 0; n < 5000; ++n)
            subnormals.push_back(1 + static_cast<std::uint32_t>(random()) % ((smallest_normal - 1) >> n % 23));
        for (std::uint32_t x : subnormals) {
            const Outcome got = call(routine, x);
            EXPECT_LE(error_in_ulp(operation, x, got.pattern), bounds[i]) << std::hex << x;
            EXPECT_EQ(got.status, RareStatus::ordinary) << std::hex << x;
            EXPECT_EQ(got.flags, 0u) << std::hex << x;
        }
    }
}

TEST(FloatLogarithmsRare, AccuracyOfNormals) {
    // Near one, the routines for log2 and log10 keep an absolute error only.
    struct Bound {
        double ulp;
        std::optional<double> absolute_near_one;
    };
    const Bound bounds[] = {{0.5208, {}}, {3.52, 4.2e-7}, {5.77, 1.77e-7}};
    for (std::size_t i = 0; i < std::size(bounds); ++i) {
        const auto& [name, operation, routine] = logarithms_of_x[i];
        SCOPED_TRACE(name);
        for (std::uint32_t x : inputs()) {
            if (x < smallest_normal || x >= infinity) continue;
            const Outcome got = call(routine, x);
            EXPECT_EQ(got.status, RareStatus::ordinary) << std::hex << x;
            EXPECT_EQ(got.flags, 0u) << std::hex << x;
            if (bounds[i].absolute_near_one && x >= bits(0.5f) && x <= bits(2.0f)) {
                const std::uint64_t argument = x;
                const Real exact = oracle(operation, {&argument, 1}, Lane::f32).value();
                EXPECT_LE(abs(Real(f32(got.pattern)) - exact), Real(*bounds[i].absolute_near_one)) << std::hex << x;
            } else {
                EXPECT_LE(error_in_ulp(operation, x, got.pattern), bounds[i].ulp) << std::hex << x;
            }
        }
    }
}

TEST(FloatLogarithmsRare, Log1pIsTheLogarithmOfTheRoundedSum) {
    for (std::uint32_t x : inputs()) {
        if (!(f32(x) > -1.0f) || x == infinity) continue;
        const Outcome got = call(log1pf_rare, x);
        EXPECT_EQ(got.pattern, call(logf_rare, bits(1.0f + f32(x))).pattern) << std::hex << x;
        EXPECT_EQ(got.status, RareStatus::ordinary) << std::hex << x;
        EXPECT_EQ(got.flags, 0u) << std::hex << x;
        if (f32(x) >= 0x1p24f) {
            EXPECT_LE(error_in_ulp("log1p", x, got.pattern), 0.5312) << std::hex << x;
        }
    }
}

}  // namespace
}  // namespace tuvo

// The rare routines of the double logarithms, called directly: value, status and exception flags of the special cases,
// and the accuracy of the others.
#include "tests/rare_call.hpp"

#include <cmath>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/oracle.hpp"

extern "C" {
tuvo::RareStatus log_rare(const double* x, double* r);
tuvo::RareStatus log1p_rare(const double* x, double* r);
tuvo::RareStatus log2_rare(const double* x, double* r);
tuvo::RareStatus log10_rare(const double* x, double* r);
}

namespace tuvo {
namespace {

constexpr std::uint64_t sign = 0x8000000000000000;
constexpr std::uint64_t infinity = 0x7ff0000000000000;
constexpr std::uint64_t quiet = 0x0008000000000000;
constexpr std::uint64_t one = 0x3ff0000000000000;
constexpr std::uint64_t smallest_normal = 0x0010000000000000;

struct Logarithm {
    std::string_view operation;
    UnaryRoutine<double> routine;
    double ulp;       ///< largest error: this, and
    double absolute;  ///< this
};
// The measured maxima that stand beside the routines, rounded up.
constexpr Logarithm logarithms_of_x[] = {
    {"log", log_rare, 0.7501, 0}, {"log2", log2_rare, 0.501, 2.5e-21}, {"log10", log10_rare, 1.001, 0}};

TEST(DoubleLogarithmsRare, PolesDomainErrorsInfinityAndNan) {
    RandomBits random(2);
    for (UnaryRoutine<double> routine : {log_rare, log2_rare, log10_rare, log1p_rare}) {
        const bool is_log1p = routine == log1p_rare;
        SCOPED_TRACE(is_log1p);
        if (is_log1p) {
            expect_pole(routine, sign | one);
        } else {
            for (std::uint64_t zero : {std::uint64_t{0}, sign}) expect_pole(routine, zero);
            for (std::uint64_t x : {std::uint64_t{1}, smallest_normal - 1, smallest_normal, one})
                expect_domain_error(routine, sign | x);
        }
        for (std::uint64_t x : {one + 1, infinity - 1, infinity}) expect_domain_error(routine, sign | x);
        expect_ordinary(routine, infinity, infinity);
        for (int i = 0; i < 64; ++i) {
            const std::uint64_t nan = random() | infinity | quiet;
            expect_ordinary(routine, nan, nan);
            const RareOutcome<double> signalling = call(routine, (nan & ~quiet) | 1);
            EXPECT_EQ(signalling.pattern, nan | 1);
            EXPECT_EQ(signalling.status, RareStatus::ordinary);
        }
    }
}

TEST(DoubleLogarithmsRare, ExactResults) {
    for (UnaryRoutine<double> routine : {log_rare, log10_rare}) expect_ordinary(routine, one, 0);
    for (int e = -1074; e < -1022; ++e)
        expect_ordinary(log2_rare, bits(std::ldexp(1.0, e)), bits(static_cast<double>(e)));
}

TEST(DoubleLogarithmsRare, Accuracy) {
    const std::vector<std::uint64_t> inputs = stratified_patterns(Lane::f64, 1, {}, 4);
    for (const auto& [operation, routine, ulp, absolute] : logarithms_of_x) {
        SCOPED_TRACE(operation);
        RandomBits random(3);
        std::vector<std::uint64_t> positive{1, 2, 3, smallest_normal - 1};
        for (int n = 0; n < 2000; ++n) positive.push_back(1 + random() % ((smallest_normal - 1) >> n % 52));
        for (std::uint64_t x : inputs)
            if (x > 0 && x < infinity) positive.push_back(x);
        for (std::uint64_t x : positive) {
            const RareOutcome<double> got = call(routine, x);
            const Real exact = oracle(operation, {&x, 1}, Lane::f64).value();
            const Real unit = power_of_two((exact.is_zero() ? -1022 : exact.exponent()) - 52);
            const Real bound = x < smallest_normal ? 0.5001 * unit : ulp * unit + absolute;
            EXPECT_LE(abs(Real(f64(got.pattern)) - exact), bound) << std::hex << x;
            EXPECT_EQ(got.status, RareStatus::ordinary) << std::hex << x;
            EXPECT_EQ(got.flags, 0u) << std::hex << x;
        }
    }
    for (std::uint64_t x : inputs)  // log1p is the logarithm of the rounded sum
        if (f64(x) > -1 && x != infinity) expect_ordinary(log1p_rare, x, call(log_rare, bits(1 + f64(x))).pattern);
}

}  // namespace
}  // namespace tuvo

// The rare routines of the logarithms, called directly: value, status and exception flags of the special cases, and the
// accuracy of the others.
#include <cmath>
#include <string_view>

#include <gtest/gtest.h>

#include "frame/description/tables.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_call.hpp"

extern "C" {
tuvo::RareStatus logf_rare(const float* x, float* r);
tuvo::RareStatus log1pf_rare(const float* x, float* r);
tuvo::RareStatus log2f_rare(const float* x, float* r);
tuvo::RareStatus log10f_rare(const float* x, float* r);
tuvo::RareStatus log_rare(const double* x, double* r);
tuvo::RareStatus log1p_rare(const double* x, double* r);
tuvo::RareStatus log2_rare(const double* x, double* r);
tuvo::RareStatus log10_rare(const double* x, double* r);

extern const std::uint32_t logf_table[65][3];
extern const std::uint32_t log1pf_table[65][3];
extern const std::uint32_t log2f_table[65][3];
extern const std::uint32_t log10f_table[65][3];
}

namespace tuvo {
namespace {

template <class T>
struct Logarithm {
    std::string_view operation;
    UnaryRoutine<T> routine;
    double subnormal;  ///< largest error for subnormal arguments, in ulp
    double ulp;        ///< for all others
    double absolute;   ///< or this between 1/2 and 2
};

/// The routines of one type. The bounds are the measured maxima that stand beside them, rounded up.
template <class T>
struct Routines;
template <>
struct Routines<float> {
    static constexpr Lane lane = Lane::f32;
    static constexpr Logarithm<float> of_x[] = {{"log", logf_rare, 1.034, 0.5208, 0},
                                                {"log2", log2f_rare, 0.55, 3.52, 4.2e-7},
                                                {"log10", log10f_rare, 0.545, 5.77, 1.77e-7}};
    static constexpr UnaryRoutine<float> log1p = log1pf_rare;
    static constexpr std::uint32_t infinity = 0x7f800000, quiet = 0x00400000, smallest_normal = 0x00800000;
    /// Both ends of the near-one branches, and of the routines' table cells at the edge of a binade.
    static std::vector<std::uint64_t> inputs() {
        return stratified_patterns(lane, 1,
                                   {{bits(1 - 0.009765625f), bits(1 + 0.009765625f), bits(1 - 0.005859375f),
                                     bits(1 + 0.005859375f), bits(2 - 0x1p-7f), bits(1 + 0x1p-7f)}});
    }
    static constexpr std::uint32_t telling_subnormals[] = {1, 2, 3, 0x3b60, 0x36c4b2, 0x4d92ef, smallest_normal - 1};
};
template <>
struct Routines<double> {
    static constexpr Lane lane = Lane::f64;
    static constexpr Logarithm<double> of_x[] = {{"log", log_rare, 0.5001, 0.7501, 0},
                                                 {"log2", log2_rare, 0.5001, 0.501, 2.5e-21},
                                                 {"log10", log10_rare, 0.5001, 1.001, 0}};
    static constexpr UnaryRoutine<double> log1p = log1p_rare;
    static constexpr std::uint64_t infinity = 0x7ff0000000000000, quiet = 0x0008000000000000,
                                   smallest_normal = 0x0010000000000000;
    static std::vector<std::uint64_t> inputs() { return stratified_patterns(lane, 1, {}, 4); }
    static constexpr std::uint64_t telling_subnormals[] = {1, 2, 3, smallest_normal - 1};
};

template <class T>
class LogarithmsRare : public testing::Test {
protected:
    using R = Routines<T>;
    using Pattern = PatternOf<T>;
    static constexpr Pattern sign = Pattern{1} << (8 * sizeof(T) - 1);
    const Pattern one = bits(T(1));
};
using BothTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(LogarithmsRare, BothTypes);

TYPED_TEST(LogarithmsRare, PolesDomainErrorsInfinityAndNan) {
    using R = Routines<TypeParam>;
    const auto [sign, one] = std::pair(this->sign, this->one);
    std::vector<std::pair<UnaryRoutine<TypeParam>, bool>> routines{{R::log1p, true}};
    for (const auto& log : R::of_x) routines.emplace_back(log.routine, false);
    RandomBits random(2);
    for (const auto& [routine, is_log1p] : routines) {
        SCOPED_TRACE(is_log1p ? "log1p" : "a logarithm of x");
        for (PatternOf<TypeParam> x : {is_log1p ? sign | one : 0, is_log1p ? sign | one : sign})
            expect_pole(routine, x);
        for (std::uint64_t x : R::inputs())
            if (x > (is_log1p ? sign | one : sign) && x <= (sign | R::infinity)) expect_domain_error(routine, x);
        expect_ordinary(routine, R::infinity, R::infinity);
        for (int i = 0; i < 64; ++i) {
            const auto nan = static_cast<PatternOf<TypeParam>>(random() | R::infinity | R::quiet);
            expect_ordinary(routine, nan, nan);
            const RareOutcome<TypeParam> signalling = call(routine, (nan & ~R::quiet) | 1);
            EXPECT_EQ(signalling.pattern, nan | 1);
            EXPECT_EQ(signalling.status, RareStatus::ordinary);
        }
    }
}

TYPED_TEST(LogarithmsRare, ExactResults) {
    using R = Routines<TypeParam>;
    for (const auto& log : R::of_x)
        if (R::lane == Lane::f32 || log.operation != "log2") expect_ordinary(log.routine, this->one, 0);
    if (R::lane == Lane::f32) expect_ordinary(R::log1p, 0, 0);
    for (int e = R::lane == Lane::f32 ? -149 : -1074; e < (R::lane == Lane::f32 ? 128 : -1022); ++e)
        expect_ordinary(R::of_x[1].routine, bits(std::ldexp(TypeParam(1), e)), bits(static_cast<TypeParam>(e)));
}

TYPED_TEST(LogarithmsRare, Accuracy) {
    using R = Routines<TypeParam>;
    std::vector<std::uint64_t> positive(std::begin(R::telling_subnormals), std::end(R::telling_subnormals));
    const int fraction_bits = R::lane == Lane::f32 ? 23 : 52, least_exponent = R::lane == Lane::f32 ? -126 : -1022;
    RandomBits random(3);
    for (int n = 0; n < 4000; ++n) positive.push_back(1 + random() % ((R::smallest_normal - 1) >> n % fraction_bits));
    for (std::uint64_t x : R::inputs())
        if (x > 0 && x < R::infinity) positive.push_back(x);
    for (const auto& log : R::of_x) {
        SCOPED_TRACE(log.operation);
        for (std::uint64_t x : positive) {
            const RareOutcome<TypeParam> got = call(log.routine, x);
            const Real exact = oracle(log.operation, {&x, 1}, R::lane).value();
            const Real unit = power_of_two((exact.is_zero() ? least_exponent : exact.exponent()) - fraction_bits);
            const bool near_one = x >= bits(TypeParam(0.5)) && x <= bits(TypeParam(2));
            const Real bound = (x < R::smallest_normal ? log.subnormal : log.ulp) * unit;
            EXPECT_LE(abs(Real(std::bit_cast<TypeParam>(got.pattern)) - exact),
                      near_one ? std::max(bound, Real(log.absolute)) : bound)
                << std::hex << x;
            EXPECT_EQ(got.status, RareStatus::ordinary) << std::hex << x;
            EXPECT_EQ(got.flags, 0u) << std::hex << x;
        }
    }
    for (std::uint64_t pattern : R::inputs()) {  // log1p is the logarithm of the rounded sum
        const auto x = std::bit_cast<TypeParam>(static_cast<PatternOf<TypeParam>>(pattern));
        if (x > -1 && pattern != R::infinity)
            expect_ordinary(R::log1p, pattern, call(R::of_x[0].routine, bits(1 + x)).pattern);
    }
}

TEST(FloatLogarithmsRare, LinkedTablesAreTheComputedOnes) {
    const std::pair<const char*, const std::uint32_t(*)[3]> linked[] = {{"logf_table", logf_table},
                                                                        {"log1pf_table", log1pf_table},
                                                                        {"log2f_table", log2f_table},
                                                                        {"log10f_table", log10f_table}};
    for (const auto& [symbol, data] : linked) {
        const RawTable table = rare_table(symbol);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 64, 0u) << symbol;
        EXPECT_EQ(std::vector<std::uint64_t>(data[0], data[0] + 65 * 3), table.patterns) << symbol;
    }
}

}  // namespace
}  // namespace tuvo

// Log-gamma and gamma: what the fits claim, special values and signs, the x87 unit as callers find it, and errors where
// they are hardest to keep.
#include <bit>
#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "special/gamma_fits.hpp"
#include "special/gamma_tables.hpp"
#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

std::uint64_t pattern(double x, Lane lane) {
    return lane == Lane::f32 ? std::bit_cast<std::uint32_t>(static_cast<float>(x)) : std::bit_cast<std::uint64_t>(x);
}
double value(std::uint64_t pattern, Lane lane) {
    return lane == Lane::f32 ? std::bit_cast<float>(static_cast<std::uint32_t>(pattern)) : std::bit_cast<double>(pattern);
}
/// The family of the operation in that type.
const Family& family_of(const std::string& operation, Lane lane) {
    return *find_family(operation + (lane == Lane::f32 ? "f" : ""));
}

// Fits.

Real error_of_fit(const FitTarget& target, const Fit& fit, const Real& t) {
    const Real exact = target.value(t), error = abs(fit_value(target.shape, fit.coefficients, t) - exact);
    return target.error == FitTarget::Error::absolute ? error : error / abs(exact);
}

TEST(GammaFits, AreAsCloseAsTheyClaim) {
    for (const FitTarget& target : gamma_fit_targets()) {
        const Fit& fit = gamma_fit(target.name);
        ASSERT_EQ(fit.coefficients.size(), static_cast<std::size_t>(target.coefficients)) << fit.name;
        Real largest;
        const int points = 4 * target.coefficients;
        for (int k = 0; k <= points; ++k) {
            const double s = -std::cos(M_PI * k / points);
            const Real t = (target.low + target.high) / 2 + (target.high - target.low) / 2 * s;
            const Real error = error_of_fit(target, fit, t);
            if (error > largest) largest = error;
        }
        EXPECT_LE(largest, 1.01 * fit.error) << fit.name;
        EXPECT_GE(largest, 0.4 * fit.error) << fit.name;
        if (target.fixed) {
            EXPECT_EQ(fit.coefficients[target.fixed->first], static_cast<long double>(target.fixed->second)) << fit.name;
        }
    }
}

// Cells: the series of each meets the function, with what its first coefficients lack, and what its routine relies on.
TEST(GammaCells, AreSeriesOfTheFunction) {
    const RawTable log_gamma = lgamma_cells(), gamma = tgamma_cells();
    const auto check = [](const RawTable& table, std::size_t row, const Real& low, const Real& high, int limit,
                          const auto& function) {
        std::vector<Real> c;
        for (std::size_t k = 0; k < 16; ++k) c.push_back(Real::from_pattern(Lane::f64, table.patterns.at(16 * row + k)));
        EXPECT_LE(c[3].significant_bits(), 6) << row;
        for (int k = 0; k <= 8; ++k) {
            const Real v = low + (high - low) * k / 8, t = v - c[0], exact = function(v);
            Real sum;
            for (std::size_t n = 15; n >= 5; --n) sum = (sum + c[n]) * t;
            sum = c[1] + c[2] + t * (c[3] + c[4] + sum);
            EXPECT_LE(abs(sum - exact), power_of_two(limit) * abs(exact)) << row << ' ' << v.to_double();
        }
    };
    std::size_t row = 0;
    for (double low = 0.875; low < 8192; ++row) {
        const double high = low + (low < 1 ? 1 / 128.0 : std::ldexp(1.0, std::ilogb(low) - (low < 4 ? 6 : 4)));
        const bool beside_zero = low > 0.98 && low < 2.1;  // where the third term is a larger part of the sum
        check(log_gamma, row, low, high, beside_zero ? -59 : -62, [](const Real& v) { return lgamma(v); });
        low = high;
    }
    EXPECT_EQ(log_gamma.patterns.size(), 16 * row);
    row = 0;
    for (int base = 1; base <= 176; base += base < 16 ? 1 : 16)
        for (int cell = 0; cell < 16; ++cell, ++row)
            check(gamma, row, cell / 16.0, (cell + 1) / 16.0, base < 16 ? -61 : -59,
                  [&](const Real& u) { return tgamma(base + u) * power_of_two(base == 176 ? -120 : 0); });
    EXPECT_EQ(gamma.patterns.size(), 16 * row);
}

// Special values.

constexpr double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
constexpr unsigned none = 0, by_zero = _MM_EXCEPT_DIV_ZERO, invalid = _MM_EXCEPT_INVALID;
constexpr unsigned over = _MM_EXCEPT_OVERFLOW, under = _MM_EXCEPT_UNDERFLOW;

struct Special {
    double x, result;
    int status;
    unsigned flags;
    int sign;  ///< of lgammar
};

void expect_special(const std::string& operation, Lane lane, const std::vector<Special>& cases) {
    for (const Special& special : cases) {
        SCOPED_TRACE(operation + ' ' + std::to_string(special.x) + (lane == Lane::f32 ? " float" : " double"));
        const Family& family = family_of(operation, lane);
        const std::uint64_t x = pattern(special.x, lane);
        const RareResult got = call_rare(family, {x});
        const double result = value(got.pattern, lane);
        if (std::isnan(special.result))
            EXPECT_TRUE(std::isnan(result)) << result;
        else
            EXPECT_EQ(got.pattern, pattern(special.result, lane)) << result;
        EXPECT_EQ(got.status, special.status);
        EXPECT_EQ(got.flags, special.flags);
        if (operation != "lgamma") continue;
        const Family& with_sign = family_of("lgammar", lane);
        std::uint64_t again = 0;
        std::int32_t sign = 0;
        EXPECT_EQ(find_rare_routine(with_sign)(&x, &again, &sign, nullptr), special.status);
        EXPECT_EQ(again, got.pattern);
        EXPECT_EQ(sign, special.sign);
    }
}

TEST(Gamma, SpecialValuesOfLogGamma) {
    for (Lane lane : {Lane::f32, Lane::f64}) {
        expect_special("lgamma", lane,
                       {{1, 0.0, 0, none, 1},
                        {2, 0.0, 0, none, 1},
                        {0.0, inf, 2, by_zero, 1},
                        {-0.0, inf, 2, by_zero, -1},
                        {-1, inf, 2, by_zero, 1},
                        {-3, inf, 2, by_zero, 1},
                        {-4, inf, 2, by_zero, 1},
                        {-4194305, inf, 2, by_zero, 1},
                        {-8388609, inf, 2, by_zero, 1},
                        {-1e30, inf, 2, by_zero, 1},
                        {inf, inf, 0, none, 1},
                        {-inf, inf, 0, none, 1},
                        {nan, nan, 0, none, 1}});
    }
    expect_special("lgamma", Lane::f32,
                   {{value(0x7c44af8e, Lane::f32), inf, 3, over, 1}, {value(0x7f7fffff, Lane::f32), inf, 3, over, 1}});
    expect_special("lgamma", Lane::f64,
                   {{value(0x7f5754d9278b51a8, Lane::f64), inf, 3, over, 1}, {1.7e308, inf, 3, over, 1}});
    for (const auto& [lane, last] : {std::pair{Lane::f32, 0x7c44af8dul}, {Lane::f64, 0x7f5754d9278b51a7ul}}) {
        const RareResult got = call_rare(family_of("lgamma", lane), {last});
        EXPECT_TRUE(std::isfinite(value(got.pattern, lane)));
        EXPECT_EQ(got.status, 0);
    }
}

TEST(Gamma, SpecialValuesOfGamma) {
    for (Lane lane : {Lane::f32, Lane::f64}) {
        const std::vector<Special> cases{{1, 1, 0, none, 0},
                                         {2, 1, 0, none, 0},
                                         {3, 2, 0, none, 0},
                                         {11, 3628800, 0, none, 0},
                                         {0.5, 1.7724538509055160, 0, none, 0},
                                         {0.0, inf, 2, by_zero, 0},
                                         {-0.0, -inf, 2, by_zero, 0},
                                         {-1, nan, 1, invalid, 0},
                                         {-2, nan, 1, invalid, 0},
                                         {-44, nan, 1, invalid, 0},
                                         {-4194305, nan, 1, invalid, 0},
                                         {-8388609, nan, 1, invalid, 0},
                                         {-1e30, nan, 1, invalid, 0},
                                         {inf, inf, 0, none, 0},
                                         {-inf, nan, 1, invalid, 0},
                                         {nan, nan, 0, none, 0},
                                         {1e30, inf, 3, over, 0},
                                         {-4194304.5, -0.0, 4, under, 0},
                                         {-4194305.5, 0.0, 4, under, 0}};
        expect_special("tgamma", lane, cases);
    }
    expect_special("tgamma", Lane::f32,
                   {{35.04010009765625, inf, 3, over, 0},
                    {-43.5, 0.0, 4, under, 0},
                    {-44.5, -0.0, 4, under, 0},
                    {value(0x00200000, Lane::f32), inf, 3, over, 0},
                    {-value(0x00200000, Lane::f32), -inf, 3, over, 0}});
    expect_special("tgamma", Lane::f64,
                   {{value(0x406573fae561f648, Lane::f64), inf, 3, over, 0},
                    {-184.5, -0.0, 4, under, 0},
                    {-185.5, 0.0, 4, under, 0},
                    {value(0x0003ffffffffffff, Lane::f64), inf, 3, over, 0},
                    {-value(0x0003ffffffffffff, Lane::f64), -inf, 3, over, 0}});
    for (const auto& [lane, last] : {std::pair{Lane::f32, 0x420c290ful}, {Lane::f64, 0x406573fae561f647ul}}) {
        const RareResult got = call_rare(family_of("tgamma", lane), {last});
        EXPECT_TRUE(std::isfinite(value(got.pattern, lane)));
        EXPECT_EQ(got.status, 0);
    }
}

/// Arguments of every interval and branch.
Patterns arguments_of_every_kind(Lane lane) {
    Patterns arguments;
    for (double x : {nan, inf, -inf, 0.0, -0.0, 1.0, 2.0, 1e-40, -1e-40, 0.3, 0.9, 1.1, 1.3, 1.6, 1.9, 2.1, 3.0, 5.5, 100.0,
                     600.0, 1e4, 1e36, 3e38, -0.5, -1.5, -2.5, -2.457, -2.7476826, -3.1435809, -3.95529, -4.5, -7.5,
                     -10.5, -15.5, -16.5, -20.5, -42.5, -41.5, -183.5, -184.5, -600.5, -9000.5, -3.0, -1e30, 171.7})
        arguments.push_back(pattern(x, lane));
    return arguments;
}

TEST(Gamma, SignsAtEveryWidth) {
    for (Lane lane : {Lane::f32, Lane::f64}) {
        const Family &family = family_of("lgammar", lane), &plain = family_of("lgamma", lane);
        Patterns arguments = arguments_of_every_kind(lane);
        // Down to the last arguments that are no integers; the sign follows the parity of the whole part.
        const double limit = lane == Lane::f32 ? 0x1p22 : 0x1p51;
        for (double whole = 0; whole < limit; whole = whole * 1.5 + 1)
            arguments.push_back(pattern(-std::floor(whole) - 0.5, lane));
        for (int width : widths) {
            const CallResult got = call_all(find_kernel(family, width), family, width, {{arguments}});
            EXPECT_TRUE(got.violations.empty()) << got.violations.front();
            EXPECT_EQ(got.outputs[0], call_all(find_kernel(plain, width), plain, width, {{arguments}}).outputs[0]);
            for (std::size_t k = 0; k < arguments.size(); ++k) {
                const double x = value(arguments[k], lane), whole = std::floor(x);
                const bool other = x != whole && x < 0 && std::isfinite(x) && std::fmod(whole, 2) != 0;
                const bool negative = other || (x == 0 && std::signbit(x));
                EXPECT_EQ(static_cast<std::int32_t>(got.outputs[1][k]), negative ? -1 : 1) << x << ' ' << width;
            }
        }
    }
}

// Callers may have the unit round to 24 or 53 bits. Kernels are called with a check of its stack and its mode.
TEST(Gamma, AnyPrecisionOfTheCallersX87Unit) {
    for (const char* operation : {"lgamma", "lgammar", "tgamma"}) {
        const Family& family = *find_family(operation);
        Patterns arguments = arguments_of_every_kind(Lane::f64);
        for (int k = 0; k < 200; ++k) arguments.push_back(pattern(-20 + 0.2117 * k, Lane::f64));
        const auto run = [&](std::uint16_t control) {
            CallOptions options;
            options.x87_control = control;
            const CallResult got = call_all(find_kernel(family, 4), family, 4, {{arguments}}, options);
            EXPECT_TRUE(got.violations.empty()) << got.violations.front();
            return got.outputs;
        };
        const auto expected = run(0x037f);
        for (std::uint16_t control : {0x007f, 0x027f, 0x017f}) EXPECT_EQ(run(control), expected) << control;
    }
}

// Errors.

void expect_errors_below(const std::string& operation, Lane lane, double bound, const Patterns& arguments) {
    const Family& family = family_of(operation, lane);
    const CallResult got = call_all(find_kernel(family, 16), family, 16, {{arguments}});
    for (std::size_t k = 0; k < arguments.size(); ++k)
        EXPECT_LE(error_of(family, {&arguments[k], 1}, {&got.outputs[0][k], 1}), bound)
            << family.name() << ' ' << value(arguments[k], lane);
}

// What the series on cells are good for, beside their ends and between.
TEST(Gamma, InDoublesOnTheirCells) {
    RandomBits random(3);
    Patterns log_gamma, gamma;
    for (int k = 0; k < 5000; ++k) {
        const double part = static_cast<double>(random() >> 11) * 0x1p-53;
        log_gamma.push_back(pattern(0.875 * std::exp2(9 * part), Lane::f64));
        gamma.push_back(pattern(1 + 15 * part, Lane::f64));
        log_gamma.push_back(pattern((random() % 3 + 2) / 2.0 + part / 32, Lane::f64) - random() % 3);
        gamma.push_back(pattern(1 + static_cast<double>(random() % 240) / 16, Lane::f64) - random() % 3);
    }
    expect_errors_below("lgamma", Lane::f64, 0.54, log_gamma);
    expect_errors_below("tgamma", Lane::f64, 0.52, gamma);
}

TEST(Gamma, LogGammaAroundItsZeros) {
    RandomBits random(1);
    for (Lane lane : {Lane::f32, Lane::f64}) {
        Patterns arguments, beside_zeros;
        for (double zero : {1.0, 2.0})
            for (int bit = lane == Lane::f32 ? -23 : -52; bit < -2; ++bit)
                for (double side : {-1.0, 1.0}) arguments.push_back(pattern(zero + side * std::ldexp(1.3, bit), lane));
        for (const auto& [zero, reach] : negative_gamma_zeros()) {
            const double x = zero.to_double();
            if (lane == Lane::f32 && x < -4) break;
            const std::uint64_t nearest = pattern(x, lane);
            for (std::uint64_t ulp = 0; ulp < 9; ++ulp) arguments.push_back(nearest - 4 + ulp);
            // Inside, at the ends, and outside.
            for (int k = 0; k < 30; ++k)
                arguments.push_back(pattern(x + reach * (static_cast<double>(random() >> 11) * 0x1p-51 - 2), lane));
        }
        expect_errors_below("lgamma", lane, lane == Lane::f32 ? 0.51 : 0.503, arguments);
    }
}

// Where no polynomial of their own serves, the error stays a small part of the terms that cancel.
TEST(Gamma, LogGammaBetweenItsZerosFarDown) {
    const Family& family = *find_family("lgamma");
    for (int n = 15; n < 30; ++n)
        for (int k = 0; k < 52; ++k)
            for (double side : {-1.0, 1.0}) {
                const double x = -n + side * std::ldexp(0.9, -k);
                const std::uint64_t argument = pattern(x, Lane::f64);
                if (x == std::floor(x)) continue;
                const Real exact = lgamma(x);
                const double got = value(outputs_of(family, {&argument, 1})[0], Lane::f64);
                const double rounding = std::ldexp(0.501, std::ilogb(got) - 52);
                EXPECT_LE(abs(got - exact), Real(rounding) + power_of_two(-60) * std::lgamma(n + 1.0)) << x;
            }
}

TEST(Gamma, GammaBeforeOverflowAndInSubnormalResults) {
    RandomBits random(2);
    Patterns last, singles;
    for (std::uint64_t ulp = 0; ulp < 40; ++ulp) last.push_back(0x406573fae561f647 - ulp);
    for (std::uint64_t ulp = 0; ulp < 40; ++ulp) singles.push_back(0x420c290f - ulp);
    for (int k = 0; k < 600; ++k) {
        last.push_back(pattern(-170 - 15 * static_cast<double>(random() >> 11) * 0x1p-53, Lane::f64));
        singles.push_back(pattern(-34 - 9 * static_cast<double>(random() >> 11) * 0x1p-53, Lane::f32));
    }
    // So close to the poles that the results are normal numbers again.
    for (int n = 171; n < 185; ++n)
        for (std::uint64_t ulp = 1; ulp < 4; ++ulp)
            for (std::uint64_t side : {ulp, -ulp}) last.push_back(pattern(-n, Lane::f64) + side);
    expect_errors_below("tgamma", Lane::f64, 0.51, last);
    expect_errors_below("tgamma", Lane::f32, 0.51, singles);
}

}  // namespace
}  // namespace tuvo

// The routines of double log-gamma. All lanes come here.
//
// All is done in extended precision, with a polynomial for each binade or interval of positive arguments. Negative ones
// are led back to them, by the recurrence or by reflection. The terms of both cancel around the zeros, two between each
// pair of neighbouring integers: down to -15 these have polynomials of their own. Further down they are so close to the
// integers that hardly a double is nearby.
#include "special/extended.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Coefficients of rising powers, the first five apart: of x / 2^(n + 2) - 1 for binades from 4 on; of x - 3.125; of x - 2
// and of x - 1, both without the zero; and of the distance to the least value.
extern const long double lgamma_binades_wide[7][5];
extern const double lgamma_binades[7][19];
extern const long double lgamma_from_9_4_wide[5];
extern const double lgamma_from_9_4[18];
extern const long double lgamma_about_2_wide[5];
extern const double lgamma_about_2[12];
extern const long double lgamma_about_least_wide[5];
extern const double lgamma_about_least[14];
extern const long double lgamma_about_1_wide[5];
extern const double lgamma_about_1[14];
// log(sin(pi z) / (pi z)) / z^2 in z^2.
extern const long double lgamma_reflection_wide[5];
extern const double lgamma_reflection[11];
// Surroundings of the zeros, two for each unit from -2 down: low, the zero, high; what the zero lacks; and
// coefficients of powers of the distance, without the zero.
extern const double lgamma_surroundings[26][3];
extern const long double lgamma_zero_rests[26];
extern const long double lgamma_zeros_wide[26][5];
extern const double lgamma_zeros[26][11];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr double infinity_above = f64(0x7f5754d9278b51a7);  // 2.56e305: results are beyond double
constexpr double series_from = 512;
constexpr double least_at = 0x1.762d86356be3fp+0;  // 1.4616321449683623, where gamma is least

/// Stirling's series, with two terms behind the first ones.
inline long double series(long double y, long double log_y) {
    const long double w = 1 / y;
    return stirling(y, log_y) + w * (0.08333333333333333333333L + f64(0xbf66c16c16c16c17) * (w * w));  // -1/360
}

/// For v from 0.875 to 512.
inline long double core(long double v) {
    if (v >= 4) {
        const std::uint64_t field = bits(static_cast<double>(v)) >> 52;  // of 2^(n + 2)
        const std::uint64_t n = field - 1025 < 6 ? field - 1025 : 6;
        return quick_polynomial(lgamma_binades_wide[n], lgamma_binades[n], v * f64((2046 - field) << 52) - 1);
    }
    if (v >= 2.25f) return quick_polynomial(lgamma_from_9_4_wide, lgamma_from_9_4, v - 3.125f);
    if (v >= 1.75f) return (v - 2) * quick_polynomial(lgamma_about_2_wide, lgamma_about_2, v - 2);
    if (v >= 1.25f) return quick_polynomial(lgamma_about_least_wide, lgamma_about_least, v - least_at);
    return (v - 1) * quick_polynomial(lgamma_about_1_wide, lgamma_about_1, v - 1);
}

inline long double positive(double x) {
    if (x == 1 || x == 2) return 0;
    if (x >= series_from) return series(x, log_extended(x));
    if (x >= 0.875) return core(x);
    return core(x + 1.0L) - log_extended(x);
}

/// Of x = -y, which is no integer; `floor` is that of y.
inline long double negative(double x, long long floor) {
    const double y = -x;
    const double fraction = y - static_cast<double>(floor);
    if (y < 17) {
        if (y >= 2 && y < 15) {
            const long long k = 2 * (floor - 2) + (fraction > 0.6);
            const auto& [low, zero, high] = lgamma_surroundings[k];
            if (x > low && x < high) {
                const long double t = (static_cast<long double>(x) - zero) - lgamma_zero_rests[k];
                return t * quick_polynomial(lgamma_zeros_wide[k], lgamma_zeros[k], t);
            }
        }
        long double p = x, v = x + 1.0L;
        for (; v < 1; v += 1) p *= v;
        return core(v) - log_extended(p < 0 ? -p : p);
    }
    const double z = fraction > 0.5 ? 1 - fraction : fraction;
    const long double s = static_cast<long double>(z) * z;
    const long double log_y = log_extended(y);
    const long double of_y = y < series_from ? core(y) : series(y, log_y);
    return -log_y - log_extended(z) - s * quick_polynomial(lgamma_reflection_wide, lgamma_reflection, s) - of_y;
}

/// In a function of its own, for the sake of the x87 unit's mode.
[[gnu::noinline]] RareStatus log_gamma(double x, double* out, int* sign) {
    *sign = 1;
    if (exponent_field(x) == exponent_field_all_ones<double>) {
        *out = x * x;
        return RareStatus::ordinary;
    }
    if (x > 0) {
        if (x > infinity_above) {
            const double huge = runtime(0x1p1000);
            *out = huge * huge;
            return RareStatus::overflow;
        }
        *out = static_cast<double>(positive(x));
        return RareStatus::ordinary;
    }
    const long long floor = x > -0x1p52 ? static_cast<long long>(-x) : 0;
    if (x <= -0x1p52 || static_cast<double>(floor) == -x) {  // zero, too
        if (bits(x) == 0x8000000000000000) *sign = -1;
        *out = 1 / runtime(0.0);
        return RareStatus::pole;
    }
    if (!(floor & 1)) *sign = -1;
    *out = static_cast<double>(negative(x, floor));
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus lgamma_rare(const double* x, double* out) {
    const ExtendedPrecision mode;
    int sign;
    return log_gamma(*x, out, &sign);
}

RareStatus lgammar_rare(const double* x, double* out, int* sign) {
    const ExtendedPrecision mode;
    return log_gamma(*x, out, sign);
}

}  // extern "C"

}  // namespace tuvo

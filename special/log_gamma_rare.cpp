// The routines of double log-gamma. All lanes come here.
//
// Arguments from 7/8 to 512 have a series for each of many narrow cells, in double, with the first terms in two parts.
// All others are done in extended precision: larger ones by Stirling's series; smaller ones are led back to the cells
// by the recurrence, and negative ones by that or by reflection. The terms of both cancel around the negative zeros,
// two between each pair of neighbouring integers: down to -15 these have polynomials of their own. Further down they
// are so close to the integers that hardly a double is nearby.
#include "special/extended.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// log(sin(pi z) / (pi z)) / z^2 in z^2, coefficients of rising powers, the first five apart.
extern const long double lgamma_reflection_wide[5];
extern const double lgamma_reflection[11];
// Surroundings of the zeros, two for each unit from -2 down: low, the zero, high; what the zero lacks; and
// coefficients of powers of the distance, without the zero.
extern const double lgamma_surroundings[26][3];
extern const long double lgamma_zero_rests[26];
extern const long double lgamma_zeros_wide[26][5];
extern const double lgamma_zeros[26][17];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr double infinity_above = f64(0x7f5754d9278b51a7);  // 2.56e305: results are beyond double
constexpr double series_from = 512;

/// Stirling's series, with two terms behind the first ones.
inline long double series(long double y, long double log_y) {
    const long double w = 1 / y;
    return stirling(y, log_y) + w * (0.08333333333333333333333L + f64(0xbf66c16c16c16c17) * (w * w));  // -1/360
}

/// For v from 0.875 to 512.
inline long double core(long double v) { return log_gamma_cell(static_cast<double>(v)).at(v); }

/// For x from 512 on and up to 7/8.
inline long double positive(double x) {
    const long double log_x = log_extended(x);
    return x >= series_from ? series(x, log_x) : core(x + 1.0L) - log_x;
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
                return t * polynomial(lgamma_zeros_wide[k], lgamma_zeros[k], t);
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
    return -log_y - log_extended(z) - s * polynomial(lgamma_reflection_wide, lgamma_reflection, s) - of_y;
}

/// In a function of its own, for the sake of the x87 unit's mode.
[[gnu::noinline]] RareStatus in_extended(double x, double* out, int* sign) {
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

inline RareStatus log_gamma(double x, double* out, int* sign) {
    *sign = 1;
    if (is_from(0.875, series_from, x)) {
        *out = log_gamma_cell(x).at(x);
        return RareStatus::ordinary;
    }
    const ExtendedPrecision mode;
    return in_extended(x, out, sign);
}

}  // namespace

extern "C" {

RareStatus lgamma_rare(const double* x, double* out) {
    int sign;
    return log_gamma(*x, out, &sign);
}

RareStatus lgammar_rare(const double* x, double* out, int* sign) { return log_gamma(*x, out, sign); }

}  // extern "C"

}  // namespace tuvo

// The routines of float log-gamma. All lanes come here.
//
// Positive arguments have a series for each of many narrow cells, evaluated in double. Negative ones are led back to them,
// by the recurrence or by reflection, but for the surroundings of the zeros next to -2.5 and -3.5, where the terms of both
// would cancel.
#include "special/cells.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Surroundings of the zeros: low, zero, high, and four coefficients of powers of x - zero.
extern const double lgammaf_zeros[4][7];
// Minus the logarithms of gamma_log_factors.
extern const double lgammaf_log_values[128];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr float infinity_from = f32(0x7c44af8e, 4.08500343e36f);  // results are beyond float from here on
constexpr double series_from = 8192;

/// log d for normal d.
inline double log_double(double d) {
    const auto [exponent, i] = cell_of(d);
    const double m = d * f64(std::uint64_t(1023 - exponent) << 52);
    const double r = m * gamma_log_factors[i] - 1;
    const double log1p = r + r * r * (r * log_tail(r) - 0.5);
    return exponent * 0.6931471805599453 + (lgammaf_log_values[i] + log1p);
}

inline double series(double y, double log_y) { return (y - 0.5) * log_y + 0.9189385332046728 - y; }

/// For v from 7/8 to 8192, the first terms of the cell's series.
inline double core(double v) {
    const auto& [middle, c0, c0_rest, c1, c1_rest, others] = log_gamma_cell(v);
    const double t = v - middle;
    return c0 + t * (c1 + (c1_rest + t * ((others[0] + others[1] * t) + t * t * (others[2] + others[3] * t))));
}

inline double positive(double x) {
    if (x >= series_from) return series(x, log_double(x));
    if (x >= 0.875) return core(x);
    return core(x + 1) - log_double(x);
}

/// log(sin(pi z) / (pi z)), |z| up to 1/2.
inline double log_sine_ratio(double z) {
    const double s = z * z;
    return s * horner(s, f64(0xbfd58731a486e820, -0.33637658183181607), f64(0xbfa4452cc28e15a9, -0.03959026217402634),
                      f64(0xbfc86a0d5252e778, -0.19073645133704153), f64(0xbfc93e08c9ee284b, -0.19720563754919093),
                      f64(0xbfd013f6e1b86c4f, -0.25121852915771553), f64(0xbfd5b3f19f7a341f, -0.33910790037117694),
                      f64(0xbfe15132555c9edd, -0.5411616961691511), f64(0xbffa51a662480e35, -1.6449340666885182));
}

/// Of x = -y, which is no integer.
inline double negative(double x) {
    const double y = -x;
    if (y < 9) {
        if (y >= 2 && y < 4)
            for (const auto& [low, zero, high, c0, c1, c2, c3] : lgammaf_zeros)
                if (x > low && x < high) {
                    const double t = x - zero;
                    return c0 + t * (c1 + t * (c2 + t * c3));
                }
        double p = x, v = x + 1;
        for (; v < 1; v += 1) p *= v;
        return core(v) - log_double(p < 0 ? -p : p);
    }
    const int floor = static_cast<int>(y);
    const double fraction = y - floor;
    const double z = fraction > 0.5 ? 1 - fraction : fraction;
    const double log_y = log_double(y);
    const double of_y = y < series_from ? core(y) : series(y, log_y);
    return -log_y - log_double(z) - log_sine_ratio(z) - of_y;
}

inline RareStatus log_gamma(float x, float* out, int* sign) {
    *sign = 1;
    if (exponent_field(x) == exponent_field_all_ones<float>) {
        *out = x * x;
        return RareStatus::ordinary;
    }
    if (x > 0) {
        if (x >= infinity_from) {
            const double largest = runtime(f64(0x47efffffe0000000));
            *out = static_cast<float>(largest * largest);
            return RareStatus::overflow;
        }
        *out = static_cast<float>(positive(x));
        return RareStatus::ordinary;
    }
    const bool whole = x <= -8388608.0f || x == static_cast<float>(static_cast<int>(x));
    if (whole) {  // zero, too
        if (bits(x) == 0x80000000) *sign = -1;
        *out = 1 / runtime(0.0f);
        return RareStatus::pole;
    }
    if (!(static_cast<int>(x) & 1)) *sign = -1;
    *out = static_cast<float>(negative(x));
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus lgammaf_rare(const float* x, float* out) {
    int sign;
    return log_gamma(*x, out, &sign);
}

RareStatus lgammarf_rare(const float* x, float* out, int* sign) { return log_gamma(*x, out, sign); }

}  // extern "C"

}  // namespace tuvo

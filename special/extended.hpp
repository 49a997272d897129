// Extended precision on the x87 unit, for the routines of log-gamma and gamma: 64 bits of significand, so that a result
// of 53 is rounded nearly once, without carrying anything in two parts.
#pragma once

#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (c, -log c), c of 10 bits and near 1 / (1 + (i + 1/2) / 128).
extern const long double gamma_log_table[128][2];
}
#pragma GCC visibility pop

namespace tuvo {

/// Makes the x87 unit round to 64 bits while this lives. A caller may have it set to less. What is to be computed that
/// way has to be in a function that isn't inlined: arithmetic on registers may be moved past the change of the mode.
class ExtendedPrecision {
public:
    ExtendedPrecision() {
        asm volatile("fnstcw %0" : "=m"(saved_) : : "memory");
        if ((saved_ & precision) == precision) return;
        const unsigned short extended = saved_ | precision;
        asm volatile("fldcw %0" : : "m"(extended) : "memory");
    }
    ~ExtendedPrecision() {
        if ((saved_ & precision) != precision) asm volatile("fldcw %0" : : "m"(saved_) : "memory");
    }
    ExtendedPrecision(const ExtendedPrecision&) = delete;

private:
    static constexpr unsigned short precision = 0x300;
    unsigned short saved_;
};

/// Even and odd terms in two chains, which the unit can work on side by side. Coefficients of rising powers of t.
template <int N, class T>
inline long double polynomial(const T (&c)[N], long double t) {
    const long double z = t * t;
    long double last = c[N - 1], other = c[N - 2];
#pragma GCC unroll 16
    for (int k = N - 3; k >= 0; k -= 2) {
        last = last * z + c[k];
        if (k >= 1) other = other * z + c[k - 1];
    }
    // The chain that took c[0] is the even one.
    return N % 2 ? last + t * other : other + t * last;
}

/// Which quarter of [1, 2) v is in. Just below 2 the conversion to double may reach it.
inline int quarter_of(long double v) {
    const int quarter = static_cast<int>(static_cast<double>(v) * 4) - 4;
    return quarter < 3 ? quarter : 3;
}

/// log v for v > 0, to 2^-63 of the larger of 1 and the result.
inline long double log_extended(long double v) {
    double d = static_cast<double>(v);
    int scaled = 0;
    if (d < 0x1p-1022) {
        v *= 0x1p100L;
        d = static_cast<double>(v);
        scaled = 100;
    }
    const int field = exponent_field(d);
    const auto& [c, log_c] = gamma_log_table[bits(d) >> 45 & 127];
    const long double m = v * f64(std::uint64_t(2046 - field) << 52);
    const long double r = m * c - 1.0L;  // exact for doubles: 63 bits
    const long double z = r * r;
    const long double even = -0.5L + z * (-0.25L + z * (-0.1666666666666666666667L + z * -0.125L));
    const long double odd = 0.3333333333333333333333L + z * (0.2L + z * 0.1428571428571428571429L);
    const long double exponent = field - exponent_bias<double> - scaled;
    return exponent * 0.6931471805599453094172L + (log_c + (r + z * (even + r * odd)));
}

/// The first terms of Stirling's series for log gamma, for large y, with log y.
inline long double stirling(long double y, long double log_y) {
    return (y - 0.5L) * log_y + 0.9189385332046727417803L - y;  // log(2 pi) / 2
}

}  // namespace tuvo

// Steps of log-gamma and gamma in extended precision, on the x87 unit: 64 bits of significand, so that a result of 53
// is rounded nearly once, without carrying anything in two parts.
//
// The unit's arithmetic is slow, and slowest where it reads numbers of 80 bits. So only the first few coefficients of a
// polynomial are such numbers, and the sum of all others, a small part of the result, is computed in double.
#pragma once

#include "special/cells.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
extern const long double gamma_log_values[128];  // minus the logarithms of gamma_log_factors
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

/// Coefficients of rising powers: the first ones in full.
constexpr int wide_terms = 5;
using WideTerms = const long double (&)[wide_terms];

/// The first terms in extended precision, on top of the sum of the others divided by t^5.
inline long double first_terms(WideTerms c, long double t, long double others) {
    const long double z = t * t;
    return (c[0] + z * (c[2] + z * c[4])) + t * (c[1] + z * (c[3] + z * others));
}

/// With the other terms in double.
template <int N>
inline long double polynomial(WideTerms wide, const double (&others)[N], long double t) {
    return first_terms(wide, t, in_fours(others, static_cast<double>(t)));
}

/// log v for v > 0, to 2^-63 of the larger of 1 and the result, and nearly as good relative to it beside 1.
inline long double log_extended(long double v) {
    double d = static_cast<double>(v);
    int scaled = 0;
    if (d < 0x1p-1022) {
        v *= 0x1p100f;
        d = static_cast<double>(v);
        scaled = 100;
    }
    const auto [exponent, i] = cell_of(d);
    const long double m = v * f64(std::uint64_t(1023 - exponent) << 52);
    const long double r = m * gamma_log_factors[i] - 1.0f;  // exact for doubles: 64 bits
    const long double z = r * r;
    const long double log1p = r + z * (r * log_tail(static_cast<double>(r)) - 0.5f);
    return (exponent - scaled) * 0.6931471805599453094172L + (gamma_log_values[i] + log1p);
}

/// The first terms of Stirling's series for log gamma, for large y, with log y.
inline long double stirling(long double y, long double log_y) {
    return (y - 0.5f) * log_y + 0.9189385332046727417803L - y;  // log(2 pi) / 2
}

}  // namespace tuvo

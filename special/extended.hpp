// Steps of log-gamma and gamma in extended precision, on the x87 unit: 64 bits of significand, so that a result of 53 is
// rounded nearly once, without carrying anything in two parts.
//
// The unit's arithmetic is slow, and slowest where it reads numbers of 80 bits. So only the first few coefficients of a
// polynomial are such numbers; all others are doubles, and make up for each other's rounding. Where their sum is a small
// part of the result it is computed in double, too.
#pragma once

#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// For cell i of [3/4, 3/2): c of 11 bits, near the inverse of its middle, and -log c.
extern const double gamma_log_factors[128];
extern const long double gamma_log_values[128];
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

/// Even and odd terms, each again in two chains that the processor works on side by side.
template <int N>
inline double in_four_chains(const double (&c)[N], double t) {
    const double z = t * t, w = z * z;
    double chain[4] = {c[N - 4], c[N - 3], c[N - 2], c[N - 1]};
    int k = N - 8;
#pragma GCC unroll 8
    for (; k >= 0; k -= 4)
        for (int j = 0; j < 4; ++j) chain[j] = chain[j] * w + c[k + j];
    double sum = (chain[0] + chain[1] * t) + z * (chain[2] + chain[3] * t);
#pragma GCC unroll 4
    for (k += 3; k >= 0; --k) sum = sum * t + c[k];
    return sum;
}

/// The first terms in extended precision, on top of the sum of the others divided by t^5.
inline long double first_terms(WideTerms c, long double t, long double others) {
    const long double z = t * t;
    return (c[0] + z * (c[2] + z * c[4])) + t * (c[1] + z * (c[3] + z * others));
}

/// Even and odd terms in extended precision: four chains are too many for the unit's registers.
template <int N>
inline long double in_two_chains(const double (&c)[N], long double t) {
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

/// All of it in extended precision; and with the other terms in double.
template <int N>
inline long double polynomial(WideTerms wide, const double (&others)[N], long double t) {
    return first_terms(wide, t, in_two_chains(others, t));
}
template <int N>
inline long double quick_polynomial(WideTerms wide, const double (&others)[N], long double t) {
    return first_terms(wide, t, in_four_chains(others, static_cast<double>(t)));
}

/// Which quarter of [1, 2) v is in. Just below 2 the conversion to double may reach it.
inline int quarter_of(long double v) {
    const int quarter = static_cast<int>(static_cast<double>(v) * 4) - 4;
    return quarter < 3 ? quarter : 3;
}

/// d = 2^exponent m with m in [3/4, 3/2), of which this is the cell.
struct Cell {
    int exponent, index;
};
inline Cell cell_of(double d) {
    const std::uint64_t above = bits(d) - 0x3fe8000000000000;  // 3/4
    return {static_cast<int>(static_cast<std::int64_t>(above) >> 52), static_cast<int>(above >> 45 & 127)};
}

/// (log(1 + r) - r + r^2 / 2) / r^3 for |r| up to 2^-7.
inline double log_tail(double r) {
    const double z = r * r;
    return (0.3333333333333333 + r * -0.25) + z * ((0.2 + r * -0.16666666666666666) + z * (0.14285714285714285 + r * -0.125));
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

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

/// Four terms at a time, all of which the processor works on side by side.
template <int N>
inline double in_fours(const double (&c)[N], double t) {
    const double z = t * t, w = z * z;
    double sum = 0;
#pragma GCC unroll 8
    for (int k = (N - 1) / 4 * 4; k >= 0; k -= 4) {
        double four = c[k];
        if (k + 1 < N) four += c[k + 1] * t;
        if (k + 2 < N) four += z * (k + 3 < N ? c[k + 2] + c[k + 3] * t : c[k + 2]);
        sum = k + 4 < N ? four + w * sum : four;
    }
    return sum;
}

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

/// Whether low <= x < high, for positive bounds. A compare of patterns raises no flag for a NaN.
inline bool is_from(double low, double high, double x) { return bits(x) - bits(low) < bits(high) - bits(low); }

/// A row of a table of cells: the series about the middle of a cell, which is so narrow that the terms behind the first two
/// are a small part of the sum. c1 has so few bits that its product with a distance of 47 is exact.
struct Cell {
    double middle, c0, c0_rest, c1, c1_rest, others[11];

    /// In double, for arguments whose distance to the middle has 47 bits.
    double at(double v) const {
        const double t = v - middle, linear = c1 * t, sum = c0 + linear;
        return sum + (((c0 - sum) + linear) + (c0_rest + t * (c1_rest + t * in_fours(others, t))));
    }
    /// In extended precision.
    long double at(long double v) const {
        const long double t = v - middle;
        return c0 + (c0_rest + t * (c1 + (c1_rest + t * in_fours(others, static_cast<double>(t)))));
    }
};

}  // namespace tuvo

#pragma GCC visibility push(hidden)
extern "C" const tuvo::Cell lgamma_cells[320];
#pragma GCC visibility pop

namespace tuvo {

/// The cell of log-gamma that v is in, from 7/8 to 8192: 16 below 1, 64 in each binade up to 4, then 16.
inline const Cell& log_gamma_cell(double v) {
    const int top = static_cast<int>(bits(v) >> 46);
    return lgamma_cells[v < 4 ? top - 0xffb0 : (top >> 2) - 0x4010 + 144];
}

/// d = 2^exponent m with m in [3/4, 3/2), of which this is the cell.
struct LogCell {
    int exponent, index;
};
inline LogCell cell_of(double d) {
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

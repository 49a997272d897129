// Series of log-gamma and gamma on narrow cells, and the cells that logarithms begin with: what is shared in double.
//
// Extended precision is slow, and what it computes is on a chain. It is kept from the arguments that callers have most:
// these fall into cells so narrow that the first two terms of a series make up nearly all of the sum. Those are carried
// in two doubles each, and all others are as good in double.
#pragma once

#include "frame/description/rare.hpp"

namespace tuvo {

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

/// Whether low <= x < high, for positive bounds. A compare of patterns raises no flag for a NaN.
inline bool is_from(double low, double high, double x) { return bits(x) - bits(low) < bits(high) - bits(low); }

/// A row of a table of cells: the series about the middle of a cell, which is so narrow that the terms behind the first
/// two are a small part of the sum. c1 has so few bits that its product with a distance of 47 is exact.
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
extern "C" {
extern const tuvo::Cell lgamma_cells[320];  // of log-gamma, from 7/8 to 8192
// For cell i of [3/4, 3/2): c of 11 bits, near the inverse of its middle.
extern const double gamma_log_factors[128];
}
#pragma GCC visibility pop

namespace tuvo {

/// The cell that v is in: 16 below 1, 64 in each binade up to 4, then 16.
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
    return (0.3333333333333333 + r * -0.25) +
           z * ((0.2 + r * -0.16666666666666666) + z * (0.14285714285714285 + r * -0.125));
}

}  // namespace tuvo

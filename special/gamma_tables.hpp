// Tables of log-gamma and gamma, from the fits and by rule. All are read by rare routines only.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "frame/description/real.hpp"
#include "frame/description/tables.hpp"

namespace tuvo {

/// Log-gamma from 7/8 to 8192 and gamma(base + u) for u in [0, 1), by narrow cells, each a row of sixteen doubles: its
/// middle m; c0 and what it lacks; the first six bits of c1 and what they lack; c2 ... c12: coefficients of rising
/// powers of the distance to m, by Taylor's series. Log-gamma has 16 cells below 1, 64 in [1, 2) and in [2, 4), and 16
/// in each binade beyond; those beside 1 and 2 have these for their middle. Gamma has 16 for each of the bases 1, 2, 3
/// ... 16, 32, 48 ... 176; the values of the last are divided by 2^120.
RawTable lgamma_cells();
RawTable tgamma_cells();

/// Of `lgammaf_rare`: rows (low, zero, high, c0, c1, c2, c3) for the zeros next to -2.457, -2.748, -3.144, -3.955:
/// log |gamma| at zero + t.
RawTable lgammaf_zeros();

/// For logarithms: the cells of [3/4, 3/2), 64 on either side of 1, have a factor c of 11 bits near 1 / m, and -log c
/// as an 80-bit number and as a double. A number of 80 bits is two values of 64: significand, and sign with exponent.
RawTable gamma_log_factors();
RawTable gamma_log_values();
RawTable lgammaf_log_values();

/// The polynomials of `lgamma_rare` and `tgamma_rare` other than those of cells, coefficients of rising powers, one
/// polynomial a row, in two tables: `SYMBOL_wide` has the first five as 80-bit numbers, and SYMBOL the others as
/// doubles.
struct MixedTable {
    std::string symbol;
    std::function<std::vector<std::vector<Real>>()> rows;

    RawTable wide() const;
    RawTable others() const;
};
const std::vector<MixedTable>& mixed_gamma_tables();

/// A zero of log |gamma(x)| between two negative integers, and how far from it a polynomial of its own serves.
struct GammaZero {
    Real zero;
    double reach;
};
/// Those between -2 and -15 in falling order, two in each unit.
const std::vector<GammaZero>& negative_gamma_zeros();

/// Of `lgamma_rare`: for each zero, two in each unit from -2 down to -15, (low, zero, high): between low and high the
/// polynomials in the distance serve. And what the zeros lack, as 80-bit numbers.
RawTable lgamma_surroundings();
RawTable lgamma_zero_rests();

/// Of `tgammaf_rare`, in doubles: rows (six a, six b, lead) from 2, 8, 16 ... 40 on; and eight coefficients for each
/// quarter from 1 on.
RawTable tgammaf_segments();
RawTable tgammaf_small();

}  // namespace tuvo

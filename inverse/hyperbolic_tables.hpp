// Tables of the hyperbolic functions, computed by their rules or fitted.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Table of the `sinh` kernels: 128 entries (sinh(j log(2) / 128), 2^(-j / 128) / 2).
RawTable sinh_kernel_table();

/// Table of the `cosh` kernels: 2^(j / 256) / 2 for j from 0 to 256.
RawTable cosh_kernel_table();

/// Table of the `tanhf` kernels: 134 rows of four doubles c0 to c3, with tanh a = c0 + a (c1 + a (c2 + a c3)). Row 0 is
/// for a below 2^-5, row 133 for a from 10 on, where the tangent is 1 as a float; between them are 16 rows to a binade.
/// Fitted (fits/tanhf_cubics.sollya).
RawTable tanhf_kernel_table();

/// Table of the `tanh` kernels: 60 rows of 16 doubles. The first 11 are e0 to e10, the next is minus the middle m of
/// the row's interval: with t = a - m, tanh a = e0 + t (e1 + t (e2 + ... + t e10)). The others are not read. Row 0 is
/// for a below 0.125 and has m = 0, row 59 is for a from 20 on; between them are 8 rows to a binade. Fitted
/// (fits/tanh_polynomials.sollya). In a table on a 64-byte boundary no pair of values lies across one.
RawTable tanh_kernel_table();

/// The largest error, relative to the tangent, that the fit of a row claims.
double tanhf_fit_error(int row);
double tanh_fit_error(int row);

}  // namespace tuvo

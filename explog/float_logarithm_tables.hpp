// Tables of the float logarithms, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Table of the default `log10f` kernel: 129 entries (hi, lo) for the integers R from 111 to 222. Entry 0 belongs to
/// R = 111; up to R = 128 every other entry is a zero that nothing reads, because the index is cut from R's pattern and
/// R's spacing in patterns doubles below 128. With C = 111 / 256,
///     hi + lo = log10(512 C / R) - 127 (log10_2_hi + log10_2_lo).
RawTable log10f_kernel_table();

/// Table of the default `log1pf` kernel: 129 entries (hi, lo) for the integers R from 128 to 256,
///     hi + lo = ln(256 / R) - 127 (ln2_hi + ln2_lo).
RawTable log1pf_kernel_table();

/// Tables of the rare routines: 65 entries (c, hi, lo). Entry i serves significands near 1 + i / 64: c is K times a
/// short reciprocal q of that value, and hi + lo = -log(q) in the base of the routine.
RawTable logf_rare_table();    ///< K = 1; `log1pf_rare` has its own copy of the same values
RawTable log2f_rare_table();   ///< K = 369.330078125, about 256 log2(e)
RawTable log10f_rare_table();  ///< K = 111.1796875, about 256 log10(e)

}  // namespace tuvo

// Tables of the double logarithms, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Tables of the kernels: 513 values for the integers R from 512 to 1024, the logarithms of 1024 / R above 724 and of
/// 512 / R up to there, correctly rounded. 724 is next to 512 sqrt(2), so no value exceeds half a log 2 by much.
RawTable log_kernel_table();
RawTable log2_kernel_table();
RawTable log10_kernel_table();

/// Table of the default `log1p` kernel: 513 entries (hi, lo) for R from 512 to 1024,
///     hi + lo = ln(1024 / R) - 1023 (ln2_hi + ln2_lo).
RawTable log1p_kernel_table();

/// Tables of `log_rare` (`log1p_rare` has its own copy) and `log10_rare`: 65 entries (c, hi, lo). Entry i serves
/// significands near 1 + i / 64: c is K times a short reciprocal q of that value, and hi + lo = -log(q).
RawTable log_rare_table();    ///< K = 1
RawTable log10_rare_table();  ///< K = 0.43359375, near log10(e)

/// Tables of `log2_rare`, for significands m from 1 + i / 256 up to the next: short reciprocals c, as floats, and
/// (lo, hi) with hi + lo = -log2(c), where hi has only the bits of a double's high word.
RawTable log2_rare_reciprocals();
RawTable log2_rare_logarithms();

}  // namespace tuvo

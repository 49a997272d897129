// Tables of the exponentials: powers of two at fractions of a binade, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Table of the default `exp10f` kernel: 128 entries (hi, lo), hi + lo = 2^(j/128) with hi rounded to nearest.
RawTable exp10f_kernel_table();

/// Table of the default `expm1f` kernel: 64 entries (hi, lo), 2^(j/64) = 1 + hi' + lo. hi is the fraction field of
/// 1 + hi', 12 bits of it, cut and not rounded: or-ing an exponent in makes a power of two times 1 + hi', and 1 can be
/// taken off that without a rounding. lo is the rest, an ordinary float.
RawTable expm1f_kernel_table();

/// Table of the `expm1f_native` kernel: the fraction fields of the 32 floats nearest to 2^(j/32).
RawTable expm1f_native_kernel_table();

/// Table of the rare routines: 64 entries (T, Tl) of doubles. T is 2^(j/64) rounded to nearest, and Tl its relative
/// remainder: T (1 + Tl) = 2^(j/64).
RawTable exp_rare_table();

}  // namespace tuvo

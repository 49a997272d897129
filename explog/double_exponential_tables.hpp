// Tables of the double exponentials, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Table of the `exp`, `exp2` and `exp10` kernels: 2^(j / entries) for j from 0 to entries - 1.
RawTable powers_table(int entries);

/// Table of the default `expm1` kernel: 128 entries (hi, lo) for 2^(j / 128). hi is the upper half of its fraction
/// field, 26 bits, alone: the kernel ors the exponent field of a scale 2^e in and takes 1 off, which is exact for e
/// from -26 to
/// 52. lo is what the cut leaves, an ordinary double.
RawTable expm1_kernel_table();

/// Table of the `expm1_native` kernel: the whole fraction fields of the doubles nearest to 2^(j / 128).
RawTable expm1_native_kernel_table();

}  // namespace tuvo

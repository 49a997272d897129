// Tables of the double powers, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// Table of the default kernels: 1025 entries (hi, lo, R) for significands near 1 + i / 1024. R is c / (1 + i / 1024)
/// cut to 30 zero bits, with c = 1.442694902420044 the head of 1 / ln 2: so short that products with heads are exact.
/// hi + lo is log2(c / R), less 1 from entry 512 on, with hi cut to a high word: 0 next to 1, on either side.
RawTable double_logarithm_triples();

/// 128 entries 2^(j / 128), rounded.
RawTable double_powers_of_two();
/// The same with what they lack, (hi, lo); also of the rare routines.
RawTable double_power_of_two_pairs();

/// Table of the native kernels: `centred_powers()` with an entry 0 of 1, so that an exponent of 0 gives 1.
RawTable centred_powers_from_one();

}  // namespace tuvo

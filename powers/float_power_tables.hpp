// Tables of the float powers, computed by their rules.
#pragma once

#include "powers/reciprocal_logarithms.hpp"

namespace tuvo {

/// c in the exponential tables below: 0.9999999928394805. They feed E (1 + s) with s from 0 to ln(2) / 2048, and c
/// centres the error that the missing s^2 / 2 leaves.
inline constexpr std::uint64_t centring_bias = 0x3feffffffc27dd9e;

/// Table of the default `powf` kernel: 2048 doubles, c 2^(j / 2048).
RawTable centred_powers();

/// Table of the kernels in hi/lo floats: 65 entries (logHi, logLo, rcp, 0) for significands near 1 + i / 64. rcp is the
/// nearest multiple of 1/256 to the reciprocal, so that its product with a significand's 9-bit head is exact. logHi is
/// -ln(rcp) cut to a multiple of 2^-14, logLo the rest.
RawTable float_logarithm_triples();

/// Table of the rare routines: 128 entries (hi, lo) with hi + lo = 2^(j / 128), hi a multiple of 2^-22.
RawTable float_powers_of_two();

}  // namespace tuvo

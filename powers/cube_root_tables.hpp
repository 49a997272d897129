// Tables of the cube roots, computed by their rules.
//
// The kernels cut a significand, at 1 + i / 32, into 32 intervals with the middles c = 1 + (2 i + 1) / 64. What the
// exponent leaves over by threes is `rem`, 0 to 2, the outer index. The reciprocal of the middle stands beside each
// root, so that one index serves both.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// What a table of a kernel is about: (c 2^rem)^(1/3) or (c 2^rem)^(-1/3).
enum class CubeRoot { direct, reciprocal };

/// Tables of the float kernels, 128 entries. The first 32 are zeros, for the exponent field 0, whose lanes are rare;
/// rem = 0 follows.
RawTable float_cube_root_pairs(CubeRoot which);   ///< (hi, lo, -1/c, 0): hi + lo is the root, hi the nearest float
RawTable float_cube_root_values(CubeRoot which);  ///< (root, -1/c), rounded

/// Tables of the double kernels, 96 entries.
RawTable double_cube_root_pairs(CubeRoot which);   ///< (hi, lo, -1/c, 0): hi + lo is the root, hi the nearest double
RawTable double_cube_root_values(CubeRoot which);  ///< (root, -1/c), rounded

/// Seeds of `rcbrt_rare` and `rcbrtf_rare`: entry j is v^(-1/3) at v = (1 + (j mod 32) / 32) 2^(j div 32), to 12 bits.
RawTable reciprocal_cube_root_seeds();
/// Seeds of `cbrt_rare`: (1 + i / 32)^(-1/3), cut to 8 fraction bits.
RawTable cube_root_seeds();
/// Three entries (hi, lo) of doubles: 2^(rem / 3), hi with 26 bits at most.
RawTable cube_root_remainders();

}  // namespace tuvo

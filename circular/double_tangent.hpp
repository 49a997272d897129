// The tangent around a point of the half turn: steps that the tangents of x and of pi x share.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

/// Fields of an entry of `tanPoleTable64`.
struct PoleEntry64 {
    F64 pole_dist_head, pole_weight, value_head, slope_head, slope_tail, r2, r3, r4, r5, r6, r7;
};
/// The entry of that index, 0 to 255. The table goes into the current constant block.
PoleEntry64 pole_entry64(I32 index);

/// The processor's approximate reciprocal of single precision.
F64 reciprocal_approximation(F64 d);

}  // namespace tuvo

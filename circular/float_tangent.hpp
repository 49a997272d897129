// The tangent around a point of the half turn: steps that the float tangents of x and of pi x share.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

/// An entry of `tanPoleTable`, 0 to 127. The table goes into the current constant block.
struct PoleEntry {
    F32 pole_dist_head, pole_dist_tail, pole_weight, value_head, value_tail, slope_head, slope_tail, r2, r3, r4;
};
PoleEntry pole_entry(I32 index);

/// The tangent at r from the entry's point, d being its poleDistHead less r; the short form reads no tails.
F32 tangent_around_default(const PoleEntry& e, F32 r, F32 d);
F32 tangent_around_short(const PoleEntry& e, F32 r, F32 d);

}  // namespace tuvo

// Masks of lanes in general registers: bit i for lane i, for the rare path, or nonzero for any lane, for a branch to a
// section. Appends to the body; may make a form that a mask hasn't yet.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// A mask in a register of its own for each part: a node's, or one that was combined of several.
struct Mask {
    int node = -1;  ///< -1 if it was combined; then it has what follows
    Type type = Type::none;
    bool integer = false;  ///< whether it comes from the integer side
    Forms combined;
};

Mask mask_of(const Layout& l, int node);
/// Combines two masks of one size by a bit operation, in whichever form both have.
Mask combine(Layout& l, Op op, Mask a, Mask b);

/// Bit i for lane i, in a general register.
int lane_bits(Layout& l, const Mask& mask);

/// Whether any lane is set: nonzero in a general register, whatever the order of its bits.
int any_lane(Layout& l, int node);

/// The mask of a call's lanes.
int all_lanes(const Layout& l);

int or_general(Layout& l, const std::vector<int>& registers);

}  // namespace tuvo

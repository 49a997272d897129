// Out-of-line sections. A section starts from the state of the code around it at its branch and puts that state back at
// its end, so that the way that doesn't enter it pays nothing. Touches everything while it is inside; outside, only
// what the section replaces has changed.
#pragma once

#include "frame/generator/allocate/state.hpp"

namespace tuvo {

/// A branch to a section or to the rare path, with all that lies there.
void allocate_branch(Allocation& a, const Body& outer, const Instruction& branch);

}  // namespace tuvo

// A body from its first instruction to its last: operands found, results given registers, what is dead released.
#pragma once

#include "frame/generator/allocate/state.hpp"

namespace tuvo {

/// Finds where a section's body uses each value; `needed_at_end` are used behind its last instruction, too.
Body find_uses(const Allocation& a, int section, const std::vector<int>& needed_at_end);

/// Allocates it, with the branches to sections that it holds.
void allocate_body(Allocation& a, const Body& body);

}  // namespace tuvo

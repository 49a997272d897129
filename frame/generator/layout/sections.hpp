// Out-of-line sections: work that runs only if any lane of the call needs it. A section takes over values of the code
// around it and gives them back, changed in the lanes that asked; rare lanes that it finds inside come back with them.
// Touches `Layout::rare_lanes` and `Code::section`; what forms values take on inside is forgotten outside.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// The section whose joins these are; the first of them lays it out, and the others find their values there.
void lay_out_section(Layout& l, int section);

/// The rare lanes that a section's own tests and those inside it find, in a general register.
int rare_lanes_found(Layout& l, int section);

/// A value with another in the lanes of a mask, part by part; `before` is the value's register.
int blended(Layout& l, int before, int after, int mask, int part);

/// Appends the way into a section, with all that has to be alive there.
void branch_to(Code& code, int section, Instruction::Kind kind);

}  // namespace tuvo

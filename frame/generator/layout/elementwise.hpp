// Operations that do the same in each lane with one instruction a part: arithmetic, compares, bit operations,
// selection, shifts by one count. Appends to the body and sets the node's form.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

void lay_out_elementwise(Layout& l, int node);

/// The instruction of a bit operation on registers of that type's lanes, or on the integer side.
Mnemonic bitwise_form(Op op, Type type, bool integer);
/// The instruction that selects between lanes of that type's size.
Mnemonic blend_form(Type type);

}  // namespace tuvo

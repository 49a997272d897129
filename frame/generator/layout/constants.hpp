// Constants as operands: rows of blocks, read through the block's pointer, or items of the kernel's own pool. Touches
// `Layout::constants`, and the kernel's list of constants and pool; appends nothing to a body.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// The general register with a block's address.
int block_pointer(Layout& l, int block);

/// A constant node as a memory operand of `bits` bits.
Operand constant_operand(Layout& l, int node, int bits);

/// A constant node in a register.
int constant_register(Layout& l, int node, int bits);

}  // namespace tuvo

// The forms of a value: in whole parts, as wide as the call boundary has them (128 or 256 bits), or in halves of 128
// bits, the widest that integer instructions know. Either form is made from the other when it is first wanted: a low
// half is the low part of the whole register and costs nothing, a high half is an extract, a whole from halves is an
// insert. Touches `Layout::forms`; the making of a form appends to the body.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// Whether a node's value is there in that form already, or for nothing.
bool has(const Layout& l, int node, Shape shape);

/// The registers of a node's value in that form, which is made if need be. For constants there are the operands below.
const std::vector<int>& parts(Layout& l, int node, Shape shape);

/// A node's part as an operand that must be a register.
Operand in_register(Layout& l, int node, Shape shape, int part, int bits);
/// A node's part as an operand that may be memory.
Operand any_operand(Layout& l, int node, Shape shape, int part, int bits);

/// A part of a node's whole form in a register of its own, for what is about to be replaced or pinned.
int copied(Layout& l, int node, int part);

/// Gives a node its registers, which take its name.
void set_parts(Layout& l, int node, Shape shape, std::vector<int> registers);
/// The same, and a comment with the node's name for the instruction before.
void set_commented(Layout& l, int node, Shape shape, std::vector<int> registers);
void comment(Layout& l, int node, int part, int parts);

}  // namespace tuvo

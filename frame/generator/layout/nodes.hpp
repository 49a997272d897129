// Lays out one node of the program, whatever it is: asks the piece that knows its operation.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

void lay_out_node(Layout& l, int node);

}  // namespace tuvo

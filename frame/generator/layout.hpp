// The first step: spreads a one-lane program over a width.
#pragma once

#include <string>

#include "frame/generator/kernel.hpp"

namespace tuvo {

/// A kernel of virtual registers. `symbol` is the export's name. Throws std::invalid_argument where the description is
/// not one of the family.
Kernel lay_out(const Program& program, const BlockLayout& blocks, const Family& family, int width, std::string symbol);

}  // namespace tuvo

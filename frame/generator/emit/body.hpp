// The instructions of a body, each checked against the table and against what has been saved.
#pragma once

#include "frame/generator/emit/state.hpp"

namespace tuvo {

/// Writes them. Branches leave their sections in `Emission::outlined`.
void write_body(Emission& e, const std::vector<Instruction>& code);

}  // namespace tuvo

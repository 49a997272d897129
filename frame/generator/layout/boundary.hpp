// Entry and exit of a call: where the arguments are, what the lanes above the value hold, where results go. Touches
// `Layout::arguments`; fixes registers at entry and wishes for them at exit.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

void enter_arguments(Layout& l);

/// Registers of each output, by part, none of them an argument's or twice there.
std::vector<std::vector<int>> collect_outputs(Layout& l);

/// Stores results that go to memory, leaves the others where the caller looks for them, and ends the main section.
void lay_out_exit(Layout& l, const std::vector<std::vector<int>>& outputs);

}  // namespace tuvo

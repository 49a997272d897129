// The rare path: the section that hands lanes to the rare routine, with the repair ahead of it. Its stash and its calls
// are the emitter's; here it is said which values go there and come back. Appends to the kernel's sections.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// `outputs`: registers of each output, by part. Returns those that stand for them behind the rare path.
std::vector<std::vector<int>> lay_out_rare_path(Layout& l, const std::vector<std::vector<int>>& outputs);

}  // namespace tuvo

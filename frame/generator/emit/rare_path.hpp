// The rare path's text: the repair if there is one, the stash, the loop of calls, and the way back.
#pragma once

#include "frame/generator/emit/state.hpp"

namespace tuvo {

void write_rare_path(Emission& e, int section);

}  // namespace tuvo

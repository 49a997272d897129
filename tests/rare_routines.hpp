// The rare routines that the library holds, to be called by themselves.
#pragma once

#include "frame/description/operations.hpp"

namespace tuvo {

/// Takes addresses of the arguments, then of the outputs; ignores what it has no use for. Returns the RareStatus.
using RareRoutine = int (*)(const void*, const void*, const void*, const void*);

/// The routine of a built family that has one. Throws std::out_of_range for other families.
RareRoutine find_rare_routine(const Family& family);

}  // namespace tuvo

// The rare routines that the library holds, to be called by themselves.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "frame/description/operations.hpp"

namespace tuvo {

/// Takes addresses of the arguments, then of the outputs; ignores what it has no use for. Returns the RareStatus.
using RareRoutine = int (*)(const void*, const void*, const void*, const void*);

/// The routine of a built family that has one. Throws std::out_of_range for other families.
RareRoutine find_rare_routine(const Family& family);

/// Runs it on one lane, over the outputs as the vector path leaves them.
void run_rare_routine(const Family& family, std::span<const std::uint64_t> arguments,
                      std::vector<std::uint64_t>& outputs);

}  // namespace tuvo

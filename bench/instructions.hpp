// Peers made of a few processor instructions.
#pragma once

#include <string_view>

namespace tuvo {

/// A function of `lanes` lanes (16 or 32 bytes in all) that does an operation by the processor's divide and square root,
/// with vectors in registers; null for operations that have none.
const void* by_instructions(std::string_view operation, int lane_bytes, int lanes);

}  // namespace tuvo

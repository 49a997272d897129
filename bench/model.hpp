// What the processor model of llvm-mca says of the kernels' common paths: the same on every machine.
#pragma once

#include <string>

namespace tuvo {

/// A table of all built kernels, from the generated text: simulated cycles of a call among equal calls, the least that
/// ports and dispatch allow, the ratio of the two, micro-operations, and cycles per lane. Throws std::runtime_error if
/// llvm-mca is not installed or can't read the text.
std::string model_table();

}  // namespace tuvo

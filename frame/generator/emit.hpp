// The last step: assembler text.
#pragma once

#include <iosfwd>

#include "frame/generator/allocate.hpp"

namespace tuvo {

/// Writes the kernel as a function in GNU assembler text, with unwind information. Throws std::logic_error where the
/// code breaks a rule of the library.
void emit(std::ostream& out, const Kernel& kernel, const AllocatedKernel& allocated, const BlockLayout& blocks);

}  // namespace tuvo

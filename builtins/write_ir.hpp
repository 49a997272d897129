// The built-ins as a module in LLVM's language.
#pragma once

#include <ostream>

#include "builtins/abi.hpp"

namespace tuvo::builtins {

struct ModuleOptions {
    Abi abi;
    Plain plain = Plain::standard;
    /// Calls for one value tell the loop vectoriser which kernels do several at once.
    bool vector_variants = true;
};

/// Writes a module that defines every built-in of `catalogue(families, options.plain)` by calls of kernels.
///
/// Each definition is a small function to be inlined. It names no processor; one that passes a register of 256 bits
/// can't be compiled for a processor without AVX, where the call would be another. Attributes are those that hold:
/// `readnone` stands only where nothing but the function's own stack is touched.
void write_module(std::ostream& out, const std::vector<const Family*>& families, const ModuleOptions& options);

}  // namespace tuvo::builtins

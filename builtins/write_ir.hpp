// The built-ins as a module in LLVM's language.
#pragma once

#include <ostream>

#include "builtins/abi.hpp"

namespace tuvo::builtins {

/// How calls for one value tell the loop vectoriser of the kernels for several, and what keeps those until it has run.
enum class Variants : std::uint8_t {
    none,    ///< they don't
    listed,  ///< the kernels stand in `llvm.compiler.used`
    called,  ///< calls go by way of a small function that also calls the kernels for several values, on arguments that
             ///< hardly occur: for runtimes that copy into a program what is called by name, and nothing else
};

struct ModuleOptions {
    Abi abi;
    Plain plain = Plain::standard;
    Variants variants = Variants::listed;
};

/// Writes a module that defines every built-in of `catalogue(families, options.plain)` by calls of kernels, or by an
/// instruction that gives the kernel's bits.
///
/// Each definition is a small function to be inlined. It names no processor; one that passes a register of 256 bits
/// can't be compiled for a processor without AVX, where the call would be another. Attributes are those that hold:
/// `readnone` stands only where nothing but the function's own stack is touched.
void write_module(std::ostream& out, const std::vector<const Family*>& families, const ModuleOptions& options);

}  // namespace tuvo::builtins

// Calls of OpenCL C built-ins become calls of the library's kernels.
#pragma once

#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Module.h>

#include "client/manifest.hpp"

namespace tuvo::client {

/// What the module reads about the work-item that it runs: 64-bit integers in the module, set by whoever drives it.
/// Work-groups hold one work-item each, and there is one dimension.
struct WorkItem {
    llvm::GlobalVariable* global_id;
    llvm::GlobalVariable* global_size;
};
WorkItem work_item(llvm::Module& module);

struct BindOptions {
    bool relaxed_math = false;  ///< built-ins without a tier word take the tier "rm" where there is one
    bool scalar_libm = false;   ///< scalar functions lane by lane in the place of kernels, to compare with
};

/// Replaces every call of a built-in: by instructions if it needs no kernel (work-item functions, `vload` and `vstore`,
/// exact conversions and the like), else by a call of the kernel that the manifest lists for it. Divisions of 32-bit
/// integers become kernel calls too: the processor's own division traps on a zero divisor.
///
/// A kernel whose operation isn't a built-in of the language (`rcbrt`, `native_tanh`) can be called as well, if the
/// program declares the function with `__attribute__((overloadable))`.
///
/// Throws `Failure` if anything stays unbound, `MissingKernels` if that is only for want of kernels; the message has
/// one line for each such call: file, line, column, name.
void bind_builtins(llvm::Module& module, const Manifest& manifest, const BindOptions& options);

}  // namespace tuvo::client

// Built-ins become calls of the library's kernels, by linking a module that defines them.
#pragma once

#include <filesystem>
#include <string>

#include <llvm/IR/Module.h>

namespace tuvo::client {

/// What the module reads about the work-item that it runs: 64-bit integers in the module, set by whoever drives it.
struct WorkItem {
    llvm::GlobalVariable* global_id;
    llvm::GlobalVariable* global_size;
};
WorkItem work_item(llvm::Module& module);

struct BindOptions {
    std::filesystem::path builtins;  ///< the module to link, as bitcode or text
    bool scalar_libm = false;        ///< scalar functions lane by lane in the place of kernels, to compare with
};

/// Links what the program calls: the built-ins, and those that need no kernel (work-item functions, `vload` and the
/// like). Divisions of 32-bit integers become kernel calls too: the processor's own division traps on a zero divisor.
/// What was linked is private to the module and waits to be inlined.
///
/// A kernel whose operation isn't a built-in of the language (`rcbrt`, `native_tanh`) can be called as well, if the
/// program declares the function with `__attribute__((overloadable))`.
///
/// Throws `Failure` if the file can't be read or anything is called that has no definition, `MissingKernels` if that is
/// only for want of kernels; the message has one line for each such call: file, line, column, name.
void bind_builtins(llvm::Module& module, const BindOptions& options);

}  // namespace tuvo::client

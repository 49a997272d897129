// LLVM's optimizer, as the client uses it.
#pragma once

#include <string>

#include <llvm/IR/Module.h>

namespace tuvo::client {

/// Drops functions of the module's own that nothing calls.
void drop_unused(llvm::Module& module);

/// Inlines what is to be inlined, and drops what nothing calls.
void inline_calls(llvm::Module& module);

/// Optimizes the module for a processor with these features. `vectorize` lets loops work on several values at a time;
/// calls of kernels for one value become calls of wider ones.
void optimize(llvm::Module& module, const std::string& features, bool vectorize);

}  // namespace tuvo::client

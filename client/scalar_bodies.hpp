// The library's stand-in, to compare with: kernels that call scalar functions lane by lane.
#pragma once

#include <llvm/IR/Module.h>

namespace tuvo::client {

/// Gives each kernel that the module calls a body of calls of scalar functions, one for each lane. The bodies are to be
/// inlined.
void give_scalar_bodies(llvm::Module& module);

}  // namespace tuvo::client

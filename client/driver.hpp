// The loop over work-items that the client adds to a program for each of its kernels.
#pragma once

#include <cstdint>
#include <string>

#include <llvm/IR/Module.h>

namespace tuvo::client {

/// Runs a kernel for the global ids from `first` up to, but without, `last` of `size` ones; `first` is less than
/// `last`. `values` are addresses of the kernel's arguments.
using Driver = void(void** values, std::uint64_t first, std::uint64_t last, std::uint64_t size);

/// Name of the driver of a kernel. The narrow one is for ids below 2^31, and quicker.
std::string driver_name(const std::string& kernel, bool narrow);

/// Adds both drivers of a kernel to a module whose calls are inlined already. In the narrow one the kernel is a part of
/// the loop; the loop is marked parallel if no two work-items share memory other than through `global` pointers, which
/// those of different groups may not pass values through.
void add_drivers(llvm::Module& module, llvm::Function& kernel);

}  // namespace tuvo::client

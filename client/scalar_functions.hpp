// The scalar counterpart of the library: what a program calls lane by lane where there are no vector kernels.
#pragma once

#include "frame/description/operations.hpp"

namespace tuvo::client {

/// Address of a function that does on one value what the kernel does on a lane, by C's calling convention and with an
/// out-pointer behind the arguments: that of the C library, or a line around one. Null for operations that no
/// demonstration uses.
const void* scalar_function(const Family& family);

}  // namespace tuvo::client

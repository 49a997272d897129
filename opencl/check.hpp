// The built-ins as a runtime gives them, beside the kernels and beside exact values.
#pragma once

#include <regex>

#include "opencl/host.hpp"

namespace tuvo::opencl {

/// Runs the built-ins of the families whose names match, at every width, over telling arguments, and prints a line for
/// each family. Results must be those of the kernel to the bit, and within the family's accuracy line. Returns how many
/// families fail.
int check_families(const Host& host, const std::regex& filter);

/// Times the library's built-ins beside the runtime's own in one program, and writes a table of how many times as fast
/// they are, with geometric means. The runtime must have both: the library's under names that begin with tuvo_.
void time_families(const Host& host, const std::regex& filter, std::ostream& out);

}  // namespace tuvo::opencl

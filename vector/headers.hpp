// Headers for C and C++, and an include file for Fortran.
#pragma once

#include <ostream>
#include <vector>

#include "vector/functions.hpp"

namespace tuvo {

/// tuvo/simd.h: the functions of <math.h> again, with the attribute that lets a compiler call their vector variants.
void write_simd_header(std::ostream& out, const std::vector<CFunction>& functions);
/// The same for Fortran's intrinsic functions.
void write_fortran_include(std::ostream& out, const std::vector<CFunction>& functions);
/// A list of loops to be timed: every function of one or two numbers of one type whose results are of that type.
void write_loops(std::ostream& out, const std::vector<CFunction>& functions);
/// tuvo/kernels.h: prototypes of the kernels themselves that C can express.
void write_kernels_header(std::ostream& out, const std::vector<const Family*>& families);

}  // namespace tuvo

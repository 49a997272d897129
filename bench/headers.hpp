// Peers from libraries of headers, compiled for AVX: xsimd and Eigen.
#pragma once

#include <string_view>

namespace tuvo {

/// A function of `lanes` lanes (16 or 32 bytes in all) that does an operation by xsimd, with vectors in registers; null for
/// operations that it doesn't have, and if it wasn't there when this was built.
const void* by_xsimd(std::string_view operation, int lane_bytes, int lanes);
/// The same by Eigen's packets, for operations that it has on vectors.
const void* by_eigen(std::string_view operation, int lane_bytes, int lanes);

}  // namespace tuvo

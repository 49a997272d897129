// References for the families whose results are defined bit by bit, one function for each group of families. They go
// their own way: integer arithmetic, MPFR and the C library, not the steps of the kernels.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "frame/operations.hpp"

namespace tuvo {

/// Bit patterns of all outputs, results first, then the out-value, for one lane's arguments; nothing for a family of
/// another group.
using ExactOutputs = std::optional<std::vector<std::uint64_t>>;

/// Rounding to integral values, decomposition, selection, remainders.
ExactOutputs exact_intpart(const Family& family, std::span<const std::uint64_t> arguments);
/// Conversions between floating point and integers, and from double to float.
ExactOutputs exact_convert(const Family& family, std::span<const std::uint64_t> arguments);
/// Integer quotients and remainders.
ExactOutputs exact_intdiv(const Family& family, std::span<const std::uint64_t> arguments);

}  // namespace tuvo

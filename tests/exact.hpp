// References for the families whose results are defined bit by bit, one function for each group of families. They go
// their own way: integer arithmetic, MPFR and the C library, not the steps of the kernels.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <mpfr.h>

#include "frame/description/operations.hpp"

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
/// Correctly rounded quotients, reciprocals and roots; the fused multiply-add.
ExactOutputs exact_divroot(const Family& family, std::span<const std::uint64_t> arguments);

/// a b + c in the f32 or f64 format, rounded once in one of the processor's directions. Where the exact value is beyond
/// the largest exponent, an infinity, whatever the direction. A zero is added to the rounded product, which tells where
/// that is a zero as well.
std::uint64_t exact_fused_multiply_add(Lane lane, std::span<const std::uint64_t> arguments, mpfr_rnd_t direction);

}  // namespace tuvo

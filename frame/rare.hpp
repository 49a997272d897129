// Shared steps of the rare routines: the scalar functions that redo the lanes which a kernel cannot finish.
//
// Rare routines run between instructions of a vector kernel, without the C library and without any load-time work. They
// are compiled for plain scalar SSE2; what they share is inline.
#pragma once

#include <cstdint>

namespace tuvo {

/// What a rare routine returns: the exception class of its result. Kernels drop it.
enum class RareStatus : std::int32_t {
    ordinary = 0,   ///< also for a NaN passing through
    domain = 1,     ///< NaN made from an argument that is none
    pole = 2,       ///< infinity from a finite argument
    overflow = 3,   ///< beyond the range of the type
    underflow = 4,  ///< subnormal or zero by loss of range
};

/// The float of a bit pattern.
constexpr float f32(std::uint32_t pattern) { return __builtin_bit_cast(float, pattern); }

/// The bit pattern of a float.
constexpr std::uint32_t bits(float x) { return __builtin_bit_cast(std::uint32_t, x); }

/// Never defined: a call in a constant expression stops the compiler.
void decimal_differs_from_pattern();

/// A constant given twice, by bit pattern and by decimal value; a slip in either does not compile.
consteval float f32(std::uint32_t pattern, float decimal) {
    if (bits(decimal) != pattern) decimal_differs_from_pattern();
    return decimal;
}

/// Biased exponent, 0 to 255: 0 for zero and subnormals, 255 for infinities and NaN.
constexpr int exponent_field(float x) { return static_cast<int>(bits(x) >> 23 & 0xff); }

inline constexpr int exponent_field_all_ones = 0xff;
inline constexpr int exponent_bias = 127;

/// x with its exponent field set to that of 1: the significand, in [1, 2), with the sign of x.
constexpr float significand(float x) { return f32((bits(x) & 0x807fffff) | 0x3f800000); }

/// The same value, unknown to the compiler. Special results come from the real operation (0 / 0, -1 / 0), which sets
/// the sticky exception flags; this keeps it from being folded or hoisted.
inline float runtime(float x) {
    asm volatile("" : "+x"(x));
    return x;
}

/// Horner's scheme in v: `coefficients` behind `highest` in falling degree, down to the constant term.
template <class... Rest>
inline float horner(float v, float highest, Rest... coefficients) {
    float sum = highest;
    ((sum = sum * v + coefficients), ...);
    return sum;
}

}  // namespace tuvo

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

/// The float or double of a bit pattern.
constexpr float f32(std::uint32_t pattern) { return __builtin_bit_cast(float, pattern); }
constexpr double f64(std::uint64_t pattern) { return __builtin_bit_cast(double, pattern); }

/// The bit pattern of a float or double.
constexpr std::uint32_t bits(float x) { return __builtin_bit_cast(std::uint32_t, x); }
constexpr std::uint64_t bits(double x) { return __builtin_bit_cast(std::uint64_t, x); }

/// Never defined: a call in a constant expression stops the compiler.
void decimal_differs_from_pattern();

/// A constant given twice, by bit pattern and by decimal value; a slip in either does not compile.
consteval float f32(std::uint32_t pattern, float decimal) {
    if (bits(decimal) != pattern) decimal_differs_from_pattern();
    return decimal;
}
consteval double f64(std::uint64_t pattern, double decimal) {
    if (bits(decimal) != pattern) decimal_differs_from_pattern();
    return decimal;
}

/// The exponent field of infinities and NaN.
template <class T>
inline constexpr int exponent_field_all_ones = sizeof(T) == 4 ? 0xff : 0x7ff;
/// The exponent field of 1.
template <class T>
inline constexpr int exponent_bias = sizeof(T) == 4 ? 127 : 1023;

/// Biased exponent: 0 for zero and subnormals, `exponent_field_all_ones` for infinities and NaN.
constexpr int exponent_field(float x) { return static_cast<int>(bits(x) >> 23 & 0xff); }
constexpr int exponent_field(double x) { return static_cast<int>(bits(x) >> 52 & 0x7ff); }

/// x with its exponent field set to that of 1: the significand, in [1, 2), with the sign of x.
constexpr float significand(float x) { return f32((bits(x) & 0x807fffff) | 0x3f800000); }
constexpr double significand(double x) { return f64((bits(x) & 0x800fffffffffffff) | 0x3ff0000000000000); }

/// The same value, unknown to the compiler. Special results come from the real operation (0 / 0, -1 / 0), which sets
/// the sticky exception flags; this keeps it from being folded or hoisted.
template <class T>
inline T runtime(T x) {
    asm volatile("" : "+x"(x));
    return x;
}

/// The processor's sum and product, operands in order: of two NaNs the first survives. A compiler may swap them.
inline float add(float a, float b) {
    asm volatile("addss %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline double add(double a, double b) {
    asm volatile("addsd %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline float multiply(float a, float b) {
    asm volatile("mulss %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline double multiply(double a, double b) {
    asm volatile("mulsd %1, %0" : "+x"(a) : "x"(b));
    return a;
}

/// Horner's scheme in v: `coefficients` behind `highest` in falling degree, down to the constant term.
template <class T, class... Rest>
inline T horner(T v, T highest, Rest... coefficients) {
    T sum = highest;
    ((sum = sum * v + coefficients), ...);
    return sum;
}

}  // namespace tuvo

// Square roots and reciprocal square roots: sqrt, rsqrt.
//
// Default square roots are the processor's correctly rounded instruction. All else starts from its 12-bit reciprocal
// square root of a float, and refines it not at all or by a polynomial in the residual e = 1 - y^2 x:
//     1 / sqrt(x) = y (1 - e)^(-1/2) = y (1 + e/2 + 3/8 e^2 + 5/16 e^3 + ...).
// Without a fused multiply-add, e is kept good by an estimate with so few bits that its square is exact.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> square_root(Value<T> x) {
    return sqrt(x);
}

// Float.

constexpr std::uint32_t smallest_normal = 0x00800000;
constexpr std::uint32_t largest_finite = 0x7f7fffff;

/// Zeros, subnormals, negative numbers, infinities and NaNs, in one compare: the subtraction moves the positive normal
/// patterns to the bottom of the signed range.
void rare_unless_positive_normal(F32 x) { rare_if((bits(x) - i32(0x80800000)) > i32(0xfeffffff)); }

F32 sqrt_estimate(F32 x) { return x * reciprocal_sqrt_approximation(x); }

F32 sqrt_half(F32 x) {
    rare_unless_positive_normal(x);
    return sqrt_estimate(x);
}

F32 rsqrt_default(F32 x) {
    rare_unless_positive_normal(x);
    const F32 r = (reciprocal_sqrt_approximation(x) & f32(0xffff8000)).as("r");  // 8 fraction bits
    const F32 e = ((r * r) * x - 1.0f).as("e");
    F32 p = e * f32(0xbea00000) + f32(0x3ec00000);  // -0.3125, 0.375
    p = p * e + f32(0xbf000000);                    // -0.5
    p = e * p;
    return r + r * p;
}

/// One Newton step.
F32 rsqrt_short(F32 x) {
    rare_unless_positive_normal(x);
    const F32 r = reciprocal_sqrt_approximation(x).as("r");
    return (r * f32(0xbf000000)) * (r * (r * x) - 3.0f);  // -0.5
}

// Double.

/// The estimate in float lanes: outside their range it is that of zero or infinity, and that is left so.
F64 sqrt_native(F64 x) { return x * to_f64(reciprocal_sqrt_approximation(to_f32(x))); }

/// A zero in the kernel's own pool.
I32 zero_word() {
    const InBlock pool(InBlock::pool);
    return i32(0);
}

/// One compare of the high words, for everything outside an interval of positive numbers.
void rare_outside(I32 high, std::uint32_t offset, std::uint32_t limit) { rare_if((high - i32(offset)) > i32(limit)); }

/// 1 / sqrt(x) to 12 bits, for positive normal x, without a rounding of its own: the processor's estimate for the top
/// of the significand as a float s, times a power of two. s is in [1, 2) for an odd exponent field and in [2, 4) for an
/// even one, so that the power has a whole exponent. All steps are in words of 32 bits, four lanes to a register.
F64 rsqrt_estimate(F64 x, I32 high) {
    // 23 fraction bits, and above them the lowest bit of the exponent field, as the exponent 127 or 128 of s.
    const I32 top = low_word(bits(x) >> 29) & i32(0x00ffffff);
    const F32 s = as_float((top ^ i32(0x00800000)) + i32(0x3f800000)).as("s in [1, 4)");
    const F64 r = to_f64(reciprocal_sqrt_approximation(s)).as("r");
    // For a field f, (0xbfe - f) / 2, rounded down. The fraction of x can't borrow from it.
    const I32 field = ((i32(0xbfefffff) - high) >> 1) & i32(0x7ff00000);
    const F64 scale = as_float(join_words(field, zero_word())).as("scale");
    return (r * scale).as("y");
}

constexpr std::uint64_t rsqrt_polynomial[] = {
    0x3fd1800032338cbb,  // 0.27343754675366555
    0x3fd40000b13001d9,  // 0.31250016501874495
    0x3fd80000000000f6,  // 0.37500000000001366
    0x3fdffffffffffe71,  // 0.49999999999997785
};
constexpr std::uint64_t rsqrt_native_polynomial[] = {
    0x3fd80000c4cd9197,  // 0.37500018328707924
    0x3fe000004379adb7,  // 0.5000001256825531
    0x3fefffffffffff4f,  // 0.9999999999999803
};

F64 rsqrt_double(F64 x) {
    const I32 high = high_word(x);
    rare_outside(high, 0x83500000, 0xfc7fffff);  // [2^-970, 2^1022)
    const F64 y = rsqrt_estimate(x, high);
    const F64 t = (y * y).as("t");
    // y^2 is exact, and x in two parts keeps the large product exact where the estimate has few bits.
    const F64 head = (x & f64(0xfffffffff8000000)).as("x head");
    const F64 tail = (x - head).as("x tail");
    const F64 e = ((1.0 - t * head) - t * tail).as("e");
    return y + y * (e * horner(e, rsqrt_polynomial));
}

F64 rsqrt_native(F64 x) {
    const I32 high = high_word(x);
    rare_outside(high, 0x80300000, 0xff9fffff);  // [2^-1020, 2^1022)
    const F64 y = rsqrt_estimate(x, high);
    const F64 e = (1.0 - (y * y) * x).as("e");
    return y * horner(e, rsqrt_native_polynomial);
}

const Describe families[] = {
    {{"sqrtf"}, describe(square_root<Type::f32>), {}},
    {{"sqrtf_native"},
     describe(sqrt_estimate),
     {.ulp = 6145, .worst = {0x407ff704}, .stand_in = StandIn::high, .domain = {smallest_normal, largest_finite}}},
    {{"sqrtf_half"},
     describe(sqrt_half),
     {.ulp = 6145, .worst = {0x407ff704}, .stand_in = StandIn::high, .thresholds = {smallest_normal, largest_finite}}},
    {{"sqrt"}, describe(square_root<Type::f64>), {}},
    // The normal range of float.
    {{"sqrt_native"},
     describe(sqrt_native),
     {.ulp = 3.299e12,
      .worst = {0x3f0ffffff0000000},
      .stand_in = StandIn::low,
      .domain = {0x3810000000000000, 0x47efffffe0000000}}},
    {{"rsqrtf"},
     describe(rsqrt_default),
     {.ulp = 0.9912,
      .worst = {0x3c8110c8},
      .stand_in = StandIn::high,
      .thresholds = {smallest_normal, largest_finite}}},
    {{"rsqrtf_native", "rsqrtf_half"},
     describe(rsqrt_short),
     {.ulp = 4.825, .worst = {0x418072ac}, .stand_in = StandIn::high, .thresholds = {smallest_normal, largest_finite}}},
    {{"rsqrt"},
     describe(rsqrt_double),
     {.ulp = 1.029,
      .worst = {0x09d003bb317264aa},
      .stand_in = StandIn::alternating,
      .thresholds = {0x0350000000000000, 0x7fd0000000000000}}},
    {{"rsqrt_native"},
     describe(rsqrt_native),
     {.ulp = 277800,
      .worst = {0x41f000001ff536be},
      .stand_in = StandIn::high,
      .thresholds = {0x0030000000000000, 0x7fd0000000000000}}},
};

}  // namespace
}  // namespace tuvo

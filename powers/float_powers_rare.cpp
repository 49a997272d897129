// Rare routines of the float powers. Kernels send them bases that are no positive normal numbers, exponents that are
// not finite, and results beyond the range of normal floats or close to its ends; they give every other power too.
//
// Largest errors over 1.5 million random pairs each, in ulp:
//
//                 normals   subnormals
//     powf_rare    0.587     0.783
//     powrf_rare   1.14      0.910
//     pownf_rare   0.969     0.846
//     rootnf_rare  0.512     0.592
//
// Subnormal results are rounded twice: to 24 bits, at a scale where they are normal, and where the float ends.
#include "frame/description/rare.hpp"
#include "powers/power_classes.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
extern const float powf_stage1_rcp[9], powf_stage2_rcp[9], powf_stage3_rcp[17];
extern const float powf_stage1_log[9][2], powf_stage2_log[9][2], powf_stage3_log[17][2];
extern const float powf_exp2_pairs[128][2];  // 2^(j / 128)
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

struct Halves {
    float high, low;
};
inline Halves split(float a) {
    const float c = 4097.0f * a;
    const float high = c - (c - a);
    return {high, a - high};
}

constexpr float tiny = f32(0x00800000);   // 2^-126, whose square underflows
constexpr float large = f32(0x7f000000);  // 2^127, whose square overflows
inline float underflow(float sign) { return runtime(tiny) * tiny * sign; }
inline float overflow(float sign) { return runtime(large) * large * sign; }

/// log2 of a significand times 2^k.
struct Logarithm {
    float head;  ///< without the polynomial
    float v, lows;
};
inline Logarithm binary_logarithm(float a) {
    int k = 0;
    if (exponent_field(a) == 0) {
        a = a * 0x1p64f;
        k = -64;
    }
    // The significand is taken from 0.71875 to 1.4375, so that the logarithm has no cancellation next to 1.
    k += (static_cast<std::int32_t>(bits(a)) - 0x3f380000) >> 23;
    const float exponent = static_cast<float>(k);
    const float m = significand(a);

    const unsigned i1 = ((bits(m) & 0x780000) + 0x80000) >> 20;
    const float m1 = m * powf_stage1_rcp[i1];
    const auto [hi1, lo1] = powf_stage1_log[i1];
    const float S1 = hi1 + exponent;
    const float e1 = hi1 + (exponent - S1);

    const unsigned i2 = ((bits(m1) & 0x1e0000) + 0x20000) >> 18;
    const float m2 = m1 * powf_stage2_rcp[i2];
    const auto [hi2, lo2] = powf_stage2_log[i2];
    const float S2 = S1 + hi2;
    const float e2 = (S1 - S2) + hi2;

    const unsigned i3 = ((bits(m2) & 0x7c000) + 0x4000) >> 15;
    const float m3 = m2 * powf_stage3_rcp[i3];
    const auto [hi3, lo3] = powf_stage3_log[i3];
    const float S3 = S2 + hi3;
    const float e3 = (S2 - S3) + hi3;

    const float R = powf_stage1_rcp[i1] * powf_stage2_rcp[i2] * powf_stage3_rcp[i3];
    const float u = m3 - f32(0x3fb88000, 1.44140625f);
    float lows = ((((e1 + e2) + e3) + lo1) + lo2) + lo3;

    // What the three products lost: the exact m R less m3.
    const auto [mh, ml] = split(m);
    const auto [Rh, Rl] = split(R);
    const float D = ((mh * Rh - m3) + Rh * ml + mh * Rl) + ml * Rl;

    const float head = u + S3;
    const float e4 = (S3 - head) + u;
    lows = lows + (D + e4);
    return {head, u + D, lows};
}

/// An exponent in two parts, of which the head has 12 bits.
struct Exponent {
    float y, h, l;
};
/// How y log2 a is put together: the heads' product alone, or with the products of the second order.
enum class Product { heads, two_orders };

/// a^y for finite a > 0, times `sign`.
inline float power_core(float a, const Exponent& y, Product product, float sign) {
    const Logarithm log = binary_logarithm(a);
    const int fields = exponent_field(log.head) + exponent_field(y.y);
    if (fields >= 265)  // |y log2 a| is 2048 or more
        return has_sign(y.y) != has_sign(log.head) ? underflow(sign) : overflow(sign);
    if (fields < 193) return (1.0f + runtime(tiny)) * sign;  // below 2^-59

    const float v = log.v;
    const float P = horner(v, f32(0xbdab1ea1, -0.083554514f), f32(0x3e246f69, 0.16058125f),
                           f32(0xbeb1c35d, -0.34719363f), f32(0x3a6a6369, 0.0008941205f)) *
                    v;
    const float T1 = log.head + P;
    const float e5 = (log.head - T1) + P;
    const float T2 = T1 + log.lows;
    const float e6 = (T1 - T2) + log.lows;
    const auto [Th2, Tl2] = split(T2);
    const float low = (e6 + e5) * y.y;
    const float Ph = y.h * Th2;
    float head = Ph, rest = y.l * Tl2 + y.h * Tl2 + Th2 * y.l;
    if (product == Product::two_orders) {
        const float Pm = y.h * Tl2 + Th2 * y.l;
        head = Ph + Pm;
        rest = ((Ph - head) + Pm) + y.l * Tl2;
    }

    const float shifter = f32(0x47c00000, 98304.0f);  // 1.5 2^16: the sum's ulp is 1/128
    const float W = shifter + head;
    const unsigned j = bits(W) & 127;
    const int ne = static_cast<std::int32_t>(bits(W) << 10) >> 17;
    const float g = (head - (W - shifter)) + (low + rest);
    const auto [Th, Tl] = powf_exp2_pairs[j];
    const float excess =
        horner(g, f32(0x3d635847, 0.05550411f), f32(0x3e75fdf0, 0.2402265f), f32(0x3f317218, 0.6931472f)) * g * Th + Tl;
    const float result = excess + Th;

    const int q = exponent_field(result) + ne - 127;
    if (q >= 128) return overflow(sign);
    if (q >= -126) return f32((bits(result) & 0x807fffff) | static_cast<std::uint32_t>(q + 127) << 23) * sign;
    if (q < -159) return underflow(sign);
    // A subnormal: made 2^64 times as large, and brought down by the last product. The sum raises underflow.
    const float s = f32(static_cast<std::uint32_t>((ne + 191) & 255) << 23);
    const float down = f32(0x1f800000, 0x1p-64f), nothing = runtime(tiny) * tiny;
    if (q < -136) return (result * s * down + nothing) * sign;
    const float h = split(result).high;
    const float l = (result - h) + ((Th - result) + excess);
    return ((h * s + l * s) * down + nothing) * sign;
}

inline Exponent whole_exponent(float y) {
    const auto [h, l] = split(y);
    return {y, h, l};
}

}  // namespace

extern "C" {

RareStatus powf_rare(const float* x, const float* y, float* r) {
    return power(*x, *y, r, [exponent = *y](float a, float sign) {
        return power_core(a, whole_exponent(exponent), Product::two_orders, sign);
    });
}

RareStatus powrf_rare(const float* x, const float* y, float* r) {
    return power_of_positive(*x, *y, r, [exponent = *y](float a, float sign) {
        return power_core(a, whole_exponent(exponent), Product::heads, sign);
    });
}

RareStatus pownf_rare(const float* x, const int* n, float* r) {
    return integer_power(*x, *n, r, [n = *n](float a, float sign) {
        const float y = static_cast<float>(n);
        const auto lost = static_cast<float>(n - static_cast<std::int64_t>(y));  // by the conversion
        const float h = split(y).high;
        return power_core(a, {y, h, (y - h) + lost}, Product::heads, sign);
    });
}

RareStatus rootnf_rare(const float* x, const int* n, float* r) {
    return integer_root(*x, *n, r, [n = *n](float a) {
        const float y = static_cast<float>(n), inverse = 1.0f / y;
        const float h = split(inverse).high;
        const float d = (1.0f - y * h) - h * 0.0f;
        return power_core(a, {inverse, h, d * (1.0f + d) * h}, Product::heads, 1.0f);
    });
}

}  // extern "C"

}  // namespace tuvo

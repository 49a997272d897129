// Rare routines of the roots. Kernels send them zeros, negatives, subnormals, infinities and NaN, and rsqrt a few
// binades at the ends of the range; they give the root of every other argument too.
//
// Both methods take the significand and the parity of the exponent to an s in [1, 4), start from a table, and put half
// of the exponent back by a power of two, which is exact except for what narrowing to float rounds.
//
// Largest errors, over all positive floats: sqrtf_rare is correctly rounded, rsqrtf_rare has 0.5000 ulp. Over
// stratified doubles, rsqrt_rare has 0.5001 ulp.
#include "divroot/root_steps.hpp"
#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
extern const double sqrtf_seed_table[512];
extern const double rsqrtf_table[65];
extern const double rsqrt_table[65];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

template <class T>
inline RareStatus invalid(T* out) {
    const double zero = runtime(0.0);
    *out = static_cast<T>(zero / zero);
    return RareStatus::domain;
}

/// s in [1, 4) and e with x = 2^(2 e) s.
struct Reduced {
    double m;    ///< the significand, in [1, 2)
    double s;    ///< the significand, doubled for an odd exponent
    int parity;  ///< of the exponent
    int e;       ///< half of the exponent, rounded down
};
inline Reduced reduce(double x) {
    static constexpr double factor[] = {1.0, 2.0};
    const int exponent = exponent_field(x) - exponent_bias<double>;
    const double m = significand(x);
    return {m, m * factor[exponent & 1], exponent & 1, exponent >> 1};
}

/// 1 / sqrt(x) of a positive normal x, times 2^-a. The entry g of the table has few bits, and s is split, so that the
/// residual w = 1 - g^2 s is exact in two terms a1 - b1; then 1 / sqrt(s) = g (1 - w)^(-1/2). The linear term w / 2
/// carries most of the sum and is added in two parts, with the error of the last addition caught.
inline double reciprocal_root(double x, int a, const double (&table)[65]) {
    constexpr double split_27 = 134217728.0;  // 2^27
    const auto [m, s, parity, e] = reduce(x);
    // Adding 2^47 + 1, whose last place is 1/32, leaves 32 (m - 1) to nearest in the low bits, 0 to 32.
    const int i = static_cast<int>(bits(m + f64(0x42e0000000000020, 140737488355329.0)) & 0x3f) + 32 * parity;
    const double g = table[i];
    const auto [sh, sl] = split(s, split_27);
    const double g2 = g * g;
    const double a1 = 1.0 - sh * g2;
    const double b1 = g2 * sl;
    const double w = a1 - b1;
    double p = horner(w, f64(0x3fc91a80bfbf8b2a, 0.19612130511003417), f64(0x3fcad28a9e3226df, 0.20955021595391707),
                      f64(0x3fcce000c07a3b3e, 0.2255860271293048), f64(0x3fcf7fffec1426e4, 0.24609374072343038),
                      f64(0x3fd17ffffffe2a26, 0.273437499993323), f64(0x3fd400000000138b, 0.3125000000002777),
                      f64(0x3fd8000000000001, 0.37500000000000006));
    p = p * w * w;
    const auto [a1h, a1l] = split(a1, split_27);
    const double c2 = (b1 - a1l) * 0.5;
    p = (p - c2) * g;
    const double u = (0.5 * g) * a1h;
    const double s1 = g + u;
    const double c3 = (g - s1) + u;
    const double r = (p + c3) + s1;
    return r * power_of_field(exponent_bias<double> - (a + e));
}

/// Infinities and NaN, in their own type.
template <class T>
inline RareStatus rsqrt_of_no_number(T x, T* out) {
    constexpr T infinity = __builtin_huge_val();
    if (x == infinity) {
        *out = T(0) / x;
        return RareStatus::ordinary;
    }
    *out = x / x;
    return x == -infinity ? RareStatus::domain : RareStatus::ordinary;
}

/// Finite arguments. v is x, times 2^(-2 a).
template <class T>
inline RareStatus rsqrt_of_number(double x, double v, int a, const double (&table)[65], T* out) {
    if (v == 0.0) {
        *out = static_cast<T>(1.0 / x);
        return RareStatus::pole;
    }
    if (v < 0.0) return invalid(out);
    *out = static_cast<T>(reciprocal_root(v, a, table));
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus rsqrt_rare(const double* x, double* out) {
    const double v = *x;
    if (exponent_field(v) == exponent_field_all_ones<double>) return rsqrt_of_no_number(v, out);
    const bool subnormal = exponent_field(v) == 0;
    return rsqrt_of_number(v, subnormal ? v * 0x1p60 : v, subnormal ? -30 : 0, rsqrt_table, out);
}

/// Every float is zero or normal as a double.
RareStatus rsqrtf_rare(const float* x, float* out) {
    if (exponent_field(*x) == exponent_field_all_ones<float>) return rsqrt_of_no_number(*x, out);
    const double v = static_cast<double>(*x);
    return rsqrt_of_number(v, v, 0, rsqrtf_table, out);
}

RareStatus sqrtf_rare(const float* x, float* out) {
    constexpr float infinity = __builtin_huge_valf();
    const float f = *x;
    if (exponent_field(f) == exponent_field_all_ones<float>) {
        if (f == -infinity) return invalid(out);
        *out = f + f;
        return RareStatus::ordinary;
    }
    if (f == 0.0f) {
        *out = f;
        return RareStatus::ordinary;
    }
    if (f < 0.0f) return invalid(out);

    const bool subnormal = exponent_field(f) == 0;
    const double v = static_cast<double>(f) * (subnormal ? f64(0x4c70000000000000, 0x1p200) : 1.0);
    const auto [m, s, parity, e] = reduce(v);
    const auto [q, h] = coupled_root(s, sqrtf_seed_table[seed_index(m, parity)]);
    // One more step, with the residual s - q^2 from exact products.
    const auto [qa, qb] = split(q, split_26);
    const double residual = s - qa * qa - (2.0 * qa) * qb - qb * qb;
    const double c = h * residual;
    *out = static_cast<float>((q + c) * power_of_field(e + (subnormal ? -100 : 0) + exponent_bias<double>));
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

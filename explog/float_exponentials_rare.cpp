// Rare routines of the float exponentials. Kernels send them results beyond the range of normal floats or close to its
// ends, infinities and NaN; they give the exponential of every other argument too.
//
// All of them work in double. What is left of the double arithmetic's errors is far below a float's, also where the
// float is subnormal: no error exceeds 0.500001 ulp.

#include "explog/exponential_steps.hpp"

namespace tuvo {
namespace {

constexpr int exponent_of_2_to_minus_52 = 75;

/// e^x.
inline RareStatus natural_exponential(float x, float* r) {
    if (exponent_field(x) == exponent_field_all_ones<float>) return exponential_of_not_finite(x, r);
    const double v = x;
    if (exponent_field(x) < exponent_of_2_to_minus_52) {
        *r = static_cast<float>(1.0 + v);
        return RareStatus::ordinary;
    }
    if (!(f64(0x40562e42e0000000, 88.72283172607422) >= v)) return exponential_overflow(r);
    if (!(v >= f64(0xc059fe3680000000, -103.97207641601562))) return exponential_underflow(r);
    const Reduction a = reduce(v, natural_step);
    const double q = natural_excess(a) * a.T;
    if (!(v >= f64(0xc055d589e0000000, -87.33654022216797))) {
        *r = static_cast<float>(scaled_to_subnormal(a, q));
        return RareStatus::underflow;
    }
    *r = static_cast<float>(scaled(q + a.T, a.m));
    return RareStatus::ordinary;
}

/// 2^m T (1 + g). The scale is an ordinary double also where the float is subnormal, and the conversion rounds once.
inline RareStatus scaled_power(const Reduction& a, double g, bool is_subnormal, float* r) {
    *r = static_cast<float>((g * a.T + a.T) * power_of_two(a.m + 1023));
    return is_subnormal ? RareStatus::underflow : RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus expf_rare(const float* x, float* r) { return natural_exponential(*x, r); }

/// The kernel finishes all but large arguments: there e^x and e^x - 1 are the same float, and e^-x - 1 is -1.
RareStatus expm1f_rare(const float* x, float* r) {
    if (__builtin_isless(*x, 0.0f)) {
        *r = -1.0f;
        return RareStatus::ordinary;
    }
    return natural_exponential(*x, r);
}

RareStatus exp2f_rare(const float* x, float* r) {
    if (exponent_field(*x) == exponent_field_all_ones<float>) return exponential_of_not_finite(*x, r);
    const double v = *x;
    if (!(128.0 > v)) return exponential_overflow(r);
    if (!(v > -150.0)) return exponential_underflow(r);
    const Reduction a = reduce_binary(v);
    return scaled_power(a, binary_excess(a), v < -126.0, r);
}

RareStatus exp10f_rare(const float* x, float* r) {
    if (exponent_field(*x) == exponent_field_all_ones<float>) return exponential_of_not_finite(*x, r);
    const double v = *x;
    if (!(f64(0x4043441360000000, 38.53184127807617) >= v)) return exponential_overflow(r);
    if (!(v >= f64(0xc04693c6a0000000, -45.15449905395508))) {
        *r = 0.0f;
        return RareStatus::underflow;
    }
    const Reduction a = reduce(v, decimal_step);
    return scaled_power(a, decimal_excess(a), v <= f64(0xc042f70320000000, -37.92978286743164), r);
}

}  // extern "C"

}  // namespace tuvo

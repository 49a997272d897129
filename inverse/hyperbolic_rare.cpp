// Rare routines of the hyperbolic functions. Kernels of the sine and the cosine send them arguments whose results are
// close to the end of the range of the type or beyond, where e^-a is nothing beside e^a, infinities and NaNs; kernels
// of the tangent nothing but infinities, NaNs and the largest finite numbers. The float ones work in double.

#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (hi, lo): 2^(j / 64) rounded, and what that lacks.
extern const double hyper_exp2_pairs[64][2];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

/// The double with that exponent field.
constexpr double power_of_field(std::uint32_t field) { return f64(std::uint64_t{field} << 52); }

/// e^a / 2, for results in the range of double. a is n steps of ln(2) / 64 and a rest r of half a step at most.
inline double half_exponential(double a) {
    const double shifter = f64(0x4338000000000000, 6755399441055744.0);
    const double W = f64(0x40571547652b82fe, 92.33248261689366) * a + shifter;
    const double n = W - shifter;
    const double r =
        (a - f64(0x3f862e42fefa0000, 0.010830424696223417) * n) - f64(0x3d1cf79abc9e3b3a, 2.572804622327669e-14) * n;
    const double p =
        horner(r, f64(0x3f56c16a1c2a3ffd, 0.0013888870459233254), f64(0x3f8111123aaf20d3, 0.008333341995140497),
               f64(0x3fa5555555558fcc, 0.04166666666677052), f64(0x3fc55555555548f8, 0.1666666666665788), 0.5);
    const double q = p * r * r + r;
    const auto low = static_cast<std::uint32_t>(bits(W));
    const auto& [hi, lo] = hyper_exp2_pairs[low & 63];
    const double v = q * hi + lo + hi;
    const std::uint32_t field = ((low >> 6) + 1022) & 0x7ff;
    // There is no double 2^1024, but v may be below 1.
    if (field > 2046) return v * power_of_field(field - 1) * 2.0;
    return v * power_of_field(field);
}

/// Above it e^a / 2 is beyond the range. For float, only what is beyond by a factor of two: conversion tells the rest.
template <class T>
constexpr double overflow = sizeof(T) == 4 ? f64(0x40565a9fa0000000, 89.4159927368164)
                                           : f64(0x408633ce8fb9f87e, 710.475860073944);

template <class T>
constexpr bool is_finite(T x) {
    return exponent_field(x) != exponent_field_all_ones<T>;
}

template <class T>
inline RareStatus hyperbolic_sine(T x, T* r) {
    if (!is_finite(x)) {
        *r = add(x, x);
        return RareStatus::ordinary;
    }
    const double v = x, a = __builtin_fabs(v);
    if (a >= overflow<T>) {
        *r = static_cast<T>(runtime(f64(0x7fefffffffffffff)) * v);
        return RareStatus::overflow;
    }
    const double e = half_exponential(a);
    *r = static_cast<T>(v < 0 ? -e : e);
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus hyperbolic_cosine(T x, T* r) {
    if (!is_finite(x)) {
        *r = multiply(x, x);
        return RareStatus::ordinary;
    }
    const double a = __builtin_fabs(x);
    if (a >= overflow<T>) {
        const double largest = runtime(f64(0x7fefffffffffffff));
        *r = static_cast<T>(largest * largest);
        return RareStatus::overflow;
    }
    *r = static_cast<T>(half_exponential(a));
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus hyperbolic_tangent(T x, T* r) {
    if (x != x)
        *r = add(x, x);
    else
        *r = x < 0 ? T(-1) : T(1);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus sinhf_rare(const float* x, float* r) { return hyperbolic_sine(*x, r); }
RareStatus sinh_rare(const double* x, double* r) { return hyperbolic_sine(*x, r); }
RareStatus coshf_rare(const float* x, float* r) { return hyperbolic_cosine(*x, r); }
RareStatus cosh_rare(const double* x, double* r) { return hyperbolic_cosine(*x, r); }
RareStatus tanhf_rare(const float* x, float* r) { return hyperbolic_tangent(*x, r); }
RareStatus tanh_rare(const double* x, double* r) { return hyperbolic_tangent(*x, r); }

}  // extern "C"

}  // namespace tuvo

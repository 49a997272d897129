// Steps that the rare routines of float and double logarithms share.
//
// An argument t = 2^E m, with the significand m in [1, 2), is reduced by a short reciprocal q of m from a table:
//     log t = E log 2 - log q + log1p(m q - 1).
// m is cut in two, and its head has few bits, so that little or nothing is lost where head and reciprocal cancel.
#pragma once

#include "frame/description/rare.hpp"

namespace tuvo {

/// Scaling of subnormal arguments into the normal range, by 2^bits.
template <class T>
struct SubnormalScale {
    T factor;
    int bits;
};

/// A positive finite argument of a logarithm.
template <class T>
struct Argument {
    T t;         ///< the argument, scaled to be normal
    T exponent;  ///< E of the argument before scaling
    bool scaled;
};

/// The special cases that logarithms share; `positive(Argument)` gives the logarithm of positive finite arguments.
template <class T, class Positive>
inline RareStatus logarithm(T x, T* r, SubnormalScale<T> scale, Positive positive) {
    constexpr auto minus_infinity = bits(-static_cast<T>(__builtin_inf()));
    if (exponent_field(x) == exponent_field_all_ones<T> && bits(x) != minus_infinity) {
        *r = x * x;  // infinity stays, NaN is quieted
        return RareStatus::ordinary;
    }
    const bool scaled = exponent_field(x) == 0;
    const T t = scaled ? x * scale.factor : x;
    if (t > 0) {
        const int e = exponent_field(t) - exponent_bias<T> - (scaled ? scale.bits : 0);
        *r = positive(Argument<T>{t, static_cast<T>(e), scaled});
        return RareStatus::ordinary;
    }
    if (t == 0) {
        *r = -1 / runtime(T{0});
        return RareStatus::pole;
    }
    const T zero = runtime(T{0});
    *r = zero / zero;
    return RareStatus::domain;
}

/// A significand m = head + tail with its table entry: c, K times the reciprocal q, and hi + lo = -log(q).
template <class T>
struct Reduction {
    T head;
    T tail;
    T c;
    T hi;
    T lo;
};

/// `head_shifter` is the power of two whose addition leaves m the bits of its head.
template <class T>
inline Reduction<T> reduce(T t, const T (&table)[65][3], T head_shifter) {
    const T m = significand(t);
    // The ulp of the sum is 1/64: m - 1 to the nearest of 65 points.
    const T index_shifter = sizeof(T) == 4 ? f32(0x48000040, 131073.0f) : f64(0x42d0000000000040, 70368744177665.0);
    const unsigned i = bits(m + index_shifter) & 0x7f;
    const T head = (head_shifter + m) - head_shifter;
    return {head, m - head, table[i][0], table[i][1], table[i][2]};
}

/// The natural logarithm by a table with K = 1. e_hi and e_lo are the two terms of E ln 2; `polynomial` gives
/// (log1p(s) - s) / s^2.
template <class T, class Polynomial>
inline T natural_sum(T e_hi, T e_lo, const Reduction<T>& m, Polynomial polynomial) {
    const T u = m.head * m.c - 1;  // exact
    const T v = m.tail * m.c;
    const T s = u + v;
    return (u + (e_hi + m.hi)) + ((v + (e_lo + m.lo)) + polynomial(s) * s * s);
}

/// The decimal logarithm by a table with K = `scale`, likewise; `polynomial` gives g such that s + s g is the logarithm
/// for the scaled residual s = K (m q - 1).
template <class T, class Polynomial>
inline T decimal_sum(T e_hi, T e_lo, const Reduction<T>& m, T scale, Polynomial polynomial) {
    const T v = m.c * m.tail;
    const T u = m.head * m.c - scale;
    const T g = polynomial(u + v);
    return ((e_hi + m.hi) + u) + ((v + ((e_lo + m.lo) + v * g)) + u * g);
}

}  // namespace tuvo

// What the arc tangents of one argument and of a quotient share: polynomials of atan(q) / q in t = q^2 for |q| up to 1,
// and reciprocals from the processor's 12-bit estimate.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

/// A polynomial in t as its odd and even coefficients, two shorter chains in t^2 that run side by side:
/// t odd(t^2) + even(t^2).
template <Type T>
struct Chains {
    Value<T> odd, even;
};
/// (atan(q) / q - 1) / t, to the precision of float: the kernels add the term 1 in their own order.
Chains<Type::f32> arc_tangent_chains(F32 t2);

/// atan(q) / q of the native tiers, which reaches only 1 - 0.0002 at zero in float, 1 - 2.4e-9 in double.
F32 short_arc_tangent(F32 t);
F64 short_arc_tangent(F64 t);

/// 1 / x by one Newton step. Zero for an |x| whose estimate underflows, from 2^126 on, and a NaN for infinity.
F32 refined_reciprocal(F32 x);

}  // namespace tuvo

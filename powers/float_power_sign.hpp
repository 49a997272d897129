// Steps that the float powers in single precision share: rare lanes, signs, the last scaling.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

/// Zeros, subnormals, negative numbers, infinities, NaNs and the largest finite number go to the rare routine.
inline void rare_unless_power_base(F32 x) { rare_if((x < f32(0x00800000)) | !(x < f32(0x7f7fffff))); }

inline void rare_unless_finite(F32 y) { rare_if(!(abs(y) < f32(0x7f800000))); }

/// The sign bit of x where n is odd.
inline F32 sign_of_odd_power(F32 x, I32 n) { return as_float(n << 31) & x; }

/// The top bit is set where x has its sign bit set and n is even.
inline I32 even_power_of_negative(F32 x, I32 n) { return and_not(n << 31, bits(x)); }

/// g times 2^n, a normal number, for an n that stands in the low bits of a shifted sum. In wide parts the product
/// spares taking g apart for an integer step and joining it again.
inline F32 scaled_power_of_two(F32 g, F32 sum) {
    const F32 added = as_float((bits(sum) << 23) + bits(g));
    const F32 power = as_float((bits(sum) + i32(127)) << 23);
    return by_part_size(added, power * g);
}

}  // namespace tuvo

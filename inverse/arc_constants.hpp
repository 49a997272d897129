// Constants of both types, and a selection, that the arc functions write often.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

// clang-format off: constants of a type on one line each

template <Type T>
Value<T> constant(std::uint32_t single, std::uint64_t twice) {
    if constexpr (T == Type::f32)
        return f32(single);
    else
        return f64(twice);
}
template <Type T>
Value<T> minus_zero() {
    return constant<T>(0x80000000, 0x8000000000000000);
}
template <Type T>
Value<T> pi() {
    return constant<T>(0x40490fdb, 0x400921fb54442d18);
}  // 3.1415927, 3.141592653589793
template <Type T>
Value<T> half_pi() {
    return constant<T>(0x3fc90fdb, 0x3ff921fb54442d18);
}  // 1.5707964, 1.5707963267948966
template <Type T>
Value<T> inv_pi() {
    return constant<T>(0x3ea2f983, 0x3fd45f306dc9c883);
}  // 0.31830987, 0.3183098861837907

// clang-format on

/// A value where the mask is clear, else zero.
template <Type T>
Value<T> unless(Value<mask_of(T)> mask, Value<T> value) {
    return and_not(as_float(bits(mask)), value);
}

}  // namespace tuvo

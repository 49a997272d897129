// Fields of the floating-point formats, as the descriptions of this folder read them: through the 32-bit word of a lane
// that holds sign, exponent field and the fraction's first bits. A float is that word; of a double it is the high one.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

template <Type T>
struct Fields;
template <>
struct Fields<Type::f32> {
    static constexpr std::uint32_t exponent_mask = 0x7f800000;
    static constexpr std::uint32_t half = 0x3f000000;  ///< of 0.5
    static constexpr std::uint32_t lowest_bit = 0x00800000;
    static constexpr int shift = 23;
    static constexpr int bias = 0x7f;
    static constexpr int all_ones = 255;
};
template <>
struct Fields<Type::f64> {
    static constexpr std::uint32_t exponent_mask = 0x7ff00000;
    static constexpr std::uint32_t half = 0x3fe00000;
    static constexpr std::uint32_t lowest_bit = 0x00100000;
    static constexpr int shift = 20;
    static constexpr int bias = 0x3ff;
    static constexpr int all_ones = 2047;
};

/// A constant of either type by its pattern.
template <Type T>
Value<T> constant(std::uint32_t single, std::uint64_t twice) {
    if constexpr (T == Type::f32)
        return f32(single);
    else
        return f64(twice);
}

/// The word with sign and exponent field.
inline I32 top_word(F32 x) { return bits(x); }
inline I32 top_word(F64 x) { return high_word(x); }

/// The exponent field, where it stands in the top word.
template <Type T>
I32 exponent_bits(Value<T> x) {
    return (top_word(x) & i32(Fields<T>::exponent_mask)).as("exponent bits");
}

}  // namespace tuvo

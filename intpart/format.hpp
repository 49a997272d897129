// Bits of the floating-point formats, for the rare routines of this folder.
#pragma once

#include "frame/description/rare.hpp"

namespace tuvo {

template <class T>
struct Format;
template <>
struct Format<float> {
    using Pattern = std::uint32_t;
    static constexpr int fraction_bits = 23;
};
template <>
struct Format<double> {
    using Pattern = std::uint64_t;
    static constexpr int fraction_bits = 52;
};

template <class T>
using PatternOf = typename Format<T>::Pattern;

template <class T>
inline constexpr PatternOf<T> sign_mask = PatternOf<T>{1} << (8 * sizeof(T) - 1);
/// The lowest bit of the exponent field: the pattern of the smallest normal number.
template <class T>
inline constexpr PatternOf<T> smallest_normal = PatternOf<T>{1} << Format<T>::fraction_bits;
template <class T>
inline constexpr PatternOf<T> fraction_mask = smallest_normal<T> - 1;
/// The exponent field; alone, infinity.
template <class T>
inline constexpr PatternOf<T> exponent_mask = static_cast<PatternOf<T>>(exponent_field_all_ones<T>)
                                              << Format<T>::fraction_bits;

constexpr float value(std::uint32_t pattern) { return f32(pattern); }
constexpr double value(std::uint64_t pattern) { return f64(pattern); }

template <class T>
constexpr PatternOf<T> sign_of(T x) {
    return bits(x) & sign_mask<T>;
}
template <class T>
constexpr PatternOf<T> magnitude(T x) {
    return bits(x) & ~sign_mask<T>;
}
template <class T>
constexpr bool is_nan(T x) {
    return magnitude(x) > exponent_mask<T>;
}

/// x with another exponent field.
template <class T>
constexpr T with_exponent_field(T x, int field) {
    return value((bits(x) & ~exponent_mask<T>) | static_cast<PatternOf<T>>(field) << Format<T>::fraction_bits);
}

}  // namespace tuvo

// What the conversions share.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

/// The rounding words in the names of conversions.
struct RoundingWord {
    const char* name;
    RoundTo to;
};
inline constexpr RoundingWord rounding_words[] = {
    {"rte", RoundTo::nearest_even}, {"rtn", RoundTo::down}, {"rtp", RoundTo::up}, {"rtz", RoundTo::zero}};

/// A constant of any type by its bit pattern.
template <Type T>
Value<T> pattern(std::uint64_t bits) {
    return Value<T>(record_constant(T, bits), nullptr);
}

}  // namespace tuvo

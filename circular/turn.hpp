// What the reductions of large arguments yield, in float and in double.
#pragma once

#include "frame/description/notation.hpp"

namespace tuvo {

/// An argument by its place on the turn: x = 2 pi (k + index / N) + r for some integer k, where r has a part `low`
/// beyond its last bit. N is 256 in float, 512 in double.
template <Type T>
struct TurnRemainder {
    I32 index;        ///< point of the turn, 0 to N - 1
    Value<T> r, low;  ///< |r| up to half a step, pi / N
};

/// What the sine and the cosine of one argument share.
template <Type T>
struct SineSeries {
    Value<T> r, low;
    Value<T> sine, cosine;  ///< sin r - r and cos r - 1
};

/// Whether an argument can be negative.
enum class Sign : std::uint8_t { any, positive };

}  // namespace tuvo

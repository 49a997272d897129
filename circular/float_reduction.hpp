// The float circular functions for large arguments: reduction by the bits of 1/(2 pi), and the sine around a point of a
// table. Kernels run it out of line, on all lanes of a call that has a large one.
#pragma once

#include <array>

#include "frame/description/notation.hpp"

namespace tuvo {

/// An argument by its place on the turn: x = 2 pi (k + index / 256) + r for some integer k, where r has a part `low`
/// beyond its last bit.
struct TurnRemainder {
    I32 index;   ///< point of the turn, 0 to 255
    F32 r, low;  ///< |r| up to half a step, pi / 256
};

/// The top 64 bits of the fraction of a / (2 pi) for a >= 0, the upper word first, but for an error of a few units in
/// the last place.
struct Fraction {
    I32 upper, lower;
};
Fraction fraction_of_turn(F32 a);

/// Whether an argument can be negative.
enum class Sign : std::uint8_t { any, positive };

/// Reduces any finite x. The fraction of a turn keeps 64 bits, so that of the hardest float 30 bits remain.
TurnRemainder reduce_to_turn(F32 x, Sign sign = Sign::any);

/// Constants and series that the sine and the cosine of one argument share.
struct SineSeries {
    F32 r, low;
    F32 sine, cosine;  ///< sin r - r and cos r - 1
};
SineSeries sine_series(const TurnRemainder& argument);

/// sin(t + r), where t is the table's point of that index.
F32 sine_around(const SineSeries& series, int turn_table, I32 index);

/// Infinities and NaN go to the rare routine.
void rare_unless_finite(F32 x);

}  // namespace tuvo

// The float circular functions for large arguments: reduction by the bits of 1/(2 pi), and the sine around a point of a
// table. Kernels run it out of line, on all lanes of a call that has a large one.
#pragma once

#include <array>

#include "circular/turn.hpp"

namespace tuvo {

/// The top 64 bits of the fraction of a / (2 pi) for a >= 0, the upper word first, but for an error of a few units in
/// the last place.
struct Fraction {
    I32 upper, lower;
};
Fraction fraction_of_turn(F32 a);

/// Reduces any finite x. The fraction of a turn keeps 64 bits, so that of the hardest float 30 bits remain.
TurnRemainder<Type::f32> reduce_to_turn(F32 x, Sign sign = Sign::any);

SineSeries<Type::f32> sine_series(const TurnRemainder<Type::f32>& argument);

/// sin(t + r), where t is the table's point of that index.
F32 sine_around(const SineSeries<Type::f32>& series, int turn_table, I32 index);

/// Infinities and NaN go to the rare routine.
void rare_unless_finite(F32 x);

}  // namespace tuvo

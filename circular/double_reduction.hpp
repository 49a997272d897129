// The double circular functions for large arguments: reduction by the bits of 1/(2 pi), and the sine around a point of
// a table. Kernels run it out of line, on all lanes of a call that has a large one.
#pragma once

#include "circular/turn.hpp"

namespace tuvo {

/// The top 128 bits of the fraction of a / (2 pi) for a >= 0, the upper word first, but for an error of a few units in
/// the last place. The table of words lies in the family's second block.
struct Fraction64 {
    I64 upper, lower;
};
Fraction64 fraction_of_turn(F64 a);

/// Reduces any finite x. The fraction of a turn keeps 128 bits, so that of the hardest double 64 bits remain.
TurnRemainder<Type::f64> reduce_to_turn(F64 x, Sign sign);

/// The order of the last sums.
enum class LastSums : std::uint8_t { sine_or_cosine, both };

/// sin(t + r), where t is the table's point of that index.
SineSeries<Type::f64> sine_series(const TurnRemainder<Type::f64>& argument);
F64 sine_around(const SineSeries<Type::f64>& series, int turn_table, I32 index, LastSums sums);

/// Infinities and NaN go to the rare routine.
void rare_unless_finite(F64 x);

}  // namespace tuvo

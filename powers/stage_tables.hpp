// Tables of the three-stage logarithm to base 2 in the rare routines of the powers.
//
// A significand is brought next to 1 by three reciprocals of few bits, the last one scaled by the head of 1 / ln 2. So
// the residual of the third stage is a logarithm to base 2 already.
#pragma once

#include "frame/description/real.hpp"
#include "frame/description/tables.hpp"

namespace tuvo {

/// One stage of a format. Entry i serves values near 1 + i `step` up to entry `turn`, and from there on, for values
/// that the last stage has left just below 1, near 1 - (last - i) `step` / 2.
struct PowerStage {
    Lane lane;
    int last;  ///< the last entry
    int turn;  ///< `last` where nothing is below 1
    Real step;
    int grid;           ///< the reciprocals are multiples of 2^grid
    Real scale;         ///< of the reciprocals
    int less_one_from;  ///< from this entry on, the logarithms are less 1, which belongs to the exponent
};

/// Stages 1 to 3 of the routines in float and in double.
PowerStage float_power_stage(int number);
PowerStage double_power_stage(int number);

/// The point that entry i serves.
Real stage_point(const PowerStage& stage, int i);
/// `scale` over each point, the nearest multiple of 2^grid.
RawTable stage_reciprocals(const PowerStage& stage);
/// Entries (hi, lo) with hi + lo = -log2(reciprocal / scale). hi is cut so that sums with exponents are exact: to a
/// multiple of 2^-17 in float, to a high word in double.
RawTable stage_logarithms(const PowerStage& stage);

}  // namespace tuvo

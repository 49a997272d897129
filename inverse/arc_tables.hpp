// Tables of the arc tangents, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// 32 doubles: atan(i / 4).
RawTable atan_quarter_table();

/// 114 pairs (hi, lo) of doubles for the points c = 2^(floor(i / 2) - 3) (1.25 + 0.5 (i & 1)), which stand in the
/// middle of half binades from 0.125 on: hi is atan(c) rounded to 26 bits, hi + lo = atan(c).
RawTable atan_big_table();

}  // namespace tuvo

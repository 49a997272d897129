// Tables of the roots' rare routines, computed by their rules.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// 65 doubles: for i up to 32, 1 / sqrt(1 + i / 32); beyond, 1 / sqrt(2 (1 + (i - 32) / 32)). Each is rounded to 12
/// bits behind its leading one, so that its square is exact.
RawTable rsqrt_table();

/// 512 doubles: for i below 256, 1 / sqrt(1 + i / 256); from there on, 1 / sqrt(2 (1 + (i - 256) / 256)). Each is
/// rounded to 10 bits behind its leading one.
RawTable sqrt_seed_table();

}  // namespace tuvo

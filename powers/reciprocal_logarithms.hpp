// Natural logarithms of the reciprocals that a narrow estimate is rounded to.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// 513 doubles for the integers r from 512 to 1024, correctly rounded: -ln(r / 1024) above 724, -ln(r / 512) up to
/// there. 724 is next to 512 sqrt(2), so no value exceeds half a ln 2 by much. Entry 0 is -0.0, entry 512 is +0.0.
RawTable reciprocal_logarithms();

}  // namespace tuvo

// Conversions between kinds of lanes, moves between words and long words, and shifts by each lane's own count. Appends
// to the body and sets the node's form.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// Between integers and floating point, and between floats and doubles.
void lay_out_conversion(Layout& l, int node);
/// Between 32-bit and 64-bit integer lanes or masks.
void lay_out_words(Layout& l, int node);
void lay_out_shift_each(Layout& l, int node);

}  // namespace tuvo

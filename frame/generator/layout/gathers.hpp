// Gathers: indices go to general registers one by one, entries come back element by element, and several neighbouring
// values of each entry are sorted into vectors by unpacking. Touches `Layout::gathered`; appends to the body and sets
// the form of each value that is taken.
#pragma once

#include "frame/generator/layout/state.hpp"

namespace tuvo {

/// One of the values that a gather loads; the first that is laid out loads them all.
void lay_out_element(Layout& l, int node);

}  // namespace tuvo

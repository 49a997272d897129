// The library under test, loaded as its users load it. Its path is the compile definition TUVO_LIBRARY.
#pragma once

#include <vector>

#include "frame/description/operations.hpp"

namespace tuvo {

/// Address of the export of `family` at `width`, or null if the library does not have it. Throws std::runtime_error if
/// the library cannot be loaded.
const void* find_kernel(const Family& family, int width);

/// The families that the library has, in table order. Throws std::runtime_error if a family has some of its six widths
/// and not the others.
const std::vector<const Family*>& built_families();

}  // namespace tuvo

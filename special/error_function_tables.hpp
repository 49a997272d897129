// Tables of the error functions: the function and its slope on a uniform grid.
#pragma once

#include "frame/description/tables.hpp"

namespace tuvo {

/// The grid points k / `per_unit`, k = 0, 1, ..., `last`.
struct Grid {
    int per_unit;
    int last;

    double clamp() const { return double(last) / per_unit; }
};

/// Entries (erf(g), erf'(g)), rounded to the lane type.
RawTable erf_kernel_table(Lane lane, Grid grid);

/// Entries (2^scale erfc(g), -2^scale erfc'(g)), rounded to the lane type. The last one is (0, 0): arguments at the
/// clamp and beyond give 0 - or 2, if they are negative - whatever the distance to the grid is.
RawTable erfc_kernel_table(Lane lane, Grid grid, int scale);

}  // namespace tuvo

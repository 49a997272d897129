// Tables that rare routines of float and double logarithms have in common.
#pragma once

#include "frame/description/real.hpp"
#include "frame/description/tables.hpp"

namespace tuvo {

/// 65 entries (c, hi, lo): c = scale q with q = round(steps / (1 + i / 64)) / steps, and hi + lo = -log(q). hi is on a
/// grid of 2^`grid`, in the last entry, log 2, of 2^`log_2_grid`. That is the grid on which the routine has the log 2
/// that it takes times the exponent, so that nothing is left of the two for arguments just below 1.
inline RawTable reciprocal_table(Lane lane, const Real& scale, int steps, Real (*log)(const Real&), int grid,
                                 int log_2_grid) {
    RawTable table{.lane = lane, .fields = 3, .patterns = {}};
    for (int i = 0; i <= 64; ++i) {
        const Real q = (Real(steps) / (1 + Real(i) / 64)).rounded_to_grid(0) / steps;
        const Real value = log(1 / q);
        const Real hi = value.rounded_to_grid(i == 64 ? log_2_grid : grid);
        for (const Real& field : {scale * q, hi, value - hi}) table.patterns.push_back(field.to_pattern(lane));
    }
    return table;
}

}  // namespace tuvo

// A line chart of the entropy along a file, drawn by gnuplot.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tuvo::client {

struct Plot {
    std::string title;
    std::vector<float> values;  ///< bits per byte of consecutive blocks, 0 to 8
    float level;                ///< bits per byte of the whole file: a dashed line
    std::uint64_t step;         ///< bytes in a block
    std::uint64_t length;       ///< bytes in the file
};

/// Draws the chart as a PNG. Where several blocks share a column, the line is their mean, and a band reaches from the
/// lowest to the highest. Throws `Failure` if gnuplot can't be run or doesn't draw.
void draw_plot(const Plot& plot, const std::string& file);

}  // namespace tuvo::client

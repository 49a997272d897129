// A line chart of the entropy along a file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/demos/png.hpp"

namespace tuvo::client {

struct Plot {
    std::string title;
    std::vector<float> values;  ///< bits per byte of consecutive blocks, 0 to 8
    float level;                ///< bits per byte of the whole file: a dashed line
    std::uint64_t step;         ///< bytes in a block
    std::uint64_t length;       ///< bytes in the file
};

/// Where several blocks share a column of pixels, the line is their mean, and a band reaches from the lowest to the
/// highest.
Image draw_plot(const Plot& plot);

}  // namespace tuvo::client

// Plots of errors, drawn by gnuplot.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "report/samples.hpp"

namespace tuvo::report {

struct Plot {
    std::string title;
    std::filesystem::path file;  ///< an .svg
    Lane lane;                   ///< of the argument
    std::vector<Bin> bins;
    std::vector<double> thresholds;  ///< arguments where the method changes
    double limit = -1;               ///< in ulp, a line; none if negative
};

/// Draws them all in one run. Throws std::runtime_error if gnuplot can't be run or doesn't draw.
void draw(const std::vector<Plot>& plots);

}  // namespace tuvo::report

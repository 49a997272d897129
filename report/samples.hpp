// What the built kernels give: errors over the argument, and special values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/description/families.hpp"

namespace tuvo::report {

/// Errors of the arguments in one stretch of the axis.
struct Bin {
    double position;        ///< see `axis_position`
    double worst, typical;  ///< largest and median error, in ulp
};

/// Where an argument stands on the axis of a plot: its sign, and how many binades its magnitude is above 2^-24. All
/// binades above 2^24 share the room of thirteen.
double axis_position(Lane lane, double x);

/// Errors by first argument, ascending; further arguments are drawn at random. Empty for exact families and those without
/// an oracle.
std::vector<Bin> sample_errors(const DescribedFamily& described);

/// What a call gives for one set of special arguments, as text.
struct SpecialValue {
    std::vector<std::string> arguments, outputs;
};
std::vector<SpecialValue> special_values(const Family& family);

/// A lane's value: "1.5", "-inf", "nan", "-0".
std::string value_text(Lane lane, std::uint64_t pattern);

}  // namespace tuvo::report

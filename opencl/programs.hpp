// OpenCL C that runs one family's built-ins at several widths.
#pragma once

#include <string>
#include <vector>

#include "builtins/catalogue.hpp"

namespace tuvo::opencl {

/// A family's built-in at one width, with a pointer to global memory if it has one.
using Overloads = std::vector<builtins::Builtin>;

/// The overloads of a family by ascending width, under the name that the language has for it; empty if the family goes
/// under no name of its own.
Overloads overloads_of(const Family& family);

/// Lanes that every width divides.
inline constexpr int lanes_in_turn = 48;

/// A kernel "k" that takes an array for each argument and for each result, `lanes` long, and runs every overload over
/// all of them: results of the widths lie one behind the other.
std::string checking_program(const Overloads& overloads, int lanes);

/// A kernel "k" that runs one overload `turns` times over arrays of `lanes` values. `prefix` stands in front of the
/// built-in's name.
std::string timing_program(const builtins::Builtin& builtin, const std::string& prefix, int lanes, int turns);

}  // namespace tuvo::opencl

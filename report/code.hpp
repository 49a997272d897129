// Descriptions and generated code, as text to be shown.
#pragma once

#include <filesystem>
#include <string>

#include "frame/description/operations.hpp"

namespace tuvo::report {

/// The C++ text of the functions that describe a family, cut out of its group's sources, with the file's name above; empty
/// if it can't be found.
std::string description_text(const std::filesystem::path& sources, const Family& family);

/// The common path of a kernel, from the assembly text that the generator wrote, with its comments.
std::string kernel_text(const std::filesystem::path& generated, const Family& family, int width);

}  // namespace tuvo::report

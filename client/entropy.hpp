// The demonstration: the entropy of a file, computed by an OpenCL C program that calls the library.
#pragma once

#include <cstdint>
#include <string>

#include "client/program.hpp"

namespace tuvo::client {

struct EntropyOptions {
    std::string file;
    std::string picture;         ///< PNG to write, or empty
    std::uint32_t block = 4096;  ///< bytes for which one value is computed: 1 to 2^24, so that a float counts exactly
};

/// Prints the entropy of the file, draws it along the file, and compares the entropy of the file and of each block with
/// values computed in double. Returns whether all agree within what rounding in float explains. Throws `Failure` if the
/// file can't be read or is empty, or the picture can't be written.
bool show_entropy(const EntropyOptions& options, const Settings& settings);

}  // namespace tuvo::client

// The library's manifest: which kernels it has and how their values cross the call.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/builtins.hpp"

namespace tuvo::client {

/// A vector value of a call.
struct KernelValue {
    Scalar scalar;
    int lanes;               ///< lanes that it occupies: 4 at width 3
    std::vector<int> parts;  ///< bits of its registers, lower lanes first; empty for an integer in a general register
};

/// An exported kernel.
struct Kernel {
    std::string symbol;
    int width;
    bool in_memory;  ///< arguments on the stack, result through a hidden pointer
    std::vector<KernelValue> arguments;
    std::vector<KernelValue> results;
    std::optional<Scalar> out;  ///< element type of what the call stores through its out-pointer
};

using Manifest = std::map<KernelKey, Kernel>;

/// Reads the manifest of a library. Throws `Failure` if the file can't be read or isn't a manifest.
Manifest read_manifest(const std::filesystem::path& path);

}  // namespace tuvo::client

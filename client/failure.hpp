#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace tuvo::client {

/// Something that the user can mend: a missing file, a wrong argument, a program that doesn't compile. The message says
/// what is wrong and how to mend it; it may have several lines.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The program is sound, but asks for kernels that the library doesn't have.
struct MissingKernels : Failure {
    MissingKernels(const std::string& message, std::string names) : Failure(message), builtins(std::move(names)) {}
    std::string builtins;  ///< that ask for them: "exp(float8), log(double4)"
};

}  // namespace tuvo::client

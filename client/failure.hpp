#pragma once

#include <stdexcept>

namespace tuvo::client {

/// Something that the user can mend: a missing file, a wrong argument, a program that doesn't compile. The message says
/// what is wrong and how to mend it; it may have several lines.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace tuvo::client

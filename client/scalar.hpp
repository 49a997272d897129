// The element types of OpenCL C, under the client's own names.
#pragma once

#include "builtins/scalar.hpp"

namespace tuvo::client {

using tuvo::find_scalar;
using tuvo::Scalar;
using tuvo::scalars;
using tuvo::ScalarTraits;
using tuvo::traits;

}  // namespace tuvo::client

// Schedules and allocates: several ways, of which the cheapest is kept.
#pragma once

#include "frame/generator/allocate.hpp"

namespace tuvo {

/// Tries several policies and register budgets; first for the main section, then for the others.
AllocatedKernel compile(const Kernel& kernel);

}  // namespace tuvo

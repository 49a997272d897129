// Operations that the processor has an instruction for.
#pragma once

#include <optional>
#include <vector>

#include "builtins/kernel_call.hpp"

namespace tuvo::builtins {

/// The family's result by LLVM's own instruction or intrinsic, if every processor with AVX has one that gives the
/// kernel's bits: a compiler can fold, combine and widen it, and a call would cost more than the work. Nothing for all
/// other families.
std::optional<Operand> in_place(Body& body, Declarations& declarations, const Family& family,
                                const std::vector<Operand>& arguments);

}  // namespace tuvo::builtins

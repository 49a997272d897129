// The second step: the order of a section's instructions.
#pragma once

#include "frame/generator/kernel.hpp"

namespace tuvo {

/// What the scheduler prefers among instructions that are ready.
enum class Policy : std::uint8_t {
    longest_chain,  ///< the one with the longest way to the end still before it
    as_written,     ///< the order of the description, the parts side by side
    depth_first,    ///< the one whose operands were made last: fewest values alive
};

struct Scheduled {
    std::vector<Instruction> order;
    int cycles = 0;  ///< length in a model of the first processors with AVX
};

/// Reorders a body. Once `pressure` vector registers are alive, instructions that add to them wait.
Scheduled schedule(const Kernel& kernel, const std::vector<Instruction>& body, Policy policy, int pressure);

}  // namespace tuvo

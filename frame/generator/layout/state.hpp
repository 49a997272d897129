// What a layout under way consists of. Each field belongs to one piece, which alone changes it; the others ask that
// piece.
#pragma once

#include <array>
#include <map>
#include <utility>

#include "frame/generator/layout/code.hpp"
#include "frame/generator/layout/plan.hpp"

namespace tuvo {

/// A value's virtual registers in each form; empty until made.
struct Forms {
    std::vector<int> whole, half;
};

/// Registers that are read again from memory whenever they are wanted.
struct Constants {
    std::vector<int> pointers;                     ///< by block: its pointer, -1 until wanted
    std::map<std::pair<int, int>, int> registers;  ///< by node and bits
};

struct Layout {
    const Plan plan;
    Code code;                                   ///< code: the kernel as far as it goes
    Constants constants;                         ///< constants
    std::vector<Forms> forms;                    ///< forms: by node
    std::map<int, std::vector<Forms>> gathered;  ///< gathers: by gather node, the values that it has loaded
    std::vector<std::vector<int>> rare_lanes;    ///< sections: by section, rare masks that sections inside it found
    std::array<std::vector<int>, 3> arguments;   ///< boundary: the parts of each argument, lower lanes first
};

}  // namespace tuvo

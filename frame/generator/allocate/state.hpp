// What an allocation under way consists of.
#pragma once

#include <array>
#include <limits>
#include <utility>

#include "frame/generator/allocate.hpp"

namespace tuvo {

/// Where a value is: in a register, in a spill slot, in both, or nowhere.
struct Location {
    int reg = -1;   ///< physical register
    int slot = -1;  ///< spill slot
};

/// Where all values are, seen from both sides.
struct Registers {
    std::vector<Location> values;  ///< by virtual register
    /// By file and physical register: the value in it, -1 for none.
    std::array<std::array<int, vector_registers>, 2> held;
};

inline constexpr int never = std::numeric_limits<int>::max();

/// The body that is being allocated: where it uses each value.
struct Body {
    int section = 0;
    std::vector<std::vector<int>> uses;  ///< by virtual register: positions in the body, ascending
};

struct Allocation {
    const Kernel& kernel;
    const std::vector<std::vector<Instruction>>& bodies;  ///< by section
    std::array<int, 2> limits;                            ///< by file: physical registers that may be used
    std::vector<int> hints;  ///< by virtual register: the physical register where it is wanted, -1 for none

    Registers registers;
    int position = 0;                           ///< in the body
    std::vector<Instruction>* code;             ///< where instructions go
    std::vector<int> locked;                    ///< values that must stay in their registers
    std::vector<std::pair<File, int>> reading;  ///< physical registers that the instruction at hand reads

    int saver = 0;                                            ///< the section that saves what is written now
    std::vector<std::array<bool, vector_registers>> touched;  ///< by section that saves: what it and those in it write
    int next_outline_slot = section_slots;
    int cost = 0;  ///< instructions added so far
    AllocatedKernel result;
};

}  // namespace tuvo

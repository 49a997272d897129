// The third step: physical registers, spills and reloads.
#pragma once

#include <vector>

#include "frame/generator/kernel.hpp"

namespace tuvo {

/// A kernel's section after allocation: its registers are physical.
struct AllocatedSection {
    std::vector<Instruction> code;     ///< sources and dst are physical registers
    std::vector<Instruction> restore;  ///< out of line: puts the state back that the way back expects
    std::vector<int> saved;  ///< preserved vector registers that this section alone writes, nested ones included
};

/// Where a register of the rare path is: one of the kinds.
struct Place {
    enum class Kind : std::uint8_t { reg, spill, memory };
    Kind kind = Kind::reg;
    int reg = -1;   ///< physical register
    int slot = -1;  ///< spill slot
    Memory memory;  ///< of stack arguments
    int bits = 128;
};

/// A value that goes to the stash, part by part, and comes back if it is an output.
struct StashedValue {
    std::vector<Place> from;  ///< where the calls of the rare routine find it
    std::vector<Place> to;    ///< where the main section expects it afterwards; empty for inputs
};

struct RarePlaces {
    int condition = -1;  ///< physical general register with the rare mask
    std::vector<StashedValue> inputs, outputs;
};

struct AllocatedKernel {
    std::vector<AllocatedSection> sections;
    int main_slots = 0, outline_slots = 0;
    std::vector<int> saved;  ///< preserved vector registers that the main section or a repair writes
    RarePlaces rare;
    int cost = 0;          ///< instructions that the allocation added to the main section
    int outline_cost = 0;  ///< and to out-of-line sections
};

/// Spill slots below this number belong to the main section, those from it on to out-of-line sections.
inline constexpr int section_slots = 1000;

/// Spill slots that fit under the stack pointer without moving it.
inline constexpr int red_zone_slots = 3;

/// Number of physical registers by file: ymm0 to ymm15; rax, rcx, rdx, r8 to r11.
inline constexpr int vector_registers = 16, general_registers = 7;

/// Gives every virtual register a physical one, `vectors` of them from ymm0 up in the main section and in repairs; an
/// any-lane section has all, and saves on its own what it must. Values that don't fit are spilled, farthest next use
/// first; constants and stack arguments are re-read instead. `bodies`: by section, its instructions in their order.
AllocatedKernel allocate(const Kernel& kernel, const std::vector<std::vector<Instruction>>& bodies, int vectors);

}  // namespace tuvo

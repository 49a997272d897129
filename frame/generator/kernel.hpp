// Kernels as lists of machine instructions over virtual registers: what lies between a recorded program and text.
//
//     layout    program, width      -> Kernel: instructions in recording order, sections apart
//     schedule  a section's body    -> the same instructions in another order
//     allocate  the whole kernel    -> physical registers, spills and reloads put in
//     emit      the allocated kernel-> GNU assembler text
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "frame/generator/blocks.hpp"
#include "frame/generator/instructions.hpp"
#include "frame/description/program.hpp"

namespace tuvo {

enum class File : std::uint8_t { vector, general };

/// An address. Offsets are in bytes.
struct Memory {
    enum class Base : std::uint8_t {
        none,
        block,     ///< a constant block, through the register that holds its pointer
        pool,      ///< the kernel's own constants, relative to the code
        slots,     ///< the block pointer table, relative to the code
        argument,  ///< stack arguments of the memory form, from the first word above the return address
        result,    ///< the hidden result buffer
        out,       ///< the out-pointer's target
        spill,     ///< a spill slot; the offset is the slot's number
    };
    Base base = Base::none;
    int block = 0;     ///< which block; also for `slots`
    int pointer = -1;  ///< virtual register with the block's pointer
    int index = -1;    ///< virtual general register added to the address
    std::int64_t offset = 0;
};

struct Operand {
    enum class Kind : std::uint8_t { reg, memory, fixed };
    Kind kind = Kind::reg;
    int reg = -1;  ///< virtual register; physical after allocation
    File file = File::vector;
    int bits = 0;  ///< size of what is read
    Memory memory;
    const char* fixed = nullptr;  ///< a register outside the allocator's reach: "edi"
};

struct Instruction {
    enum class Kind : std::uint8_t {
        plain,
        branch,  ///< to an out-of-line section: tests a general register, comes back with `joined` values
        rare,    ///< to the rare path; always the last branch of the main section
        end,     ///< end of a section: its uses are what must be in place then
    };
    Kind kind = Kind::plain;
    Mnemonic mnemonic{};
    int dst = -1;  ///< virtual register written; physical after allocation
    File dst_file = File::vector;
    int dst_bits = 0;
    Operand target;  ///< of stores: where to; kind memory
    bool is_store = false;
    std::vector<Operand> sources;
    int immediate = -1;
    int section = -1;       ///< of branch and rare: index into Kernel::sections
    std::vector<int> uses;  ///< of branch, rare and end: registers that must be alive
    std::string comment;
};

struct VirtualRegister {
    File file = File::vector;
    int bits = 128;
    int fixed = -1;          ///< physical register at entry
    int hint = -1;           ///< physical register where it is wanted
    int rematerialize = -1;  ///< index into Kernel::constants: it is re-read from there, never spilled
    std::string name;
};

struct Joined {
    int before, after, joined;
};

/// A value on the rare path's stash: its parts, lower lanes first.
struct StashArray {
    std::vector<int> parts;  ///< registers
    int element_bytes = 4;
};

struct KernelSection {
    Section::Kind kind = Section::Kind::main;
    bool is_rare = false;  ///< the rare path; its body is the repair, if any
    int condition = -1;    ///< general register tested on the way in
    int cut = 0;           ///< bits of it that count, 0 for all
    std::vector<Instruction> body;
    std::vector<Joined> joins;  ///< values that the section replaces
    int repaired_mask = -1;     ///< after the repair: the remaining rare lanes
    std::vector<StashArray> inputs, outputs;
};

struct Kernel {
    const Family* family = nullptr;
    std::string symbol;
    int width = 1;
    Form form = Form::registers;
    Preserved preserved = Preserved::upper_vectors_and_pointers;
    std::vector<VirtualRegister> registers;
    std::vector<Instruction> constants;  ///< loads by which registers are rematerialized
    std::vector<KernelSection> sections{KernelSection{}};
    std::vector<PoolItem> pool;
    bool returns_256 = false;
    bool works_256 = false;  ///< executes 256-bit instructions
};

/// Spreads a program over a width. `symbol` is the export's name.
Kernel lay_out(const Program& program, const BlockLayout& blocks, const Family& family, int width, std::string symbol);

/// What the scheduler prefers among instructions that are ready.
enum class Policy : std::uint8_t {
    longest_chain,  ///< the one with the longest way to the end still before it
    as_written,     ///< the order of the description, the parts side by side
    depth_first,    ///< the one whose operands were made last: fewest values alive
};

/// Reorders a body. Once `pressure` vector registers are alive, instructions that add to them wait. `cycles` is the
/// length in a model of the first processors with AVX.
std::vector<Instruction> schedule(const Kernel& kernel, const std::vector<Instruction>& body, Policy policy,
                                  int pressure, int& cycles);

/// A kernel's section after allocation: its registers are physical.
struct AllocatedSection {
    std::vector<Instruction> code;     ///< sources and dst are physical registers
    std::vector<Instruction> restore;  ///< out of line: puts the state back that the way back expects
    std::vector<int> saved;  ///< preserved vector registers that this section alone writes, nested ones included
};

/// Where a value of the rare path is when the path begins.
struct Place {
    enum class Kind : std::uint8_t { reg, spill, memory };
    Kind kind = Kind::reg;
    int reg = -1;   ///< physical register
    int slot = -1;  ///< spill slot
    Memory memory;  ///< of stack arguments
    int bits = 128;
};

struct RarePlaces {
    int condition = -1;                               ///< physical general register with the rare mask
    std::vector<std::vector<Place>> inputs, outputs;  ///< where they are found
    std::vector<std::vector<Place>> results;          ///< where the outputs are wanted on the way back
};

/// Spill slots below this number belong to the main section, those from it on to out-of-line sections.
inline constexpr int section_slots = 1000;

struct AllocatedKernel {
    std::vector<AllocatedSection> sections;
    int main_slots = 0, outline_slots = 0;
    std::vector<int> saved;  ///< preserved vector registers that the main section or a repair writes
    RarePlaces rare;
    int cost = 0;          ///< instructions that the allocation added to the main section
    int outline_cost = 0;  ///< and to out-of-line sections
};

/// Spill slots that fit under the stack pointer without moving it.
inline constexpr int red_zone_slots = 3;

/// Number of physical registers by file: ymm0 to ymm15; rax, rcx, rdx, r8 to r11.
inline constexpr int vector_registers = 16, general_registers = 7;

/// Gives every virtual register a physical one, `vectors` of them from ymm0 up in the main section and in repairs; an
/// any-lane section has all, and saves on its own what it must. Values that don't fit are spilled, farthest next use
/// first; constants and stack arguments are re-read instead.
AllocatedKernel allocate(const Kernel& kernel, const std::vector<std::vector<Instruction>>& bodies, int vectors);

/// Whether the kernel executes `vzeroupper` on its way out: it did 256-bit work and returns nothing in a whole
/// register. That clears the upper halves of all registers, so in the register form ymm8 to ymm15 are saved at entry.
bool clears_upper_halves(const Kernel& kernel);

/// Schedules and allocates with several register budgets and keeps the cheapest; first for the main section, then for
/// the others.
AllocatedKernel compile(const Kernel& kernel);

/// Writes the kernel as a function in GNU assembler text, with unwind information. Throws std::logic_error where the
/// code breaks a rule of the library.
void emit(std::ostream& out, const Kernel& kernel, const AllocatedKernel& allocated, const BlockLayout& blocks);

}  // namespace tuvo

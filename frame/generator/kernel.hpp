// Kernels as lists of machine instructions over virtual registers: what lies between a recorded program and text.
//
//     layout    program, width        -> Kernel: instructions in recording order, sections apart
//     schedule  a section's body      -> the same instructions in another order
//     allocate  the whole kernel      -> AllocatedKernel: physical registers, spills and reloads put in
//     emit      the allocated kernel  -> GNU assembler text
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/description/program.hpp"
#include "frame/generator/blocks.hpp"
#include "frame/generator/instructions.hpp"

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
        unless_nearest,  ///< to a general register: zero if the source is and the x87 control word rounds to nearest, else
                         ///< `immediate`
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

/// A value that a section replaces. Where the section doesn't run, `joined` is `before`; where it does, `after`.
struct Joined {
    int before, after, joined;
};

/// A value on the rare path's stash: its parts, lower lanes first.
struct StashArray {
    std::vector<int> parts;  ///< registers
    int element_bytes = 4;
};

/// What the rare path works on. Its section's body is the repair, if there is one.
struct RarePath {
    std::vector<StashArray> inputs, outputs;
    std::optional<int> remaining;  ///< after a repair: general register with the lanes that are rare still
};

/// The main section, or one that lies out of line. Sections of the program that need no code of their own are empty.
struct KernelSection {
    std::vector<Instruction> body;
    int condition = -1;            ///< out of line: general register tested on the way in
    int cut = 0;                   ///< bits of it that count, 0 for all
    std::vector<Joined> joins;     ///< values that the section replaces
    std::optional<RarePath> rare;  ///< of the rare path alone
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

/// Whether the kernel executes `vzeroupper` on its way out: it did 256-bit work and returns nothing in a whole
/// register. That clears the upper halves of all registers, so in the register form ymm8 to ymm15 are saved at entry.
inline bool clears_upper_halves(const Kernel& kernel) { return kernel.works_256 && !kernel.returns_256; }

}  // namespace tuvo

// The table of instructions: what the generator knows of each one that it can write. Layout, allocator and emitter name
// instructions by identifiers from it; scheduler, allocator and emitter ask it.
#pragma once

#include <cstdint>
#include <string_view>

namespace tuvo {

enum class Mnemonic : std::uint8_t {
#define INSTRUCTION(identifier, ...) identifier,
#include "frame/generator/instructions.inc"
#undef INSTRUCTION
};

/// Where an instruction begins its work, in a model of the first processors with AVX. Those before `integer` take one
/// instruction a cycle.
enum class Unit : std::uint8_t { multiply, add, shuffle, integer, load, any };

/// Widths of the vector registers that an instruction works on; `general` if it knows none.
enum class Widths : std::uint8_t { only_128, any_width, general };

/// What a memory operand reads or writes: as much as the instruction's vector register has, half of that, or a fixed
/// number of bytes.
enum class MemorySize : std::uint8_t { none, whole, half, bytes_4, bytes_8, bytes_16 };

/// Who writes an instruction: layout and allocator into bodies, or only the emitter, around them or on the rare path.
enum class Where : std::uint8_t { body, around, rare_path };

/// A row of the table; its columns are told in instructions.inc.
struct InstructionRow {
    std::string_view name;
    std::string_view operands;
    Widths widths;
    Unit unit;
    int latency_128, latency_256;
    MemorySize memory;
    Where where;
};

const InstructionRow& row_of(Mnemonic mnemonic);

/// Bits that a memory operand reads or writes if the instruction works on registers of `bits` bits; 0 without one.
int memory_bits(Mnemonic mnemonic, int bits);

/// Whether the last operand, apart from an immediate, may be a register as well as memory.
bool last_may_be_memory(Mnemonic mnemonic);

/// One of four instructions that do the same to floating-point lanes.
struct FloatForms {
    Mnemonic packed_single, packed_double, scalar_single, scalar_double;
};

}  // namespace tuvo

// Writes instructions: into the body of the section that is being laid out, with new registers for what they yield.
// This piece knows registers and memory, but no values and no plan.
#pragma once

#include "frame/generator/kernel.hpp"

namespace tuvo {

struct Code {
    Kernel kernel;
    int section = 0;  ///< whose body grows
};

int new_register(Code& code, int bits, File file = File::vector);
/// A register as an operand, read as wide as it is or as `bits` says.
Operand reg(const Code& code, int r, int bits = 0);
Operand memory_operand(const Memory& memory, int bits);
/// A register outside the allocator's reach: "edi".
Operand fixed_operand(const char* name, int bits);

std::vector<Instruction>& body(Code& code);

/// Appends an instruction that yields a vector of `bits` bits. Returns its register, as all of these do.
int emit(Code& code, Mnemonic mnemonic, int bits, std::vector<Operand> sources, int immediate = -1);
/// The same for a general register.
int emit_general(Code& code, Mnemonic mnemonic, int bits, std::vector<Operand> sources, int immediate = -1);
void emit_store(Code& code, Mnemonic mnemonic, const Memory& target, int bits, int source, int source_bits);
/// The mask in a general register unless MXCSR and the x87 control word both round to nearest; then zero. What MXCSR says
/// shows when 0.5 and 1.5 are rounded to integers, which takes a third of the time that it takes to store it.
int emit_unless_nearest(Code& code, int mask);
/// A section's end, with the registers that must be in place then.
void emit_end(Code& code, std::vector<int> uses);

/// The upper 128 bits of a register.
int upper_half(Code& code, int r);
/// One register of two halves.
int joined(Code& code, int low, int high);

/// A register that a load fills whenever it is wanted and doesn't hold the value any more.
int rematerialized(Code& code, Mnemonic mnemonic, const Operand& source, int bits, File file, std::string name);

/// A constant of the kernel's own pool.
Memory pool_item(Code& code, std::vector<std::uint8_t> bytes, std::string what);

}  // namespace tuvo

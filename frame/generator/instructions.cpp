#include "frame/generator/instructions.hpp"

namespace tuvo {
namespace {

/// The identifier without the underscore that keeps it apart from a word of C++.
constexpr std::string_view spelling(std::string_view identifier) {
    return identifier.ends_with('_') ? identifier.substr(0, identifier.size() - 1) : identifier;
}

constexpr InstructionRow table[] = {
#define INSTRUCTION(identifier, operands, widths, unit, latency_128, latency_256, memory, where) \
    {spelling(#identifier), operands,    Widths::widths,     Unit::unit,                         \
     latency_128,           latency_256, MemorySize::memory, Where::where},
#include "frame/generator/instructions.inc"
#undef INSTRUCTION
};

}  // namespace

const InstructionRow& row_of(Mnemonic mnemonic) { return table[int(mnemonic)]; }

int memory_bits(Mnemonic mnemonic, int bits) {
    switch (row_of(mnemonic).memory) {
    case MemorySize::whole: return bits;
    case MemorySize::half: return bits / 2;
    case MemorySize::bytes_4: return 32;
    case MemorySize::bytes_8: return 64;
    case MemorySize::bytes_16: return 128;
    case MemorySize::none: break;
    }
    return 0;
}

bool last_may_be_memory(Mnemonic mnemonic) {
    std::string_view operands = row_of(mnemonic).operands;
    operands = operands.substr(0, operands.find('|'));
    if (operands.ends_with(" i")) operands.remove_suffix(2);
    return operands.ends_with('m');
}

}  // namespace tuvo

// The table of instructions against the assembler: every alternative of every row is an instruction, and a memory
// operand reads and writes as many bytes as the table says, or the assembler would refuse the pointer's size.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "frame/generator/instructions.hpp"

namespace tuvo {
namespace {

constexpr Mnemonic all[] = {
#define INSTRUCTION(identifier, ...) Mnemonic::identifier,
#include "frame/generator/instructions.inc"
#undef INSTRUCTION
};

std::string memory_operand(int bits) {
    const char* size = bits == 32 ? "dword" : bits == 64 ? "qword" : bits == 128 ? "xmmword" : "ymmword";
    return std::string(size) + " ptr [rax + 64]";
}

std::string vector_register(int number, int bits) { return (bits == 256 ? "ymm" : "xmm") + std::to_string(number); }

/// Instructions whose vector operands are not all of one width: sizes of destination and source, in whole registers.
struct Narrowing {
    Mnemonic mnemonic;
    bool narrow_target, narrow_last;
};
constexpr Narrowing narrowing[] = {
    {Mnemonic::vcvtdq2pd, false, true},   {Mnemonic::vcvtps2pd, false, true},  {Mnemonic::vcvtpd2ps, true, false},
    {Mnemonic::vcvtpd2dq, true, false},   {Mnemonic::vcvttpd2dq, true, false}, {Mnemonic::vextractf128, true, false},
    {Mnemonic::vinsertf128, false, true},
};

/// A line of assembler text for one alternative ("v v m i"), with memory operands where `memory` says so.
std::string spelled(Mnemonic mnemonic, const std::string& alternative, int bits, bool memory) {
    const auto exception = std::ranges::find(narrowing, mnemonic, &Narrowing::mnemonic);
    const bool found = exception != std::end(narrowing);
    const std::size_t immediate = alternative.ends_with(" i") ? 2 : 0;
    std::string text = "    " + std::string(row_of(mnemonic).name);
    for (std::size_t k = 0; k < alternative.size(); k += 2) {
        const bool last = k + 1 + immediate == alternative.size();
        const bool narrow = found && (k == 0 ? exception->narrow_target : last && exception->narrow_last);
        text += k == 0 ? " " : ", ";
        switch (alternative[k]) {
        case 'i': text += "1"; break;
        case 'g': text += bits == 64 ? "rcx" : "ecx"; break;
        case 'v': text += vector_register(int(k), narrow ? 128 : bits); break;
        default:
            text += memory || alternative[k] == 'M' ? memory_operand(memory_bits(mnemonic, bits))
                                                    : vector_register(int(k), narrow ? 128 : bits);
        }
    }
    return text + "\n";
}

/// Sizes of registers at which a row is tried. Extracts and inserts exist at 256 bits alone; vmovq and movsxd take a
/// general register of 64 bits.
std::vector<int> sizes(Mnemonic mnemonic) {
    if (mnemonic == Mnemonic::vextractf128 || mnemonic == Mnemonic::vinsertf128) return {256};
    switch (row_of(mnemonic).widths) {
    case Widths::any_width: return {128, 256};
    case Widths::only_128: return {128};
    default: return {32, 64};
    }
}

TEST(Instructions, TheAssemblerKnowsEveryRowWithItsOperandsAndMemorySizes) {
    std::string text = "    .intel_syntax noprefix\n    .text\n";
    int lines = 0;
    for (const Mnemonic mnemonic : all) {
        const InstructionRow& row = row_of(mnemonic);
        if (row.where != Where::body) continue;
        std::istringstream alternatives{std::string(row.operands)};
        for (std::string alternative; std::getline(alternatives, alternative, '|');) {
            if (row.widths == Widths::general && alternative == "g g g")
                alternative = "g g";  // written as two operands
            if (mnemonic == Mnemonic::shl) alternative = "g i";
            for (const int bits : sizes(mnemonic))
                for (const bool memory : {false, true}) {
                    std::string line = spelled(mnemonic, alternative, bits, memory);
                    if (mnemonic == Mnemonic::vmovq) line.replace(line.find("ecx"), 3, "rcx");
                    if (mnemonic == Mnemonic::movsxd) line = "    movsxd rcx, ecx\n";
                    text += line, ++lines;
                }
        }
    }
    EXPECT_GT(lines, 300);
    const std::filesystem::path source = std::filesystem::path(testing::TempDir()) / "tuvo_instructions.s";
    std::ofstream(source) << text;
    const std::string command =
        std::string(TUVO_CXX) + " -march=x86-64 -c " + source.string() + " -o " + source.string() + ".o";
    EXPECT_EQ(std::system(command.c_str()), 0) << text;
    std::filesystem::remove(source);
    std::filesystem::remove(source.string() + ".o");
}

TEST(Instructions, OperandsThatMayBeReadFromMemoryHaveASize) {
    for (const Mnemonic mnemonic : all) {
        const InstructionRow& row = row_of(mnemonic);
        const bool memory = row.operands.find_first_of("mM") != std::string_view::npos && row.where == Where::body;
        EXPECT_EQ(memory_bits(mnemonic, 128) > 0, memory) << row.name;
        EXPECT_LE(last_may_be_memory(mnemonic), memory) << row.name;
    }
}

}  // namespace
}  // namespace tuvo

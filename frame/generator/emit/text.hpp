// Lines of assembler text: operands, addresses, labels, instructions. Writes to `Emission::out`, changes nothing else.
#pragma once

#include <string>

#include "frame/generator/emit/state.hpp"

namespace tuvo {

[[noreturn]] void fail(const Emission& e, const std::string& what);

/// "ymm3", "eax".
std::string register_name(File file, int reg, int bits);
/// "ymmword ptr [rsp + 64]": so many bytes above rsp.
std::string frame_address(std::int64_t offset, int bits);
std::string slot_address(const Emission& e, int slot, int bits);
std::string memory_address(const Emission& e, const Memory& memory, int bits);
std::string operand_text(const Emission& e, const Operand& o);

/// ".Lout2_logf8", for instance.
std::string label(const Emission& e, const std::string& what, int section);
void write_label(Emission& e, const std::string& what, int section);
void write_directive(Emission& e, const std::string& directive);
/// One instruction. Refuses what is the rare path's own elsewhere.
void write_line(Emission& e, Mnemonic mnemonic, const std::string& operands = "", const std::string& comment = "");

void write_pool(Emission& e);

}  // namespace tuvo

#include "frame/generator/emit/text.hpp"

#include <stdexcept>

namespace tuvo {
namespace {

const char* const general_32[] = {"eax", "ecx", "edx", "r8d", "r9d", "r10d", "r11d"};
const char* const general_8[] = {"al", "cl", "dl", "r8b", "r9b", "r10b", "r11b"};
const char* const general_64[] = {"rax", "rcx", "rdx", "r8", "r9", "r10", "r11"};

const char* size_name(int bits) {
    switch (bits) {
    case 32: return "dword ptr ";
    case 64: return "qword ptr ";
    case 128: return "xmmword ptr ";
    case 256: return "ymmword ptr ";
    default: throw std::logic_error("a memory operand of " + std::to_string(bits) + " bits");
    }
}

std::string plus(std::int64_t offset) {
    if (offset == 0) return "";
    return (offset > 0 ? " + " : " - ") + std::to_string(offset > 0 ? offset : -offset);
}

std::string block_address(const Emission& e, const Memory& m, int bits) {
    const ConstBlock& block = e.blocks.blocks.at(m.block);
    if (m.index < 0 && (m.offset < 0 || m.offset + bits / 8 > block.size))
        fail(e, "a row is read outside " + block.symbol);
    const std::string index = m.index < 0 ? "" : std::string(" + ") + general_64[m.index];
    return std::string("[") + general_64[m.pointer] + index + plus(m.offset) + "]";
}

std::string bare_slot_address(const Emission& e, int slot) {
    if (slot >= section_slots) {
        if (!e.framed) fail(e, "a section uses a slot without a frame");
        return "[rsp + " + std::to_string(e.frame.section_slots_at + std::int64_t(slot - section_slots) * slot_bytes) +
               "]";
    }
    if (e.frame.main_has_it) return "[rsp + " + std::to_string(slot * slot_bytes) + "]";
    // Under the stack pointer, which a frame has moved.
    if (e.framed) return "[rbp - " + std::to_string(32 + slot * slot_bytes) + "]";
    return "[rsp - " + std::to_string(40 + slot * slot_bytes) + "]";
}

std::string bare_address(const Emission& e, const Memory& m, int bits) {
    switch (m.base) {
    case Memory::Base::block: return block_address(e, m, bits);
    case Memory::Base::pool: return "[rip + .Lpool_" + e.kernel.symbol + "_" + std::to_string(m.offset) + "]";
    case Memory::Base::slots: return "[rip + " + e.blocks.blocks.at(m.block).symbol + "_slot]";
    // The first word above the return address is 8 bytes above rsp, and 16 above rbp.
    case Memory::Base::argument:
        return e.framed ? "[rbp" + plus(16 + m.offset) + "]" : "[rsp" + plus(8 + m.offset) + "]";
    case Memory::Base::result: return "[rdi" + plus(m.offset) + "]";
    case Memory::Base::out: return (e.kernel.form == Form::memory ? "[rsi" : "[rdi") + plus(m.offset) + "]";
    case Memory::Base::spill: return bare_slot_address(e, int(m.offset));
    default: fail(e, "an address without a base");
    }
}

}  // namespace

void fail(const Emission& e, const std::string& what) { throw std::logic_error(e.kernel.symbol + ": " + what); }

std::string register_name(File file, int reg, int bits) {
    if (file == File::general) return bits == 64 ? general_64[reg] : bits == 8 ? general_8[reg] : general_32[reg];
    return (bits == 256 ? "ymm" : "xmm") + std::to_string(reg);
}

std::string frame_address(std::int64_t offset, int bits) {
    return size_name(bits) + ("[rsp + " + std::to_string(offset)) + "]";
}

std::string slot_address(const Emission& e, int slot, int bits) { return size_name(bits) + bare_slot_address(e, slot); }

std::string memory_address(const Emission& e, const Memory& memory, int bits) {
    return size_name(bits) + bare_address(e, memory, bits);
}

std::string operand_text(const Emission& e, const Operand& o) {
    switch (o.kind) {
    case Operand::Kind::reg: return register_name(o.file, o.reg, o.bits);
    case Operand::Kind::memory: return memory_address(e, o.memory, o.bits);
    default: return o.fixed;
    }
}

std::string label(const Emission& e, const std::string& what, int section) {
    return ".L" + what + std::to_string(section) + "_" + e.kernel.symbol;
}

void write_label(Emission& e, const std::string& what, int section) { e.out << label(e, what, section) << ":\n"; }

void write_directive(Emission& e, const std::string& directive) { e.out << "    " << directive << "\n"; }

void write_line(Emission& e, Mnemonic mnemonic, const std::string& operands, const std::string& comment) {
    const InstructionRow& row = row_of(mnemonic);
    if (row.where == Where::rare_path && !e.on_rare_path) fail(e, std::string(row.name) + " is the rare path's own");
    e.out << "    " << row.name;
    if (!operands.empty()) e.out << " " << operands;
    if (!comment.empty()) e.out << "    # " << comment;
    e.out << "\n";
}

void write_pool(Emission& e) {
    if (e.kernel.pool.empty()) return;
    e.out << "    .section .rodata\n";
    for (std::size_t k = 0; k < e.kernel.pool.size(); ++k) {
        const PoolItem& item = e.kernel.pool[k];
        e.out << "    .balign " << item.bytes.size() << "    # " << item.comment << "\n.Lpool_" << e.kernel.symbol
              << "_" << k << ":\n    .byte ";
        for (std::size_t b = 0; b < item.bytes.size(); ++b) e.out << (b ? ", " : "") << int(item.bytes[b]);
        e.out << "\n";
    }
    e.out << "    .text\n";
}

}  // namespace tuvo

#include "frame/generator/emit/body.hpp"

#include <algorithm>

#include "frame/generator/emit/text.hpp"

namespace tuvo {
namespace {

bool is_kind(const Operand& o, char kind) {
    const bool vector = o.kind == Operand::Kind::reg && o.file == File::vector;
    const bool memory = o.kind == Operand::Kind::memory;
    switch (kind) {
    case 'v': return vector;
    case 'm': return vector || memory;
    case 'M': return memory;
    default: return !vector && !memory;
    }
}

/// Whether the operands are those of one alternative: "v v m i".
bool matches(const Instruction& i, std::string_view alternative) {
    Operand target = i.target;
    if (!i.is_store) target.file = i.dst_file;
    std::size_t source = 0;
    for (std::size_t k = 0; k < alternative.size(); k += 2) {
        const char kind = alternative[k];
        if (kind == 'i') return i.immediate >= 0 && source == i.sources.size();
        if (k > 0 && source == i.sources.size()) return false;
        if (!is_kind(k == 0 ? target : i.sources[source++], kind)) return false;
    }
    return i.immediate < 0 && source == i.sources.size();
}

/// Whether the table has the instruction for bodies, with such operands and registers of such widths.
bool allowed(const Instruction& i) {
    const InstructionRow& row = row_of(i.mnemonic);
    const bool wide = i.dst_bits == 256 || std::ranges::find(i.sources, 256, &Operand::bits) != i.sources.end();
    if (row.where != Where::body || (wide && row.widths != Widths::any_width)) return false;
    for (std::string_view rest = row.operands;;) {
        const std::size_t bar = rest.find('|');
        if (matches(i, rest.substr(0, bar))) return true;
        if (bar == std::string_view::npos) return false;
        rest.remove_prefix(bar + 1);
    }
}

void check(const Emission& e, const Instruction& i) {
    if (!allowed(i)) fail(e, std::string(row_of(i.mnemonic).name) + " is outside the allowed instructions");
    if (i.dst >= 8 && i.dst_file == File::vector && e.kernel.preserved == Preserved::upper_vectors_and_pointers &&
        !e.saved.contains(i.dst))
        fail(e, "ymm" + std::to_string(i.dst) + " is written and not restored");
}

void write_branch(Emission& e, const Instruction& i) {
    const std::string condition = operand_text(e, i.sources[0]);
    write_line(e, Mnemonic::test, condition + ", " + (i.immediate ? std::to_string(i.immediate) : condition));
    write_line(e, Mnemonic::jne, label(e, "out", i.section));
    write_label(e, "back", i.section);
    e.outlined.push_back({i.section, e.framed, e.saved});
}

/// Instructions of the general registers overwrite their first operand.
void write_shift(Emission& e, const Instruction& i, const std::string& dst) {
    const std::string source = operand_text(e, i.sources[0]);
    if (dst != source) write_line(e, Mnemonic::mov, dst + ", " + source);
    write_line(e, i.mnemonic, dst + ", " + std::to_string(i.immediate));
}

void write_commutative(Emission& e, const Instruction& i, const std::string& dst) {
    const std::string a = operand_text(e, i.sources[0]), b = operand_text(e, i.sources[1]);
    if (dst != a && dst != b) write_line(e, Mnemonic::mov, dst + ", " + a);
    write_line(e, i.mnemonic, dst + ", " + (dst == b ? a : b), i.comment);
}

/// The control word is stored where no spill slot lies, in the last bytes of the 128 below the stack pointer that a
/// signal leaves alone.
void write_unless_nearest(Emission& e, const Instruction& i) {
    constexpr const char* control_word = "word ptr [rsp - 112]";
    const std::string dst = register_name(i.dst_file, i.dst, 32), source = operand_text(e, i.sources[0]);
    write_line(e, Mnemonic::fnstcw, control_word);
    if (dst != source) write_line(e, Mnemonic::mov, dst + ", " + source);
    write_line(e, Mnemonic::shl, dst + ", 8");
    write_line(e, Mnemonic::test, control_word + std::string(", 3072"), "rounding");
    write_line(e, Mnemonic::setne, register_name(i.dst_file, i.dst, 8));
    write_line(e, Mnemonic::neg, dst);
    write_line(e, Mnemonic::sbb, dst + ", " + dst);
    write_line(e, Mnemonic::and_, dst + ", " + std::to_string(i.immediate));
}

void write_instruction(Emission& e, const Instruction& i) {
    if (i.kind == Instruction::Kind::branch || i.kind == Instruction::Kind::rare) return write_branch(e, i);
    if (i.kind == Instruction::Kind::unless_nearest) return write_unless_nearest(e, i);
    check(e, i);
    if (i.is_store)
        return write_line(e, i.mnemonic, operand_text(e, i.target) + ", " + operand_text(e, i.sources[0]), i.comment);
    const std::string dst = register_name(i.dst_file, i.dst, i.dst_bits);
    switch (i.mnemonic) {
    case Mnemonic::shl: return write_shift(e, i, dst);
    case Mnemonic::and_:
    case Mnemonic::or_:
    case Mnemonic::xor_: return write_commutative(e, i, dst);
    default: break;
    }
    std::string operands = dst;
    for (const Operand& o : i.sources) operands += ", " + operand_text(e, o);
    if (i.immediate >= 0) operands += ", " + std::to_string(i.immediate);
    write_line(e, i.mnemonic, operands, i.comment);
}

}  // namespace

void write_body(Emission& e, const std::vector<Instruction>& code) {
    for (const Instruction& i : code) write_instruction(e, i);
}

}  // namespace tuvo

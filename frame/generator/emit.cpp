// Writes allocated kernels as GNU assembler text.
//
// Stack, from the address E that holds the return address downward. A kernel that spills little keeps its slots in the
// 128 bytes under the stack pointer and moves nothing; the first out-of-line section that needs room sets up the frame.
//
//     E - 8      rbp of the caller, once there is a frame; rbp points here
//     E - 40     first spill slot of a frameless kernel, further ones 32 bytes below each
//     E - 112    rbx, r12, rsi, rdi, on the rare path
//     aligned to 64 bytes, from rsp upward: slots, preserved vector registers, the stash
#include <algorithm>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "frame/generator/emit.hpp"

namespace tuvo {
namespace {

constexpr int slot_bytes = 32;

const char* const general_32[] = {"eax", "ecx", "edx", "r8d", "r9d", "r10d", "r11d"};
const char* const general_64[] = {"rax", "rcx", "rdx", "r8", "r9", "r10", "r11"};

std::string register_name(File file, int reg, int bits) {
    if (file == File::general) return bits == 64 ? general_64[reg] : general_32[reg];
    return (bits == 256 ? "ymm" : "xmm") + std::to_string(reg);
}

const char* size_name(int bits) {
    switch (bits) {
    case 32: return "dword ptr ";
    case 64: return "qword ptr ";
    case 128: return "xmmword ptr ";
    case 256: return "ymmword ptr ";
    default: throw std::logic_error("a memory operand of " + std::to_string(bits) + " bits");
    }
}

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
    const bool wide =
        i.dst_bits == 256 || std::ranges::any_of(i.sources, [](const Operand& o) { return o.bits == 256; });
    if (row.where != Where::body || (wide && row.widths != Widths::any_width)) return false;
    for (std::string_view rest = row.operands;;) {
        const std::size_t bar = rest.find('|');
        if (matches(i, rest.substr(0, bar))) return true;
        if (bar == std::string_view::npos) return false;
        rest.remove_prefix(bar + 1);
    }
}

class Emitter {
public:
    Emitter(std::ostream& out, const Kernel& kernel, const AllocatedKernel& allocated, const BlockLayout& blocks)
        : out_(out), kernel_(kernel), allocated_(allocated), blocks_(blocks) {
        framed_main_ = allocated.main_slots + int(allocated.saved.size()) > red_zone_slots;
        saves_at_ = allocated.main_slots;
        saved_.insert(allocated.saved.begin(), allocated.saved.end());
        plan_frame();
    }

    void run() {
        out_ << "\n    .p2align 5\n    .globl " << kernel_.symbol << "\n    .type " << kernel_.symbol << ", @function\n"
             << kernel_.symbol << ":\n    .cfi_startproc\n";
        if (framed_main_) open_frame();
        for (std::size_t k = 0; k < allocated_.saved.size(); ++k)
            line(Mnemonic::vmovups, slot(int(saves_at_ + k), 256) + ", ymm" + std::to_string(allocated_.saved[k]));
        body(allocated_.sections[0].code);
        if (clears_upper_halves(kernel_)) line(Mnemonic::vzeroupper);
        for (std::size_t k = 0; k < allocated_.saved.size(); ++k)
            line(Mnemonic::vmovups, "ymm" + std::to_string(allocated_.saved[k]) + ", " + slot(int(saves_at_ + k), 256));
        if (framed_main_) {
            out_ << "    .cfi_remember_state\n";
            close_frame();
        }
        line(Mnemonic::ret);
        if (framed_main_) out_ << "    .cfi_restore_state\n";
        while (!outlined_.empty()) {
            const auto [section, framed, saved] = outlined_.front();
            outlined_.erase(outlined_.begin());
            framed_ = framed;
            saved_ = saved;
            // A section inside another that set the frame up begins in that frame.
            const bool inherits = framed && !framed_main_;
            if (inherits) out_ << "    .cfi_def_cfa rbp, 16\n    .cfi_offset rbp, -16\n";
            on_rare_path_ = kernel_.sections[section].rare.has_value();
            if (on_rare_path_)
                rare_section(section);
            else
                any_lane_section(section);
            if (inherits) out_ << "    .cfi_def_cfa rsp, 8\n    .cfi_restore rbp\n";
        }
        out_ << "    .cfi_endproc\n    .size " << kernel_.symbol << ", . - " << kernel_.symbol << "\n";
        write_pool();
    }

private:
    std::ostream& out_;
    const Kernel& kernel_;
    const AllocatedKernel& allocated_;
    const BlockLayout& blocks_;
    bool framed_main_ = false;
    bool framed_ = false;  ///< whether the code being written has the frame
    bool on_rare_path_ = false;
    int saves_at_ = 0;     ///< slot number of the first preserved register
    std::set<int> saved_;  ///< preserved vector registers that the code being written has saved
    int frame_bytes_ = 0;
    std::int64_t section_saves_at_ = 0;
    std::int64_t outline_at_ = 0, vectors_at_ = 0, stash_at_ = 0;
    struct Outlined {
        int section;
        bool framed;          ///< whether it starts with the frame set up
        std::set<int> saved;  ///< preserved vector registers that are saved by then
    };
    std::vector<Outlined> outlined_;  ///< sections still to be written

    void line(Mnemonic mnemonic, const std::string& operands = "", const std::string& comment = "") {
        const InstructionRow& row = row_of(mnemonic);
        if (row.where == Where::rare_path && !on_rare_path_) fail(std::string(row.name) + " is the rare path's own");
        out_ << "    " << row.name;
        if (!operands.empty()) out_ << " " << operands;
        if (!comment.empty()) out_ << "    # " << comment;
        out_ << "\n";
    }

    [[noreturn]] void fail(const std::string& what) const { throw std::logic_error(kernel_.symbol + ": " + what); }

    // The frame.

    void plan_frame() {
        const auto align = [](std::int64_t n) { return (n + 63) / 64 * 64; };
        std::int64_t bytes = 0;
        if (framed_main_)
            bytes = align(std::int64_t(allocated_.main_slots + int(allocated_.saved.size())) * slot_bytes);
        outline_at_ = bytes;
        section_saves_at_ = bytes + std::int64_t(allocated_.outline_slots) * slot_bytes;
        std::size_t saves = 0;
        for (const AllocatedSection& section : allocated_.sections) saves = std::max(saves, section.saved.size());
        bytes = align(section_saves_at_ + std::int64_t(saves) * slot_bytes);
        for (const KernelSection& section : kernel_.sections) {
            if (!section.rare) continue;
            vectors_at_ = bytes;
            bytes += slot_bytes * std::int64_t(unsaved().size());
            stash_at_ = bytes = align(bytes);
            for (const auto* arrays : {&section.rare->inputs, &section.rare->outputs})
                for (const StashArray& array : *arrays) bytes += stash_bytes(array);
        }
        frame_bytes_ = int(align(bytes));
    }

    std::int64_t stash_bytes(const StashArray& array) const {
        std::int64_t bytes = 0;
        for (int r : array.parts) bytes += kernel_.registers[r].bits / 8;
        return (bytes + 63) / 64 * 64;
    }

    /// Preserved vector registers that the rare path has to save, since the main section hasn't.
    std::vector<int> unsaved() const {
        std::vector<int> result;
        if (kernel_.preserved != Preserved::upper_vectors_and_pointers) return result;
        for (int p = 8; p < vector_registers; ++p)
            if (std::find(allocated_.saved.begin(), allocated_.saved.end(), p) == allocated_.saved.end())
                result.push_back(p);
        return result;
    }

    void open_frame() {
        line(Mnemonic::push, "rbp");
        out_ << "    .cfi_def_cfa_offset 16\n    .cfi_offset rbp, -16\n";
        line(Mnemonic::mov, "rbp, rsp");
        out_ << "    .cfi_def_cfa_register rbp\n";
        line(Mnemonic::sub, "rsp, " + std::to_string(frame_bytes_ + 128));
        line(Mnemonic::and_, "rsp, -64");
        framed_ = true;
    }

    void close_frame() {
        line(Mnemonic::leave);
        out_ << "    .cfi_def_cfa rsp, 8\n    .cfi_restore rbp\n";
        framed_ = framed_main_;
    }

    std::string slot(int number, int bits) const {
        std::string address;
        if (number >= section_slots) {
            if (!framed_) fail("a section uses a slot without a frame");
            address = "[rsp + " + std::to_string(outline_at_ + std::int64_t(number - section_slots) * slot_bytes) + "]";
        } else if (framed_main_) {
            address = "[rsp + " + std::to_string(number * slot_bytes) + "]";
        } else if (framed_) {
            address = "[rbp - " + std::to_string(32 + number * slot_bytes) + "]";
        } else {
            address = "[rsp - " + std::to_string(40 + number * slot_bytes) + "]";
        }
        return size_name(bits) + address;
    }

    // Operands.

    std::string memory(const Memory& m, int bits) const {
        const auto plus = [](std::int64_t offset) {
            return offset == 0 ? std::string()
                               : (offset > 0 ? " + " : " - ") + std::to_string(offset > 0 ? offset : -offset);
        };
        switch (m.base) {
        case Memory::Base::block: {
            const ConstBlock& block = blocks_.blocks.at(m.block);
            if (m.index < 0 && (m.offset < 0 || m.offset + bits / 8 > block.size))
                fail("a row is read outside " + block.symbol);
            return size_name(bits) + ("[" + std::string(general_64[m.pointer])) +
                   (m.index < 0 ? "" : " + " + std::string(general_64[m.index])) + plus(m.offset) + "]";
        }
        case Memory::Base::pool:
            return size_name(bits) + ("[rip + .Lpool_" + kernel_.symbol) + "_" + std::to_string(m.offset) + "]";
        case Memory::Base::slots: return size_name(bits) + ("[rip + " + blocks_.blocks.at(m.block).symbol) + "_slot]";
        case Memory::Base::argument: {
            // The first word above the return address is 8 bytes above E, and 16 above rbp.
            if (framed_) return size_name(bits) + ("[rbp" + plus(16 + m.offset)) + "]";
            return size_name(bits) + ("[rsp" + plus(8 + m.offset)) + "]";
        }
        case Memory::Base::result: return size_name(bits) + ("[rdi" + plus(m.offset)) + "]";
        case Memory::Base::out:
            return size_name(bits) + ((kernel_.form == Form::memory ? "[rsi" : "[rdi") + plus(m.offset)) + "]";
        case Memory::Base::spill: return slot(int(m.offset), bits);
        default: fail("an address without a base");
        }
    }

    std::string operand(const Operand& o) const {
        switch (o.kind) {
        case Operand::Kind::reg: return register_name(o.file, o.reg, o.bits);
        case Operand::Kind::memory: return memory(o.memory, o.bits);
        default: return o.fixed;
        }
    }

    // Code.

    void body(const std::vector<Instruction>& code) {
        for (const Instruction& i : code) instruction(i);
    }

    void instruction(const Instruction& i) {
        if (i.kind == Instruction::Kind::branch || i.kind == Instruction::Kind::rare) {
            const std::string condition = operand(i.sources[0]);
            line(Mnemonic::test, condition + ", " + (i.immediate ? std::to_string(i.immediate) : condition));
            line(Mnemonic::jne, label("out", i.section));
            out_ << label("back", i.section) << ":\n";
            outlined_.push_back({i.section, framed_, saved_});
            return;
        }
        if (!allowed(i)) fail(std::string(row_of(i.mnemonic).name) + " is outside the allowed instructions");
        if (i.dst >= 8 && i.dst_file == File::vector && kernel_.preserved == Preserved::upper_vectors_and_pointers &&
            !saved_.contains(i.dst))
            fail("ymm" + std::to_string(i.dst) + " is written and not restored");
        if (i.is_store) {
            line(i.mnemonic, operand(i.target) + ", " + operand(i.sources[0]), i.comment);
            return;
        }
        const std::string dst = register_name(i.dst_file, i.dst, i.dst_bits);
        if (i.mnemonic == Mnemonic::shl) {
            const std::string source = operand(i.sources[0]);
            if (dst != source) line(Mnemonic::mov, dst + ", " + source);
            line(Mnemonic::shl, dst + ", " + std::to_string(i.immediate));
            return;
        }
        if (i.mnemonic == Mnemonic::or_ || i.mnemonic == Mnemonic::and_ || i.mnemonic == Mnemonic::xor_) {
            two_operand(i, dst);
            return;
        }
        std::string text = dst;
        for (const Operand& o : i.sources) text += ", " + operand(o);
        if (i.immediate >= 0) text += ", " + std::to_string(i.immediate);
        line(i.mnemonic, text, i.comment);
    }

    /// Commutative instructions of the general registers, which overwrite their first operand.
    void two_operand(const Instruction& i, const std::string& dst) {
        const std::string a = operand(i.sources[0]), b = operand(i.sources[1]);
        if (dst != a && dst != b) line(Mnemonic::mov, dst + ", " + a);
        line(i.mnemonic, dst + ", " + (dst == b ? a : b), i.comment);
    }

    std::string label(const std::string& what, int section) const {
        return ".L" + what + std::to_string(section) + "_" + kernel_.symbol;
    }

    static bool uses_frame(const std::vector<Instruction>& code) {
        const auto outline = [](const Operand& o) {
            return o.kind == Operand::Kind::memory && o.memory.base == Memory::Base::spill &&
                   o.memory.offset >= section_slots;
        };
        return std::any_of(code.begin(), code.end(), [&](const Instruction& i) {
            return i.kind != Instruction::Kind::plain || (i.is_store && outline(i.target)) ||
                   std::any_of(i.sources.begin(), i.sources.end(), outline);
        });
    }

    void any_lane_section(int s) {
        const AllocatedSection& section = allocated_.sections[s];
        out_ << label("out", s) << ":\n";
        const bool opens =
            !framed_ && (!section.saved.empty() || uses_frame(section.code) || uses_frame(section.restore));
        if (opens) open_frame();
        const auto save_slot = [&](std::size_t k) {
            return size_name(256) + ("[rsp + " + std::to_string(section_saves_at_ + std::int64_t(k) * slot_bytes)) +
                   "]";
        };
        for (std::size_t k = 0; k < section.saved.size(); ++k)
            line(Mnemonic::vmovups, save_slot(k) + ", ymm" + std::to_string(section.saved[k]));
        const std::set<int> saved_outside = saved_;
        saved_.insert(section.saved.begin(), section.saved.end());
        body(section.code);
        body(section.restore);
        saved_ = saved_outside;
        for (std::size_t k = 0; k < section.saved.size(); ++k)
            line(Mnemonic::vmovups, "ymm" + std::to_string(section.saved[k]) + ", " + save_slot(k));
        if (opens) {
            close_frame();
            framed_ = false;
        }
        line(Mnemonic::jmp, label("back", s));
    }

    // The rare path.

    void rare_section(int s) {
        const KernelSection& section = kernel_.sections[s];
        const AllocatedSection& code = allocated_.sections[s];
        const RarePath& rare = *section.rare;
        const RarePlaces& places = allocated_.rare;
        const bool opens = !framed_;
        const std::string condition = general_32[places.condition];
        out_ << label("out", s) << ":\n";
        if (opens) open_frame();
        if (!code.code.empty()) {
            body(code.code);
            line(Mnemonic::test, condition + ", " + (section.cut ? std::to_string(section.cut) : condition));
            line(Mnemonic::je, label("repaired", s));
        }

        // The stash: all lanes of every input and of the vector results.
        std::vector<std::int64_t> input_at, output_at;
        std::int64_t at = stash_at_;
        for (const StashArray& array : rare.inputs) input_at.push_back(at), at += stash_bytes(array);
        for (const StashArray& array : rare.outputs) output_at.push_back(at), at += stash_bytes(array);
        for (const bool from_register : {true, false}) {
            for (std::size_t a = 0; a < rare.inputs.size(); ++a)
                stash(places.inputs[a].from, input_at[a], from_register);
            for (std::size_t a = 0; a < rare.outputs.size(); ++a)
                stash(places.outputs[a].from, output_at[a], from_register);
        }

        static constexpr const char* kept[] = {"rbx", "r12", "rsi", "rdi"};
        for (int k = 0; k < 4; ++k) {
            line(Mnemonic::mov, "qword ptr [rbp - " + std::to_string(104 + 8 * k) + "], " + kept[k]);
            out_ << "    .cfi_offset " << kept[k] << ", -" << 120 + 8 * k << "\n";
        }
        const std::vector<int> vectors = unsaved();
        for (std::size_t k = 0; k < vectors.size(); ++k)
            line(Mnemonic::vmovups, "ymmword ptr [rsp + " + std::to_string(vectors_at_ + std::int64_t(k) * slot_bytes) +
                                        "], ymm" + std::to_string(vectors[k]));
        line(Mnemonic::mov, "r12d, " + condition, "rare mask");
        if (section.cut) line(Mnemonic::and_, "r12d, " + std::to_string(section.cut));
        line(Mnemonic::xor_, "ebx, ebx", "lane");
        out_ << label("scan", s) << ":\n";
        line(Mnemonic::bt, "r12d, ebx");
        line(Mnemonic::jnc, label("next", s));
        if (kernel_.works_256) line(Mnemonic::vzeroupper);
        static constexpr const char* parameters[] = {"rdi", "rsi", "rdx", "rcx"};
        if (rare.inputs.size() + rare.outputs.size() > std::size(parameters))
            fail("a rare routine takes four pointers at most");
        int parameter = 0;
        const auto pass = [&](const StashArray& array, std::int64_t offset) {
            line(Mnemonic::lea, std::string(parameters[parameter++]) + ", [rsp + rbx*" +
                                    std::to_string(array.element_bytes) + " + " + std::to_string(offset) + "]");
        };
        for (std::size_t a = 0; a < rare.inputs.size(); ++a) pass(rare.inputs[a], input_at[a]);
        for (std::size_t a = 0; a < rare.outputs.size(); ++a) pass(rare.outputs[a], output_at[a]);
        line(Mnemonic::call, kernel_.family->rare_routine);
        out_ << label("next", s) << ":\n";
        line(Mnemonic::inc, "ebx");
        line(Mnemonic::cmp, "ebx, 32");
        line(Mnemonic::jne, label("scan", s));
        for (std::size_t k = 0; k < vectors.size(); ++k)
            line(Mnemonic::vmovups, "ymm" + std::to_string(vectors[k]) + ", ymmword ptr [rsp + " +
                                        std::to_string(vectors_at_ + std::int64_t(k) * slot_bytes) + "]");
        for (int k = 0; k < 4; ++k) {
            line(Mnemonic::mov, std::string(kept[k]) + ", qword ptr [rbp - " + std::to_string(104 + 8 * k) + "]");
            out_ << "    .cfi_restore " << kept[k] << "\n";
        }
        for (const bool to_register : {false, true})
            for (std::size_t a = 0; a < rare.outputs.size(); ++a)
                unstash(places.outputs[a].to, output_at[a], to_register);
        if (opens) {
            out_ << "    .cfi_remember_state\n";
            close_frame();
        }
        line(Mnemonic::jmp, label("back", s));
        if (opens) {
            out_ << "    .cfi_restore_state\n";
            framed_ = true;
        }
        if (!code.code.empty()) {
            out_ << label("repaired", s) << ":\n";
            body(code.restore);
            if (opens) close_frame();
            line(Mnemonic::jmp, label("back", s));
        } else if (opens) {
            // Nothing follows inside the frame.
            out_ << "    .cfi_def_cfa rsp, 8\n    .cfi_restore rbp\n";
        }
        framed_ = framed_main_;
    }

    std::string stash_address(std::int64_t offset, int bits) const {
        return size_name(bits) + ("[rsp + " + std::to_string(offset)) + "]";
    }

    /// Registers first; what lies in memory then goes through ymm0, which by that time is free.
    void stash(const std::vector<Place>& parts, std::int64_t offset, bool from_register) {
        for (const Place& p : parts) {
            if ((p.kind == Place::Kind::reg) == from_register) {
                const std::string scratch = register_name(File::vector, from_register ? p.reg : 0, p.bits);
                if (p.kind == Place::Kind::spill) line(Mnemonic::vmovups, scratch + ", " + slot(p.slot, p.bits));
                if (p.kind == Place::Kind::memory) line(Mnemonic::vmovups, scratch + ", " + memory(p.memory, p.bits));
                line(Mnemonic::vmovups, stash_address(offset, p.bits) + ", " + scratch);
            }
            offset += p.bits / 8;
        }
    }

    void unstash(const std::vector<Place>& parts, std::int64_t offset, bool to_register) {
        for (const Place& p : parts) {
            if ((p.kind == Place::Kind::reg) == to_register) {
                const std::string name = register_name(File::vector, to_register ? p.reg : 0, p.bits);
                line(Mnemonic::vmovups, name + ", " + stash_address(offset, p.bits));
                if (p.kind == Place::Kind::spill)
                    line(Mnemonic::vmovups, slot(p.slot, p.bits) + ", " + name);
                else if (!to_register)
                    fail("a result has no place to return to");
            }
            offset += p.bits / 8;
        }
    }

    void write_pool() {
        if (kernel_.pool.empty()) return;
        out_ << "    .section .rodata\n";
        for (std::size_t k = 0; k < kernel_.pool.size(); ++k) {
            const PoolItem& item = kernel_.pool[k];
            out_ << "    .balign " << item.bytes.size() << "    # " << item.comment << "\n.Lpool_" << kernel_.symbol
                 << "_" << k << ":\n    .byte ";
            for (std::size_t b = 0; b < item.bytes.size(); ++b) out_ << (b ? ", " : "") << int(item.bytes[b]);
            out_ << "\n";
        }
        out_ << "    .text\n";
    }
};

}  // namespace

void emit(std::ostream& out, const Kernel& kernel, const AllocatedKernel& allocated, const BlockLayout& blocks) {
    // Checked in full before a byte is written: a kernel that breaks a rule leaves no trace.
    std::ostringstream text;
    Emitter(text, kernel, allocated, blocks).run();
    out << text.str();
}

}  // namespace tuvo

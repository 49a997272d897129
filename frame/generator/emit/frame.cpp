#include "frame/generator/emit/frame.hpp"

#include <algorithm>

#include "frame/generator/emit/body.hpp"
#include "frame/generator/emit/text.hpp"

namespace tuvo {
namespace {

std::int64_t align(std::int64_t bytes) { return (bytes + 63) / 64 * 64; }

bool is_section_slot(const Operand& o) {
    return o.kind == Operand::Kind::memory && o.memory.base == Memory::Base::spill && o.memory.offset >= section_slots;
}

bool uses_frame(const std::vector<Instruction>& code) {
    return std::ranges::any_of(code, [](const Instruction& i) {
        const bool straight = i.kind == Instruction::Kind::plain || i.kind == Instruction::Kind::unless_nearest;
        return !straight || (i.is_store && is_section_slot(i.target)) ||
               std::ranges::any_of(i.sources, is_section_slot);
    });
}

std::string ymm(int number) { return register_name(File::vector, number, 256); }

}  // namespace

std::vector<int> unsaved_registers(const Kernel& kernel, const AllocatedKernel& allocated) {
    std::vector<int> registers;
    if (kernel.preserved != Preserved::upper_vectors_and_pointers) return registers;
    for (int p = 8; p < vector_registers; ++p)
        if (std::ranges::find(allocated.saved, p) == allocated.saved.end()) registers.push_back(p);
    return registers;
}

std::int64_t stash_bytes(const Kernel& kernel, const StashArray& array) {
    std::int64_t bytes = 0;
    for (int r : array.parts) bytes += kernel.registers[r].bits / 8;
    return align(bytes);
}

FramePlan plan_frame(const Kernel& kernel, const AllocatedKernel& allocated) {
    FramePlan plan;
    const int main_slots = allocated.main_slots + int(allocated.saved.size());
    plan.main_has_it = main_slots > red_zone_slots;
    plan.section_slots_at = plan.main_has_it ? align(std::int64_t(main_slots) * slot_bytes) : 0;
    plan.section_saves_at = plan.section_slots_at + std::int64_t(allocated.outline_slots) * slot_bytes;
    std::size_t saves = 0;
    for (const AllocatedSection& section : allocated.sections) saves = std::max(saves, section.saved.size());
    std::int64_t bytes = align(plan.section_saves_at + std::int64_t(saves) * slot_bytes);
    for (const KernelSection& section : kernel.sections) {
        if (!section.rare) continue;
        plan.rare_path_saves_at = bytes;
        bytes = align(bytes + slot_bytes * std::int64_t(unsaved_registers(kernel, allocated).size()));
        plan.stash_at = bytes;
        for (const auto* arrays : {&section.rare->inputs, &section.rare->outputs})
            for (const StashArray& array : *arrays) bytes += stash_bytes(kernel, array);
    }
    plan.bytes = int(align(bytes));
    return plan;
}

void open_frame(Emission& e) {
    write_line(e, Mnemonic::push, "rbp");
    write_directive(e, ".cfi_def_cfa_offset 16");
    write_directive(e, ".cfi_offset rbp, -16");
    write_line(e, Mnemonic::mov, "rbp, rsp");
    write_directive(e, ".cfi_def_cfa_register rbp");
    write_line(e, Mnemonic::sub, "rsp, " + std::to_string(e.frame.bytes + 128));
    write_line(e, Mnemonic::and_, "rsp, -64");
    e.framed = true;
}

void close_frame(Emission& e) {
    write_line(e, Mnemonic::leave);
    write_directive(e, ".cfi_def_cfa rsp, 8");
    write_directive(e, ".cfi_restore rbp");
    e.framed = false;
}

void save_registers(Emission& e, const std::vector<int>& registers, std::int64_t at) {
    for (std::size_t k = 0; k < registers.size(); ++k)
        write_line(e, Mnemonic::vmovups,
                   frame_address(at + std::int64_t(k) * slot_bytes, 256) + ", " + ymm(registers[k]));
}

void reload_registers(Emission& e, const std::vector<int>& registers, std::int64_t at) {
    for (std::size_t k = 0; k < registers.size(); ++k)
        write_line(e, Mnemonic::vmovups,
                   ymm(registers[k]) + ", " + frame_address(at + std::int64_t(k) * slot_bytes, 256));
}

void write_any_lane_section(Emission& e, int s) {
    const AllocatedSection& section = e.allocated.sections[s];
    write_label(e, "out", s);
    const bool opens = !e.framed && (!section.saved.empty() || uses_frame(section.code) || uses_frame(section.restore));
    if (opens) open_frame(e);
    save_registers(e, section.saved, e.frame.section_saves_at);
    const std::set<int> saved_outside = e.saved;
    e.saved.insert(section.saved.begin(), section.saved.end());
    write_body(e, section.code);
    write_body(e, section.restore);
    e.saved = saved_outside;
    reload_registers(e, section.saved, e.frame.section_saves_at);
    if (opens) close_frame(e);
    write_line(e, Mnemonic::jmp, label(e, "back", s));
}

}  // namespace tuvo

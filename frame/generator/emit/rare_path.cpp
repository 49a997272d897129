#include "frame/generator/emit/rare_path.hpp"

#include <iterator>

#include "frame/generator/emit/body.hpp"
#include "frame/generator/emit/frame.hpp"
#include "frame/generator/emit/text.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;

/// General registers that the loop needs or that a rare routine may change, against the kernels' promise.
constexpr const char* kept_registers[] = {"rbx", "r12", "rsi", "rdi"};
/// How a rare routine takes its pointers.
constexpr const char* parameters[] = {"rdi", "rsi", "rdx", "rcx"};

/// A value of all lanes, with its place on the stash.
struct Stashed {
    const StashArray& array;
    const StashedValue& places;
    std::int64_t offset;
};

/// Inputs, then outputs.
std::vector<Stashed> stashed_values(const Emission& e, const RarePath& rare) {
    std::vector<Stashed> values;
    std::int64_t offset = e.frame.stash_at;
    const auto add = [&](const std::vector<StashArray>& arrays, const std::vector<StashedValue>& places) {
        for (std::size_t k = 0; k < arrays.size(); ++k) {
            values.push_back({arrays[k], places[k], offset});
            offset += stash_bytes(e.kernel, arrays[k]);
        }
    };
    add(rare.inputs, e.allocated.rare.inputs);
    add(rare.outputs, e.allocated.rare.outputs);
    if (values.size() > std::size(parameters)) fail(e, "a rare routine takes four pointers at most");
    return values;
}

/// Parts that are in registers, or those that are not: they go through ymm0.
enum class Parts : std::uint8_t { in_registers, elsewhere };

bool belongs(const Place& place, Parts which) {
    return (place.kind == Place::Kind::reg) == (which == Parts::in_registers);
}

std::string register_for(const Place& place) {
    return register_name(File::vector, place.kind == Place::Kind::reg ? place.reg : 0, place.bits);
}

void write_to_stash(Emission& e, const Stashed& value, Parts which) {
    std::int64_t offset = value.offset;
    for (const Place& p : value.places.from) {
        if (belongs(p, which)) {
            const std::string name = register_for(p);
            if (p.kind == Place::Kind::spill) write_line(e, vmovups, name + ", " + slot_address(e, p.slot, p.bits));
            if (p.kind == Place::Kind::memory)
                write_line(e, vmovups, name + ", " + memory_address(e, p.memory, p.bits));
            write_line(e, vmovups, frame_address(offset, p.bits) + ", " + name);
        }
        offset += p.bits / 8;
    }
}

void read_from_stash(Emission& e, const Stashed& value, Parts which) {
    std::int64_t offset = value.offset;
    for (const Place& p : value.places.to) {
        if (p.kind == Place::Kind::memory) fail(e, "a result has no place to return to");
        if (belongs(p, which)) {
            const std::string name = register_for(p);
            write_line(e, vmovups, name + ", " + frame_address(offset, p.bits));
            if (p.kind == Place::Kind::spill) write_line(e, vmovups, slot_address(e, p.slot, p.bits) + ", " + name);
        }
        offset += p.bits / 8;
    }
}

std::string kept_address(int k) { return "qword ptr [rbp - " + std::to_string(104 + 8 * k) + "]"; }

void keep_registers(Emission& e) {
    for (int k = 0; k < int(std::size(kept_registers)); ++k) {
        write_line(e, mov, kept_address(k) + ", " + kept_registers[k]);
        write_directive(e, std::string(".cfi_offset ") + kept_registers[k] + ", -" + std::to_string(120 + 8 * k));
    }
    save_registers(e, unsaved_registers(e.kernel, e.allocated), e.frame.rare_path_saves_at);
}

void give_registers_back(Emission& e) {
    reload_registers(e, unsaved_registers(e.kernel, e.allocated), e.frame.rare_path_saves_at);
    for (int k = 0; k < int(std::size(kept_registers)); ++k) {
        write_line(e, mov, std::string(kept_registers[k]) + ", " + kept_address(k));
        write_directive(e, std::string(".cfi_restore ") + kept_registers[k]);
    }
}

/// Calls the rare routine for each lane whose bit is set, with the addresses of that lane's elements.
void write_calls(Emission& e, int s, const std::vector<Stashed>& values) {
    const int cut = e.kernel.sections[s].cut;
    write_line(e, mov, "r12d, " + register_name(File::general, e.allocated.rare.condition, 32), "rare mask");
    if (cut) write_line(e, and_, "r12d, " + std::to_string(cut));
    write_line(e, xor_, "ebx, ebx", "lane");
    write_line(e, jmp, label(e, "scan", s));
    // Apart from the scan, so that a lane which isn't rare costs it a single taken jump.
    write_label(e, "lane", s);
    // Also where all work is on 128 bits: the caller's upper halves, in use since the reload below, would make each
    // instruction of the routine wait for its register's last value.
    write_line(e, vzeroupper);
    for (std::size_t k = 0; k < values.size(); ++k)
        write_line(e, lea,
                   std::string(parameters[k]) + ", [rsp + rbx*" + std::to_string(values[k].array.element_bytes) +
                       " + " + std::to_string(values[k].offset) + "]");
    write_line(e, call, e.kernel.family->rare_routine);
    write_line(e, jmp, label(e, "next", s));
    write_label(e, "scan", s);
    write_line(e, bt, "r12d, ebx");
    write_line(e, jc, label(e, "lane", s));
    write_label(e, "next", s);
    write_line(e, inc, "ebx");
    write_line(e, cmp, "ebx, 32");
    write_line(e, jne, label(e, "scan", s));
}

/// The repair, and the way out where it leaves no lane over.
void write_repair(Emission& e, int s) {
    const int cut = e.kernel.sections[s].cut;
    const std::string condition = register_name(File::general, e.allocated.rare.condition, 32);
    write_body(e, e.allocated.sections[s].code);
    write_line(e, test, condition + ", " + (cut ? std::to_string(cut) : condition));
    write_line(e, je, label(e, "repaired", s));
}

/// The end of both ways: that of the calls, and that of a repair which needed none.
void write_way_back(Emission& e, int s, bool repairs, bool opened) {
    if (opened) {
        write_directive(e, ".cfi_remember_state");
        close_frame(e);
    }
    write_line(e, jmp, label(e, "back", s));
    if (opened) write_directive(e, ".cfi_restore_state");
    if (repairs) {
        e.framed = e.framed || opened;
        write_label(e, "repaired", s);
        write_body(e, e.allocated.sections[s].restore);
        if (opened) close_frame(e);
        write_line(e, jmp, label(e, "back", s));
    } else if (opened) {
        // Nothing follows inside the frame.
        write_directive(e, ".cfi_def_cfa rsp, 8");
        write_directive(e, ".cfi_restore rbp");
    }
}

}  // namespace

void write_rare_path(Emission& e, int s) {
    const bool repairs = !e.allocated.sections[s].code.empty(), opens = !e.framed;
    write_label(e, "out", s);
    if (opens) open_frame(e);
    if (repairs) write_repair(e, s);
    const std::vector<Stashed> values = stashed_values(e, *e.kernel.sections[s].rare);
    // Registers first; by the time that the others go through ymm0 it is free.
    for (const Parts which : {Parts::in_registers, Parts::elsewhere})
        for (const Stashed& value : values) write_to_stash(e, value, which);
    keep_registers(e);
    write_calls(e, s, values);
    give_registers_back(e);
    for (const Parts which : {Parts::elsewhere, Parts::in_registers})
        for (const Stashed& value : values) read_from_stash(e, value, which);
    write_way_back(e, s, repairs, opens);
}

}  // namespace tuvo

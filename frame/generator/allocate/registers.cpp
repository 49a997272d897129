#include "frame/generator/allocate/registers.hpp"

#include <algorithm>
#include <stdexcept>

namespace tuvo {
namespace {

Mnemonic move_of(File file) { return file == File::vector ? Mnemonic::vmovaps : Mnemonic::mov; }
Mnemonic load_of(File file) { return file == File::vector ? Mnemonic::vmovups : Mnemonic::mov; }

bool is_locked(const Allocation& a, int value) { return std::ranges::find(a.locked, value) != a.locked.end(); }

/// Makes the register that is hinted at free: its holder steps aside at once, off the chain that computes the new
/// value; not into a register that the instruction itself still reads. An operand that has been found already stays
/// where it was found. False if there is nowhere to go.
bool step_aside(Allocation& a, File file, int hint, Written written) {
    const auto& held = a.registers.held[int(file)];
    if (held[hint] < 0) return true;
    if (written == Written::before_it && is_locked(a, held[hint])) return false;
    for (int p = a.limits[int(file)] - 1; p >= 0; --p)
        if (held[p] < 0 && std::ranges::find(a.reading, std::pair(file, p)) == a.reading.end()) {
            move(a, held[hint], p);
            return true;
        }
    return false;
}

/// A register that holds nothing, or -1. Low registers carry results, so the others are taken from the top of the first
/// eight.
int find_free(const Allocation& a, File file) {
    const auto& held = a.registers.held[int(file)];
    const int limit = a.limits[int(file)];
    for (int p = std::min(limit, 8) - 1; p >= 0; --p)
        if (held[p] < 0) return p;
    for (int p = 8; p < limit; ++p)
        if (held[p] < 0) return p;
    return -1;
}

/// The value that is used again last. What needs no store to give way counts as farther.
int find_victim(const Allocation& a, const Body& body, File file) {
    int victim = -1;
    double farthest = -1;
    for (int p = 0; p < a.limits[int(file)]; ++p) {
        const int value = a.registers.held[int(file)][p];
        if (is_locked(a, value)) continue;
        const int next = next_use(body, value, a.position - 1);
        double distance = next == never ? 1e9 : next - a.position;
        if (rematerializes(a, value) || a.registers.values[value].slot >= 0) distance *= 1.5;
        if (distance > farthest) farthest = distance, victim = value;
    }
    if (victim < 0) throw std::logic_error(a.kernel.symbol + ": an instruction needs more registers than there are");
    return victim;
}

/// The instruction that reads a value back, still without its destination.
Instruction reload(Allocation& a, const Body& body, int value) {
    const VirtualRegister& r = a.kernel.registers[value];
    Instruction load;
    if (rematerializes(a, value)) {
        load = a.kernel.constants[r.rematerialize];
        for (Operand& o : load.sources) o = resolved(a, body, o);
    } else if (const int slot = a.registers.values[value].slot; slot >= 0) {
        load.mnemonic = load_of(r.file);
        load.sources = {slot_operand(slot, r.bits)};
        load.dst_bits = r.bits, load.dst_file = r.file;
        load.comment = "reload " + r.name;
    } else {
        throw std::logic_error(a.kernel.symbol + ": value " + std::to_string(value) + " (" + r.name +
                               ") is read before it is made");
    }
    return load;
}

}  // namespace

File file_of(const Allocation& a, int value) { return a.kernel.registers[value].file; }
bool rematerializes(const Allocation& a, int value) { return a.kernel.registers[value].rematerialize >= 0; }

int next_use(const Body& body, int value, int after) {
    const std::vector<int>& uses = body.uses[value];
    const auto next = std::ranges::upper_bound(uses, after);
    return next == uses.end() ? never : *next;
}

void append(Allocation& a, Instruction i, int added_cost) {
    a.cost += added_cost;
    a.code->push_back(std::move(i));
}

Operand physical_operand(File file, int reg, int bits) {
    Operand o;
    o.reg = reg, o.file = file, o.bits = bits;
    return o;
}

Operand slot_operand(int slot, int bits) {
    Operand o;
    o.kind = Operand::Kind::memory, o.bits = bits;
    o.memory.base = Memory::Base::spill, o.memory.offset = slot;
    return o;
}

void place(Allocation& a, int value, int physical) {
    const VirtualRegister& r = a.kernel.registers[value];
    a.registers.values[value].reg = physical;
    a.registers.held[int(r.file)][physical] = value;
    if (r.file == File::vector && r.fixed != physical) a.touched[a.saver][physical] = true;
}

void leave(Allocation& a, int value) {
    int& reg = a.registers.values[value].reg;
    if (reg >= 0) a.registers.held[int(file_of(a, value))][reg] = -1;
    reg = -1;
}

void move(Allocation& a, int value, int to) {
    const VirtualRegister& r = a.kernel.registers[value];
    Instruction i;
    i.mnemonic = move_of(r.file);
    i.dst = to, i.dst_bits = r.bits, i.dst_file = r.file;
    i.sources = {physical_operand(r.file, a.registers.values[value].reg, r.bits)};
    append(a, i);
    leave(a, value);
    place(a, value, to);
}

void spill(Allocation& a, const Body& body, int value) {
    Location& location = a.registers.values[value];
    if (location.slot >= 0 || rematerializes(a, value)) return;
    location.slot = body.section == 0 ? a.result.main_slots++ : a.next_outline_slot++;
    const VirtualRegister& r = a.kernel.registers[value];
    Instruction i;
    i.mnemonic = load_of(r.file), i.is_store = true;
    i.target = slot_operand(location.slot, r.bits);
    i.sources = {physical_operand(r.file, location.reg, r.bits)};
    i.comment = "spill " + r.name;
    append(a, i);
}

int take(Allocation& a, const Body& body, File file, int hint, Written written) {
    if (hint >= 0 && hint < a.limits[int(file)] && step_aside(a, file, hint, written)) return hint;
    if (const int free = find_free(a, file); free >= 0) return free;
    const int victim = find_victim(a, body, file);
    const int freed = a.registers.values[victim].reg;
    if (next_use(body, victim, a.position - 1) != never) spill(a, body, victim);
    leave(a, victim);
    return freed;
}

int bring(Allocation& a, const Body& body, int value) {
    if (a.registers.values[value].reg < 0) {
        Instruction load = reload(a, body, value);
        load.dst = take(a, body, file_of(a, value), a.hints[value], Written::before_it);
        const int physical = load.dst;
        append(a, std::move(load));
        place(a, value, physical);
    }
    a.locked.push_back(value);
    return a.registers.values[value].reg;
}

Operand resolved(Allocation& a, const Body& body, Operand o) {
    if (o.kind == Operand::Kind::reg) {
        o.reg = bring(a, body, o.reg);
    } else if (o.kind == Operand::Kind::memory) {
        if (o.memory.pointer >= 0) o.memory.pointer = bring(a, body, o.memory.pointer);
        if (o.memory.index >= 0) o.memory.index = bring(a, body, o.memory.index);
    }
    return o;
}

void release_dead(Allocation& a, const Body& body, const std::vector<int>& values) {
    for (int value : values)
        if (a.registers.values[value].reg >= 0 && next_use(body, value, a.position) == never) leave(a, value);
}

}  // namespace tuvo

#include "frame/generator/allocate/body.hpp"

#include <algorithm>
#include <stdexcept>

#include "frame/generator/allocate/registers.hpp"
#include "frame/generator/allocate/sections.hpp"

namespace tuvo {
namespace {

/// A constant is read through its block's pointer: who uses one uses the other.
void note_use(const Kernel& kernel, Body& body, int value, int position) {
    if (value < 0) return;
    std::vector<int>& uses = body.uses[value];
    if (uses.empty() || uses.back() != position) uses.push_back(position);
    if (const int load = kernel.registers[value].rematerialize; load >= 0)
        for (const Operand& o : kernel.constants[load].sources)
            if (o.kind == Operand::Kind::memory) note_use(kernel, body, o.memory.pointer, position);
}

/// Bits that an instruction reads when its last operand is in memory; 0 where it can't be.
int foldable_bits(const Instruction& i) {
    if (i.is_store || i.sources.size() < 2 || !last_may_be_memory(i.mnemonic)) return 0;
    return memory_bits(i.mnemonic, i.dst_bits);
}

/// Lets the last operand be read straight from a spill slot or a stack argument, if this is its last use nearby.
bool fold(const Allocation& a, const Body& body, Instruction& i) {
    constexpr int nearby = 12;
    const int bits = foldable_bits(i);
    if (bits == 0) return false;
    Operand& last = i.sources.back();
    if (last.kind != Operand::Kind::reg || a.registers.values[last.reg].reg >= 0) return false;
    for (std::size_t k = 0; k + 1 < i.sources.size(); ++k)
        if (i.sources[k].kind == Operand::Kind::reg && i.sources[k].reg == last.reg) return false;
    const int again = next_use(body, last.reg, a.position);
    if (again != never && again < a.position + nearby) return false;
    if (rematerializes(a, last.reg)) {
        const Operand& source = a.kernel.constants[a.kernel.registers[last.reg].rematerialize].sources[0];
        if (source.kind != Operand::Kind::memory || source.bits < bits) return false;
        last = source;
    } else if (const int slot = a.registers.values[last.reg].slot; slot >= 0) {
        last = slot_operand(slot, bits);
    } else {
        return false;
    }
    last.bits = bits;
    return true;
}

/// Brings the operands into registers; returns the values that they were.
std::vector<int> find_operands(Allocation& a, const Body& body, Instruction& i) {
    std::vector<int> read;
    for (Operand& o : i.sources) {
        if (o.kind == Operand::Kind::reg) read.push_back(o.reg);
        if (o.kind == Operand::Kind::memory) {
            if (o.memory.pointer >= 0) read.push_back(o.memory.pointer);
            if (o.memory.index >= 0) read.push_back(o.memory.index);
        }
        o = resolved(a, body, o);
    }
    return read;
}

void allocate_plain(Allocation& a, const Body& body, Instruction i) {
    if (fold(a, body, i)) a.cost += 1;
    const std::vector<int> read = find_operands(a, body, i);
    for (int value : read)
        if (const int p = a.registers.values[value].reg; p >= 0) a.reading.push_back({file_of(a, value), p});
    release_dead(a, body, read);
    if (const int value = i.dst; value >= 0) {
        i.dst = take(a, body, file_of(a, value), a.hints[value], Written::by_the_instruction);
        if (next_use(body, value, a.position) != never)
            place(a, value, i.dst);
        else if (file_of(a, value) == File::vector)
            a.touched[a.saver][i.dst] = true;
    }
    append(a, std::move(i), 0);
    a.reading.clear();
}

/// Moves one of the results to its register if nothing that is still wanted is there. True if it found one.
bool pin_one(Allocation& a, const Body& body, const Instruction& end, std::vector<int>& pending) {
    for (std::size_t k = 0; k < pending.size(); ++k) {
        const int value = pending[k], to = a.kernel.registers[value].hint;
        const int holder = a.registers.held[int(file_of(a, value))][to];
        if (holder >= 0 && std::ranges::find(end.uses, holder) != end.uses.end()) continue;
        if (holder >= 0) leave(a, holder);
        if (a.registers.values[value].reg >= 0) {
            move(a, value, to);
        } else {
            a.hints[value] = to;
            bring(a, body, value);
        }
        pending.erase(pending.begin() + long(k));
        return true;
    }
    return false;
}

/// Puts the results where the caller looks for them.
void pin_results(Allocation& a, const Body& body, const Instruction& end) {
    std::vector<int> pending;
    for (int value : end.uses) {
        const int hint = a.kernel.registers[value].hint;
        if (hint < 0) throw std::logic_error(a.kernel.symbol + ": a result without a register");
        if (a.registers.values[value].reg != hint) pending.push_back(value);
    }
    while (!pending.empty()) {
        if (pin_one(a, body, end, pending)) continue;
        // A ring of moves: one value steps aside.
        const File file = file_of(a, pending[0]);
        a.locked = end.uses;
        const int aside = take(a, body, file, -1, Written::before_it);
        move(a, a.registers.held[int(file)][a.kernel.registers[pending[0]].hint], aside);
    }
}

}  // namespace

Body find_uses(const Allocation& a, int section, const std::vector<int>& needed_at_end) {
    Body body;
    body.section = section;
    body.uses.resize(a.kernel.registers.size());
    const std::vector<Instruction>& instructions = a.bodies[section];
    for (int k = 0; k < int(instructions.size()); ++k) {
        for (const Operand& o : instructions[k].sources) {
            if (o.kind == Operand::Kind::reg) note_use(a.kernel, body, o.reg, k);
            if (o.kind == Operand::Kind::memory) {
                note_use(a.kernel, body, o.memory.pointer, k);
                note_use(a.kernel, body, o.memory.index, k);
            }
        }
        for (int value : instructions[k].uses) note_use(a.kernel, body, value, k);
    }
    for (int value : needed_at_end) note_use(a.kernel, body, value, int(instructions.size()));
    return body;
}

void allocate_body(Allocation& a, const Body& body) {
    const std::vector<Instruction>& instructions = a.bodies[body.section];
    a.code = &a.result.sections[body.section].code;
    for (a.position = 0; a.position < int(instructions.size()); ++a.position) {
        const Instruction& i = instructions[a.position];
        a.locked.clear();
        switch (i.kind) {
        case Instruction::Kind::plain:
        case Instruction::Kind::unless_nearest: allocate_plain(a, body, i); break;
        case Instruction::Kind::branch:
        case Instruction::Kind::rare: allocate_branch(a, body, i); break;
        case Instruction::Kind::end:
            if (body.section == 0) pin_results(a, body, i);
            break;
        }
    }
}

}  // namespace tuvo

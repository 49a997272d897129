#include "frame/generator/allocate/sections.hpp"

#include <algorithm>
#include <stdexcept>

#include "frame/generator/allocate/body.hpp"
#include "frame/generator/allocate/registers.hpp"

namespace tuvo {
namespace {

/// What the code around a section needs after it, apart from what the section replaces.
struct Kept {
    std::vector<int> values;     ///< in registers or slots
    std::vector<int> constants;  ///< constants and block pointers that sit in registers, and have to sit there again
};

/// The state in which a section is entered and left.
struct Outside {
    Registers registers;
    int position;
    int cost;
    std::vector<Instruction>* code;
    std::array<int, 2> limits;
    int saver;
};

Outside state_of(const Allocation& a) { return {a.registers, a.position, a.cost, a.code, a.limits, a.saver}; }

void return_to(Allocation& a, Outside outside) {
    a.registers = std::move(outside.registers);
    a.position = outside.position, a.cost = outside.cost, a.code = outside.code;
    a.limits = outside.limits, a.saver = outside.saver;
}

bool is_replaced(const KernelSection& section, int value) {
    return std::ranges::find(section.joins, value, &Joined::before) != section.joins.end();
}

Kept kept_over(const Allocation& a, const Body& outer, const KernelSection& section) {
    Kept kept;
    for (int value = 0; value < int(a.registers.values.size()); ++value) {
        const Location& location = a.registers.values[value];
        if ((location.reg < 0 && location.slot < 0) || next_use(outer, value, a.position) == never) continue;
        if (rematerializes(a, value)) {
            if (location.reg >= 0) kept.constants.push_back(value);
        } else if (!is_replaced(section, value)) {
            kept.values.push_back(value);
        }
    }
    return kept;
}

// Where the rare path finds its values.

Place place_of(const Allocation& a, int value) {
    const VirtualRegister& r = a.kernel.registers[value];
    const Location& location = a.registers.values[value];
    Place place;
    place.bits = r.bits;
    if (location.reg >= 0) {
        place.reg = location.reg;
    } else if (location.slot >= 0) {
        place.kind = Place::Kind::spill, place.slot = location.slot;
    } else if (rematerializes(a, value)) {
        place.kind = Place::Kind::memory, place.memory = a.kernel.constants[r.rematerialize].sources[0].memory;
    } else {
        throw std::logic_error(a.kernel.symbol + ": value " + r.name + " is nowhere at the rare path");
    }
    return place;
}

std::vector<Place> places_of(const Allocation& a, const std::vector<int>& parts) {
    std::vector<Place> places;
    for (int value : parts) places.push_back(place_of(a, value));
    return places;
}

void find_inputs(Allocation& a, const RarePath& rare) {
    for (const StashArray& array : rare.inputs) a.result.rare.inputs.push_back({places_of(a, array.parts), {}});
}

// The end of a section.

/// A value that is to be in a register again.
struct Arrival {
    int value, reg;
};

/// Stores what a section makes of a value that the code around it has in a slot.
void store_to_slot(Allocation& a, const Body& inner, int value, int slot) {
    const VirtualRegister& r = a.kernel.registers[value];
    const int p = bring(a, inner, value);
    Instruction store;
    store.mnemonic = r.file == File::vector ? Mnemonic::vmovups : Mnemonic::mov, store.is_store = true;
    store.target = slot_operand(slot, r.bits);
    store.sources = {physical_operand(r.file, p, r.bits)};
    append(a, store);
    a.locked.clear();
}

std::vector<Arrival> find_arrivals(Allocation& a, const Body& inner, const std::vector<int>& wanted,
                                   const std::vector<Location>& target) {
    std::vector<Arrival> arrivals;
    for (const Joined& j : a.kernel.sections[inner.section].joins) {
        const Location& to = target[j.before];
        if (to.reg < 0)
            store_to_slot(a, inner, j.after, to.slot);
        else if (a.registers.values[j.after].reg != to.reg)
            arrivals.push_back({j.after, to.reg});
    }
    for (int value : wanted)
        if (target[value].reg >= 0 && a.registers.values[value].reg != target[value].reg)
            arrivals.push_back({value, target[value].reg});
    return arrivals;
}

/// Code at a section's end that puts every value back where the code around it has it.
void restore(Allocation& a, const Body& inner, const std::vector<int>& wanted, const std::vector<Location>& target) {
    a.code = &a.result.sections[inner.section].restore;
    a.locked.clear();
    std::vector<Arrival> arrivals = find_arrivals(a, inner, wanted, target);
    // Through memory: nothing that is still to be moved can be overwritten.
    for (const Arrival& arrival : arrivals)
        if (a.registers.values[arrival.value].reg >= 0) spill(a, inner, arrival.value);
    for (const Arrival& arrival : arrivals) leave(a, arrival.value);
    // Pointers first: constants are read through them.
    std::ranges::stable_partition(arrivals,
                                  [&](const Arrival& arrival) { return file_of(a, arrival.value) == File::general; });
    for (const Arrival& arrival : arrivals) {
        const int holder = a.registers.held[int(file_of(a, arrival.value))][arrival.reg];
        if (holder >= 0) leave(a, holder);
        a.hints[arrival.value] = arrival.reg;
        bring(a, inner, arrival.value);
        if (a.registers.values[arrival.value].reg != arrival.reg)
            throw std::logic_error(a.kernel.symbol + ": a section's end can't be restored");
        a.locked.clear();
    }
}

/// The body of a section, entered from the state as it is and left in the same.
void allocate_inside(Allocation& a, int s, const std::vector<int>& wanted, const Registers& outside) {
    const KernelSection& section = a.kernel.sections[s];
    for (const Joined& j : section.joins) a.hints[j.after] = outside.values[j.before].reg;
    if (!section.rare) {
        a.limits[int(File::vector)] = vector_registers;
        if (a.saver == 0) a.saver = s;
    }
    const int cost_before = a.cost;
    const Body inner = find_uses(a, s, wanted);
    allocate_body(a, inner);
    if (section.rare) {
        std::vector<int> repaired;
        for (const Joined& j : section.joins) repaired.push_back(j.after);
        a.result.rare.condition = bring(a, inner, *section.rare->remaining);
        find_inputs(a, *section.rare);
        a.result.rare.outputs[0].from = places_of(a, repaired);  // a repair has a single output
    }
    restore(a, inner, wanted, outside.values);
    if (!section.rare) a.result.outline_cost += a.cost - cost_before;
}

// Back outside.

/// Whatever is not kept may have been overwritten.
void forget_others(Allocation& a, const KernelSection& section, const Kept& kept) {
    for (int value = 0; value < int(a.registers.values.size()); ++value)
        if (a.registers.values[value].reg >= 0 && !is_replaced(section, value) &&
            std::ranges::find(kept.values, value) == kept.values.end() &&
            std::ranges::find(kept.constants, value) == kept.constants.end())
            leave(a, value);
}

/// What the section replaces goes by another name from here on, in the same place.
void hand_over(Allocation& a, const KernelSection& section) {
    for (const Joined& j : section.joins) {
        Location& before = a.registers.values[j.before];
        Location& joined = a.registers.values[j.joined];
        joined = before;
        if (before.reg >= 0) {
            a.registers.held[int(file_of(a, j.before))][before.reg] = j.joined;
            joined.slot = -1;
        }
        before = {};
    }
}

}  // namespace

void allocate_branch(Allocation& a, const Body& outer, const Instruction& branch) {
    const KernelSection& section = a.kernel.sections[branch.section];
    Instruction test = branch;
    const int condition = bring(a, outer, section.condition);
    test.uses.clear();
    test.sources = {physical_operand(File::general, condition, 32)};
    test.immediate = section.cut;
    append(a, test, 0);

    const Kept kept = kept_over(a, outer, section);
    const Outside outside = state_of(a);
    if (section.rare) {
        a.result.rare.condition = condition;
        for (const StashArray& array : section.rare->outputs)
            a.result.rare.outputs.push_back({places_of(a, array.parts), places_of(a, array.parts)});
    }
    if (!section.body.empty()) {
        std::vector<int> wanted = kept.values;
        wanted.insert(wanted.end(), kept.constants.begin(), kept.constants.end());
        allocate_inside(a, branch.section, wanted, outside.registers);
    } else if (section.rare) {
        find_inputs(a, *section.rare);
    }
    return_to(a, outside);
    forget_others(a, section, kept);
    hand_over(a, section);
    a.locked.clear();
    release_dead(a, outer, branch.uses);
    for (const Joined& j : section.joins) release_dead(a, outer, {j.joined});
}

}  // namespace tuvo

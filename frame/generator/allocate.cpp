// Register allocation over straight-line code: when a register is needed, the value whose next use lies farthest away
// gives way. Constants and stack arguments are dropped and re-read; other values go to a spill slot once.
//
// An out-of-line section starts from the state of the main code at its branch and puts that state back at its end, so
// that the way that doesn't enter it pays nothing.
#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>

#include "frame/generator/allocate.hpp"

namespace tuvo {
namespace {

constexpr int never = std::numeric_limits<int>::max();

/// Bits that an instruction reads when its last operand is in memory; 0 where it can't be.
int foldable_bits(const Instruction& i) {
    if (i.is_store || i.sources.size() < 2 || !last_may_be_memory(i.mnemonic)) return 0;
    return memory_bits(i.mnemonic, i.dst_bits);
}

class Allocator {
public:
    Allocator(const Kernel& kernel, const std::vector<std::vector<Instruction>>& bodies, int vectors)
        : kernel_(kernel), bodies_(bodies), limits_{vectors, general_registers}, values_(kernel.registers.size()) {
        touched_.resize(kernel.sections.size());
        hints_.resize(kernel.registers.size(), -1);
        for (std::size_t r = 0; r < kernel.registers.size(); ++r) hints_[r] = kernel.registers[r].hint;
        for (const Instruction& i : bodies[0])
            if (i.section >= 0)
                for (const Joined& j : kernel.sections[i.section].joins) hints_[j.before] = hints_[j.joined];
        result_.sections.resize(kernel.sections.size());
    }

    AllocatedKernel run() {
        for (auto& file : held_) file.fill(-1);
        for (std::size_t r = 0; r < values_.size(); ++r)
            if (kernel_.registers[r].fixed >= 0) place(int(r), kernel_.registers[r].fixed);
        Frame frame = open(0, {});
        for (std::size_t r = 0; r < values_.size(); ++r)
            if (values_[r].reg >= 0 && frame.uses[r].empty()) leave(int(r));  // an argument that nothing reads
        for (position_ = 0; position_ < int(bodies_[0].size()); ++position_) step(frame);
        result_.cost = cost_;
        if (kernel_.preserved == Preserved::upper_vectors_and_pointers) {
            for (int p = 8; p < vector_registers; ++p) {
                const bool in_main = touched_[0][p] || clears_upper_halves(kernel_);
                if (in_main) result_.saved.push_back(p);
                for (std::size_t s = 1; s < touched_.size(); ++s)
                    if (touched_[s][p] && !in_main) result_.sections[s].saved.push_back(p), result_.outline_cost += 2;
            }
        }
        result_.cost += 2 * int(result_.saved.size());
        if (result_.main_slots + int(result_.saved.size()) > red_zone_slots)
            result_.cost += 6;  // a frame set up and torn down
        result_.outline_slots = next_outline_slot_ - section_slots;
        return std::move(result_);
    }

private:
    struct State {
        int reg = -1;   ///< physical register, -1 for none
        int slot = -1;  ///< spill slot that holds the value
    };
    /// One section under way: where its values are used, and where its code goes.
    struct Frame {
        int section = 0;
        std::vector<std::vector<int>> uses;  ///< by register: positions, ascending
        std::vector<std::size_t> next;       ///< by register: index of the next use
    };

    const Kernel& kernel_;
    const std::vector<std::vector<Instruction>>& bodies_;
    std::array<int, 2> limits_;
    std::vector<State> values_;
    std::vector<int> hints_;
    std::array<std::array<int, 16>, 2> held_;  ///< by file and physical register: the value in it, -1 for none
    std::vector<std::array<bool, vector_registers>> touched_;  ///< by section that saves what it and those in it write
    int saver_ = 0;                                            ///< the section that saves what is written now
    AllocatedKernel result_;
    std::vector<Instruction>* code_ = nullptr;
    int position_ = 0;
    int cost_ = 0;
    int next_outline_slot_ = section_slots;
    std::vector<int> locked_;                    ///< values that must stay in their registers
    std::vector<std::pair<File, int>> reading_;  ///< physical registers that the instruction at hand reads

    File file(int r) const { return kernel_.registers[r].file; }
    bool rematerializes(int r) const { return kernel_.registers[r].rematerialize >= 0; }

    void place(int r, int physical) {
        values_[r].reg = physical;
        held_[int(file(r))][physical] = r;
        if (file(r) == File::vector && kernel_.registers[r].fixed != physical) touched_[saver_][physical] = true;
    }
    void leave(int r) {
        if (values_[r].reg >= 0) held_[int(file(r))][values_[r].reg] = -1;
        values_[r].reg = -1;
    }

    Frame open(int section, const std::vector<int>& needed_at_end) {
        Frame frame;
        frame.section = section;
        frame.uses.resize(values_.size());
        frame.next.assign(values_.size(), 0);
        const std::vector<Instruction>& body = bodies_[section];
        const auto use = [&](int r, int at, auto&& self) -> void {
            if (r < 0) return;
            if (frame.uses[r].empty() || frame.uses[r].back() != at) frame.uses[r].push_back(at);
            if (rematerializes(r))
                for (const Operand& o : kernel_.constants[kernel_.registers[r].rematerialize].sources)
                    if (o.kind == Operand::Kind::memory) self(o.memory.pointer, at, self);
        };
        for (int k = 0; k < int(body.size()); ++k) {
            for (const Operand& o : body[k].sources) {
                if (o.kind == Operand::Kind::reg) use(o.reg, k, use);
                if (o.kind == Operand::Kind::memory) use(o.memory.pointer, k, use), use(o.memory.index, k, use);
            }
            for (int r : body[k].uses) use(r, k, use);
        }
        for (int r : needed_at_end) use(r, int(body.size()), use);
        code_ = &result_.sections[section].code;
        return frame;
    }

    int next_use(const Frame& frame, int r, int after) const {
        const std::vector<int>& uses = frame.uses[r];
        std::size_t k = frame.next[r];
        while (k < uses.size() && uses[k] <= after) ++k;
        return k < uses.size() ? uses[k] : never;
    }

    void append(Instruction i, int added_cost = 1) {
        cost_ += added_cost;
        code_->push_back(std::move(i));
    }

    static Operand physical(File file, int reg, int bits) {
        Operand o;
        o.reg = reg, o.file = file, o.bits = bits;
        return o;
    }

    Operand slot_operand(int slot, int bits) const {
        Operand o;
        o.kind = Operand::Kind::memory, o.bits = bits;
        o.memory.base = Memory::Base::spill, o.memory.offset = slot;
        return o;
    }

    void move(int r, int to) {
        Instruction i;
        i.mnemonic = file(r) == File::vector ? Mnemonic::vmovaps : Mnemonic::mov;
        i.dst = to, i.dst_bits = kernel_.registers[r].bits;
        i.dst_file = file(r);
        i.sources = {physical(file(r), values_[r].reg, i.dst_bits)};
        append(i);
        leave(r);
        place(r, to);
    }

    void spill(const Frame& frame, int r) {
        if (values_[r].slot >= 0 || rematerializes(r)) return;
        values_[r].slot = frame.section == 0 ? result_.main_slots++ : next_outline_slot_++;
        Instruction i;
        i.mnemonic = file(r) == File::vector ? Mnemonic::vmovups : Mnemonic::mov, i.is_store = true;
        i.target = slot_operand(values_[r].slot, kernel_.registers[r].bits);
        i.sources = {physical(file(r), values_[r].reg, kernel_.registers[r].bits)};
        i.comment = "spill " + kernel_.registers[r].name;
        append(i);
    }

    bool is_locked(int r) const { return std::find(locked_.begin(), locked_.end(), r) != locked_.end(); }

    /// A free physical register, made free if need be. `for_result`: it is written by the instruction at hand, and not
    /// before it.
    int take(const Frame& frame, File f, int hint, bool for_result) {
        auto& held = held_[int(f)];
        const int limit = limits_[int(f)];
        if (hint >= 0 && hint < limit) {
            const int holder = held[hint];
            if (holder < 0) return hint;
            // The holder steps aside at once, off the chain that computes the new value; not into a register that the
            // instruction itself still reads. An operand that has been found already stays where it was found.
            for (int p = limit - 1; p >= 0 && (for_result || !is_locked(holder)); --p)
                if (held[p] < 0 && std::find(reading_.begin(), reading_.end(), std::pair(f, p)) == reading_.end()) {
                    move(holder, p);
                    return hint;
                }
        }
        // Low registers carry results, so the others are taken from the top of the first eight.
        for (int p = std::min(limit, 8) - 1; p >= 0; --p)
            if (held[p] < 0) return p;
        for (int p = 8; p < limit; ++p)
            if (held[p] < 0) return p;
        int victim = -1;
        double farthest = -1;
        for (int p = 0; p < limit; ++p) {
            const int r = held[p];
            if (is_locked(r)) continue;
            const int next = next_use(frame, r, position_ - 1);
            const bool free_to_drop = rematerializes(r) || values_[r].slot >= 0;
            double distance = next == never ? 1e9 : next - position_;
            if (free_to_drop) distance *= 1.5;
            if (distance > farthest) farthest = distance, victim = r;
        }
        if (victim < 0) throw std::logic_error(kernel_.symbol + ": an instruction needs more registers than there are");
        const int freed = values_[victim].reg;
        if (next_use(frame, victim, position_ - 1) != never) spill(frame, victim);
        leave(victim);
        return freed;
    }

    Operand resolved(const Frame& frame, Operand o) {
        if (o.kind == Operand::Kind::reg) {
            o.reg = bring(frame, o.reg);
        } else if (o.kind == Operand::Kind::memory) {
            if (o.memory.pointer >= 0) o.memory.pointer = bring(frame, o.memory.pointer);
            if (o.memory.index >= 0) o.memory.index = bring(frame, o.memory.index);
        }
        return o;
    }

    /// The physical register of a value, which is read back if it isn't in one; locked until the instruction is done.
    int bring(const Frame& frame, int r) {
        if (values_[r].reg < 0) {
            Instruction load;
            if (rematerializes(r)) {
                load = kernel_.constants[kernel_.registers[r].rematerialize];
                for (Operand& o : load.sources) o = resolved(frame, o);
            } else if (values_[r].slot >= 0) {
                load.mnemonic = file(r) == File::vector ? Mnemonic::vmovups : Mnemonic::mov;
                load.sources = {slot_operand(values_[r].slot, kernel_.registers[r].bits)};
                load.dst_bits = kernel_.registers[r].bits, load.dst_file = file(r);
                load.comment = "reload " + kernel_.registers[r].name;
            } else {
                throw std::logic_error(kernel_.symbol + ": value " + std::to_string(r) + " (" +
                                       kernel_.registers[r].name + ") is read before it is made");
            }
            const int p = take(frame, file(r), hints_[r], false);
            load.dst = p;
            append(load);
            place(r, p);
        }
        locked_.push_back(r);
        return values_[r].reg;
    }

    void release_dead(const Frame& frame, const std::vector<int>& registers) {
        for (int r : registers)
            if (values_[r].reg >= 0 && next_use(frame, r, position_) == never) leave(r);
    }

    /// Lets the last operand be read straight from a spill slot or a stack argument, if this is its last use nearby.
    bool fold(const Frame& frame, Instruction& i) {
        const int bits = foldable_bits(i);
        if (bits == 0) return false;
        Operand& last = i.sources.back();
        if (last.kind != Operand::Kind::reg || values_[last.reg].reg >= 0) return false;
        for (std::size_t k = 0; k + 1 < i.sources.size(); ++k)
            if (i.sources[k].kind == Operand::Kind::reg && i.sources[k].reg == last.reg) return false;
        const int again = next_use(frame, last.reg, position_);
        if (again != never && again < position_ + 12) return false;
        if (rematerializes(last.reg)) {
            const Instruction& load = kernel_.constants[kernel_.registers[last.reg].rematerialize];
            const Operand& source = load.sources[0];
            if (source.kind != Operand::Kind::memory || source.bits < bits) return false;
            last = source;
        } else if (values_[last.reg].slot >= 0) {
            last = slot_operand(values_[last.reg].slot, bits);
        } else {
            return false;
        }
        last.bits = bits;
        return true;
    }

    void step(Frame& frame) {
        Instruction i = bodies_[frame.section][position_];
        locked_.clear();
        switch (i.kind) {
        case Instruction::Kind::branch:
        case Instruction::Kind::rare: branch(frame, i); return;
        case Instruction::Kind::end:
            if (frame.section == 0) pin(frame, i);
            return;
        default: break;
        }
        std::vector<int> read;
        const bool folded = fold(frame, i);
        for (std::size_t k = 0; k < i.sources.size(); ++k) {
            Operand& o = i.sources[k];
            if (o.kind == Operand::Kind::reg) read.push_back(o.reg);
            if (o.kind == Operand::Kind::memory) {
                if (o.memory.pointer >= 0) read.push_back(o.memory.pointer);
                if (o.memory.index >= 0) read.push_back(o.memory.index);
            }
            o = resolved(frame, o);
        }
        if (folded) cost_ += 1;
        for (int r : read)
            if (values_[r].reg >= 0) reading_.push_back({file(r), values_[r].reg});
        release_dead(frame, read);
        if (i.dst >= 0) {
            const int r = i.dst;
            const int p = take(frame, file(r), hints_[r], true);
            i.dst = p;
            if (next_use(frame, r, position_) != never)
                place(r, p);
            else if (file(r) == File::vector)
                touched_[saver_][p] = true;
        }
        append(i, 0);
        reading_.clear();
    }

    /// Puts the results where the caller looks for them.
    void pin(Frame& frame, const Instruction& end) {
        std::vector<int> pending;
        for (int r : end.uses) {
            if (kernel_.registers[r].hint < 0) throw std::logic_error(kernel_.symbol + ": a result without a register");
            if (values_[r].reg != kernel_.registers[r].hint) pending.push_back(r);
        }
        while (!pending.empty()) {
            bool progress = false;
            for (std::size_t k = 0; k < pending.size(); ++k) {
                const int r = pending[k], to = kernel_.registers[r].hint;
                const int holder = held_[int(file(r))][to];
                if (holder >= 0 && std::find(end.uses.begin(), end.uses.end(), holder) != end.uses.end()) continue;
                if (holder >= 0) leave(holder);
                if (values_[r].reg >= 0) {
                    move(r, to);
                } else {
                    hints_[r] = to;
                    bring(frame, r);
                }
                pending.erase(pending.begin() + long(k));
                progress = true;
                break;
            }
            if (progress) continue;
            // A ring of moves: one value steps aside.
            const int r = pending[0];
            locked_ = end.uses;
            const int aside = take(frame, file(r), -1, false);
            const int blocker = held_[int(file(r))][kernel_.registers[r].hint];
            move(blocker, aside);
        }
    }

    Place place_of(int r) const {
        Place place;
        place.bits = kernel_.registers[r].bits;
        if (values_[r].reg >= 0) {
            place.reg = values_[r].reg;
        } else if (values_[r].slot >= 0) {
            place.kind = Place::Kind::spill, place.slot = values_[r].slot;
        } else if (rematerializes(r)) {
            place.kind = Place::Kind::memory;
            place.memory = kernel_.constants[kernel_.registers[r].rematerialize].sources[0].memory;
        } else {
            throw std::logic_error(kernel_.symbol + ": value " + kernel_.registers[r].name +
                                   " is nowhere at the rare path");
        }
        return place;
    }

    std::vector<Place> places(const std::vector<int>& parts) const {
        std::vector<Place> result;
        for (int r : parts) result.push_back(place_of(r));
        return result;
    }

    void find_inputs(const RarePath& rare) {
        for (const StashArray& array : rare.inputs) result_.rare.inputs.push_back({places(array.parts), {}});
    }

    void branch(Frame& frame, Instruction i) {
        const KernelSection& section = kernel_.sections[i.section];
        const int condition = bring(frame, section.condition);
        Instruction test = i;
        test.uses.clear();
        test.sources = {physical(File::general, condition, 32)};
        test.immediate = section.cut;
        append(test, 0);

        // What the main code needs afterwards, apart from what the section replaces.
        std::vector<int> needed;
        for (std::size_t r = 0; r < values_.size(); ++r)
            if ((values_[r].reg >= 0 || values_[r].slot >= 0) && !rematerializes(int(r)) &&
                next_use(frame, int(r), position_) != never &&
                std::none_of(section.joins.begin(), section.joins.end(),
                             [&](const Joined& j) { return j.before == int(r); }))
                needed.push_back(int(r));
        // Constants and block pointers that sit in registers must be there again, too.
        std::vector<int> resident;
        for (std::size_t r = 0; r < values_.size(); ++r)
            if (values_[r].reg >= 0 && rematerializes(int(r)) && next_use(frame, int(r), position_) != never)
                resident.push_back(int(r));

        const auto values_before = values_;
        const auto held_before = held_;
        const int position_before = position_, cost_before = cost_;
        auto* code_before = code_;
        if (section.rare) {
            result_.rare.condition = condition;
            for (const StashArray& array : section.rare->outputs)
                result_.rare.outputs.push_back({places(array.parts), places(array.parts)});
        }
        if (!section.body.empty()) {
            std::vector<int> wanted = needed;
            wanted.insert(wanted.end(), resident.begin(), resident.end());
            for (const Joined& j : section.joins) hints_[j.after] = values_before[j.before].reg;
            const auto limits_before = limits_;
            const int saver_before = saver_;
            if (!section.rare) {
                limits_[int(File::vector)] = vector_registers;
                if (saver_ == 0) saver_ = i.section;
            }
            Frame inner = open(i.section, wanted);
            for (position_ = 0; position_ < int(bodies_[i.section].size()); ++position_) step(inner);
            if (section.rare) {
                std::vector<int> after;
                for (const Joined& j : section.joins) after.push_back(j.after);
                result_.rare.condition = bring(inner, *section.rare->remaining);
                find_inputs(*section.rare);
                result_.rare.outputs[0].from = places(after);  // a repair has a single output
            }
            restore(inner, i.section, wanted, values_before);
            limits_ = limits_before;
            saver_ = saver_before;
            if (!section.rare) result_.outline_cost += cost_ - cost_before;
        } else if (section.rare) {
            find_inputs(*section.rare);
        }
        values_ = values_before;
        held_ = held_before;
        position_ = position_before, cost_ = cost_before, code_ = code_before;

        // Whatever else was in a register may have been overwritten out of line.
        for (std::size_t r = 0; r < values_.size(); ++r)
            if (values_[r].reg >= 0 && std::ranges::find(needed, int(r)) == needed.end() &&
                std::ranges::find(resident, int(r)) == resident.end() &&
                std::ranges::none_of(section.joins, [&](const Joined& j) { return j.before == int(r); }))
                leave(int(r));

        for (const Joined& j : section.joins) {
            values_[j.joined] = values_[j.before];
            if (values_[j.before].reg >= 0) {
                held_[int(file(j.before))][values_[j.before].reg] = j.joined;
                values_[j.joined].slot = -1;
            }
            values_[j.before] = {};
        }
        locked_.clear();
        release_dead(frame, i.uses);
        for (const Joined& j : section.joins)
            if (values_[j.joined].reg >= 0 && next_use(frame, j.joined, position_) == never) leave(j.joined);
    }

    /// Code at a section's end that puts every value back where the main code has it.
    void restore(Frame& inner, int section_index, const std::vector<int>& wanted, const std::vector<State>& target) {
        const KernelSection& section = kernel_.sections[section_index];
        code_ = &result_.sections[section_index].restore;
        locked_.clear();
        struct Arrival {
            int value, reg;
        };
        std::vector<Arrival> arrivals;
        for (const Joined& j : section.joins) {
            if (target[j.before].reg >= 0) {
                if (values_[j.after].reg != target[j.before].reg) arrivals.push_back({j.after, target[j.before].reg});
            } else {  // the main code has it in a slot
                const int p = bring(inner, j.after);
                Instruction store;
                store.mnemonic = file(j.after) == File::vector ? Mnemonic::vmovups : Mnemonic::mov,
                store.is_store = true;
                store.target = slot_operand(target[j.before].slot, kernel_.registers[j.after].bits);
                store.sources = {physical(file(j.after), p, kernel_.registers[j.after].bits)};
                append(store);
                locked_.clear();
            }
        }
        for (int r : wanted)
            if (target[r].reg >= 0 && values_[r].reg != target[r].reg) arrivals.push_back({r, target[r].reg});
        // Through memory: nothing that is still to be moved can be overwritten.
        for (const Arrival& a : arrivals)
            if (values_[a.value].reg >= 0) spill(inner, a.value);
        for (const Arrival& a : arrivals) leave(a.value);
        // Pointers first: constants are read through them.
        std::stable_sort(arrivals.begin(), arrivals.end(), [&](const Arrival& a, const Arrival& b) {
            return file(a.value) == File::general && file(b.value) == File::vector;
        });
        for (const Arrival& a : arrivals) {
            const int holder = held_[int(file(a.value))][a.reg];
            if (holder >= 0) leave(holder);
            hints_[a.value] = a.reg;
            bring(inner, a.value);
            if (values_[a.value].reg != a.reg)
                throw std::logic_error(kernel_.symbol + ": a section's end can't be restored");
            locked_.clear();
        }
    }
};

}  // namespace

AllocatedKernel allocate(const Kernel& kernel, const std::vector<std::vector<Instruction>>& bodies, int vectors) {
    return Allocator(kernel, bodies, vectors).run();
}

}  // namespace tuvo

// Orders the instructions of a body: longest chain first, but few values alive at once.
//
// A list scheduler over a small model of the first processors with AVX: one multiplier, one adder, one unit for moves
// between lanes, two loads a cycle, four instructions a cycle. The processor reorders by itself, so what counts is that
// long chains start early and that the register allocator is left little to spill.
#include <algorithm>
#include <array>

#include "frame/generator/schedule.hpp"

namespace tuvo {
namespace {

struct Cost {
    Unit unit;
    int latency;
};

Cost cost_of(const Instruction& i) {
    if (i.kind != Instruction::Kind::plain || i.is_store) return {Unit::any, 0};
    const InstructionRow& row = row_of(i.mnemonic);
    return {row.unit, i.dst_bits == 256 ? row.latency_256 : row.latency_128};
}

}  // namespace

Scheduled schedule(const Kernel& kernel, const std::vector<Instruction>& body, Policy policy, int pressure) {
    const int n = int(body.size());
    std::vector<std::vector<std::pair<int, int>>> successors(n);  // (instruction, latency)
    std::vector<int> predecessors(n, 0);
    std::vector<std::vector<int>> reads(n), writes(n);
    std::vector<int> producer(kernel.registers.size(), -1);
    std::vector<int> uses_left(kernel.registers.size(), 0);
    std::vector<std::vector<int>> readers(kernel.registers.size());

    const auto edge = [&](int from, int to, int latency) {
        successors[from].push_back({to, latency});
        ++predecessors[to];
    };
    int rare_at = -1;
    for (int k = 0; k < n; ++k) {
        const Instruction& i = body[k];
        const auto read = [&](int r) {
            if (r < 0 || kernel.registers[r].rematerialize >= 0) return;
            if (std::find(reads[k].begin(), reads[k].end(), r) == reads[k].end()) reads[k].push_back(r);
        };
        for (const Operand& o : i.sources) {
            if (o.kind == Operand::Kind::reg) read(o.reg);
            if (o.kind == Operand::Kind::memory) read(o.memory.index);
        }
        for (int use : i.uses) read(use);
        if (i.dst >= 0) writes[k].push_back(i.dst);
        if (i.section >= 0)
            for (const Joined& j : kernel.sections[i.section].joins) writes[k].push_back(j.joined);
        for (int r : reads[k]) {
            ++uses_left[r];
            readers[r].push_back(k);
            if (producer[r] >= 0) edge(producer[r], k, cost_of(body[producer[r]]).latency);
        }
        for (int r : writes[k]) producer[r] = k;
        if (i.kind == Instruction::Kind::branch) {
            // A replaced value is gone afterwards: whoever else reads it comes first.
            for (const Joined& j : kernel.sections[i.section].joins)
                for (int reader : readers[j.before])
                    if (reader != k) edge(reader, k, 0);
        }
        // The upper half of an argument is fetched before anything can move the lower half away.
        if (i.mnemonic == Mnemonic::vextractf128 && kernel.registers[i.sources[0].reg].bits < 256)
            for (int after = k + 1; after < n; ++after) edge(k, after, 0);
        if (i.kind == Instruction::Kind::rare || i.kind == Instruction::Kind::end)
            for (int before = 0; before < k; ++before) edge(before, k, 0);
        // The rare path comes back with the results alone: what leads out of the kernel is done after it.
        if (rare_at >= 0) edge(rare_at, k, 0);
        if (i.kind == Instruction::Kind::rare) rare_at = k;
    }

    std::vector<int> height(n, 0);
    for (int k = n - 1; k >= 0; --k)
        for (const auto& [to, latency] : successors[k])
            height[k] = std::max(height[k], height[to] + std::max(latency, 1));

    std::array<int, 2> alive{0, 0};
    for (std::size_t r = 0; r < kernel.registers.size(); ++r)
        if (kernel.registers[r].rematerialize < 0 && uses_left[r] > 0 && producer[r] < 0)
            ++alive[int(kernel.registers[r].file)];
    const auto growth = [&](int k, File file) {
        int change = 0;
        for (int r : writes[k])
            if (kernel.registers[r].file == file && uses_left[r] > 0) ++change;
        for (int r : reads[k])
            if (kernel.registers[r].file == file && uses_left[r] == 1) --change;
        return change;
    };

    std::vector<int> earliest(n, 0);
    std::vector<int> freshness(n, -1);  // when the youngest operand was made
    std::vector<int> ready;
    for (int k = 0; k < n; ++k)
        if (predecessors[k] == 0) ready.push_back(k);
    std::vector<Instruction> order;
    int now = 0, issued = 0;
    std::array<int, 5> busy{-1, -1, -1, -1, -1};  // last cycle in which a unit was given work
    int cycles = 0;
    constexpr int general_limit = 5;  // general registers that indices may fill before their loads
    while (!ready.empty()) {
        const bool tight = alive[0] >= pressure, tight_general = alive[1] >= general_limit;
        int best = -1;
        std::array<int, 4> best_key{};
        for (int candidate : ready) {
            const int grow = growth(candidate, File::vector), grow_general = growth(candidate, File::general);
            const Unit unit = cost_of(body[candidate]).unit;
            const bool waits = earliest[candidate] > now || (unit < Unit::integer && busy[int(unit)] >= now);
            std::array<int, 4> key{tight_general ? -std::max(grow_general, 0) : 0, tight ? -std::max(grow, 0) : 0, 0,
                                   0};
            switch (policy) {
            case Policy::longest_chain:
                key[2] = waits ? -std::max(earliest[candidate] - now, 1) : 0;
                key[3] = height[candidate];
                break;
            case Policy::as_written: key[2] = -candidate; break;
            case Policy::depth_first:
                key[2] = freshness[candidate];
                key[3] = height[candidate];
                break;
            }
            if (best < 0 || key > best_key) best = candidate, best_key = key;
        }
        ready.erase(std::find(ready.begin(), ready.end(), best));
        alive[0] += growth(best, File::vector);
        alive[1] += growth(best, File::general);
        for (int r : reads[best]) --uses_left[r];
        const Cost cost = cost_of(body[best]);
        const int unit = int(cost.unit);
        if (cost.unit < Unit::integer && busy[unit] >= now) now = busy[unit] + 1, issued = 0;
        if (earliest[best] > now) now = earliest[best], issued = 0;
        if (cost.unit < Unit::integer) busy[unit] = now;
        cycles = std::max(cycles, now + cost.latency);
        for (const auto& [to, latency] : successors[best]) {
            earliest[to] = std::max(earliest[to], now + latency);
            freshness[to] = int(order.size());
            if (--predecessors[to] == 0) ready.push_back(to);
        }
        order.push_back(body[best]);
        if (++issued == 4) ++now, issued = 0;
    }
    return {std::move(order), cycles};
}

}  // namespace tuvo

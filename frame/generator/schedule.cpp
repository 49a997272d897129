// Orders the instructions of a body: longest chain first, but few values alive at once.
//
// A list scheduler over a small model of the first processors with AVX: one multiplier, one adder, one unit for moves
// between lanes, two loads a cycle, four instructions a cycle. The processor reorders by itself, so what counts is that
// long chains start early and that the register allocator is left little to spill.
#include "frame/generator/schedule.hpp"

#include <algorithm>
#include <array>
#include <iterator>

namespace tuvo {
namespace {

struct Cost {
    Unit unit;
    int latency;
};

Cost cost_of(const Instruction& i) {
    if (i.kind == Instruction::Kind::unless_nearest) return {Unit::any, 20};  // stores are read back
    if (i.kind != Instruction::Kind::plain || i.is_store) return {Unit::any, 0};
    const InstructionRow& row = row_of(i.mnemonic);
    return {row.unit, i.dst_bits == 256 ? row.latency_256 : row.latency_128};
}

// What has to come before what.

struct Edge {
    int to, latency;
};

struct Dependences {
    std::vector<std::vector<Edge>> successors;    ///< by instruction
    std::vector<int> predecessors;                ///< by instruction: how many edges lead to it
    std::vector<std::vector<int>> reads, writes;  ///< by instruction: registers
    std::vector<std::vector<int>> readers;        ///< by register: instructions
    std::vector<int> producer;                    ///< by register: the instruction that made it last, -1 for none
    std::vector<int> height;                      ///< by instruction: cycles from it to the end
};

void add_edge(Dependences& d, int from, int to, int latency) {
    d.successors[from].push_back({to, latency});
    ++d.predecessors[to];
}

std::vector<int> registers_read(const Kernel& kernel, const Instruction& i) {
    std::vector<int> reads;
    const auto read = [&](int r) {
        if (r >= 0 && kernel.registers[r].rematerialize < 0 && std::ranges::find(reads, r) == reads.end())
            reads.push_back(r);
    };
    for (const Operand& o : i.sources) {
        if (o.kind == Operand::Kind::reg) read(o.reg);
        if (o.kind == Operand::Kind::memory) read(o.memory.index);
    }
    for (int use : i.uses) read(use);
    return reads;
}

std::vector<int> registers_written(const Kernel& kernel, const Instruction& i) {
    std::vector<int> writes;
    if (i.dst >= 0) writes.push_back(i.dst);
    if (i.section >= 0)
        for (const Joined& j : kernel.sections[i.section].joins) writes.push_back(j.joined);
    return writes;
}

/// The upper half of an argument is fetched before anything can move the lower half away.
bool comes_first(const Kernel& kernel, const Instruction& i) {
    return i.kind == Instruction::Kind::plain && i.mnemonic == Mnemonic::vextractf128 &&
           kernel.registers[i.sources[0].reg].bits < 256;
}

/// The values that a section replaces, itself or in sections within it.
std::vector<int> replaced_by(const Kernel& kernel, int section) {
    std::vector<int> values;
    for (const Joined& j : kernel.sections[section].joins) values.push_back(j.before);
    for (const Instruction& i : kernel.sections[section].body)
        if (i.kind == Instruction::Kind::branch) std::ranges::copy(replaced_by(kernel, i.section), std::back_inserter(values));
    return values;
}

/// Edges to and from one instruction, after those of all before it.
void add_edges(const Kernel& kernel, const std::vector<Instruction>& body, int k, int rare_at, Dependences& d) {
    const Instruction& i = body[k];
    for (int r : d.reads[k]) {
        d.readers[r].push_back(k);
        if (d.producer[r] >= 0) add_edge(d, d.producer[r], k, cost_of(body[d.producer[r]]).latency);
    }
    for (int r : d.writes[k]) d.producer[r] = k;
    if (i.kind == Instruction::Kind::branch) {
        // A replaced value is gone afterwards: whoever else reads it comes first.
        for (int value : replaced_by(kernel, i.section))
            for (int reader : d.readers[value])
                if (reader != k) add_edge(d, reader, k, 0);
    }
    if (comes_first(kernel, i))
        for (int after = k + 1; after < int(body.size()); ++after) add_edge(d, k, after, 0);
    if (i.kind == Instruction::Kind::rare || i.kind == Instruction::Kind::end)
        for (int before = 0; before < k; ++before) add_edge(d, before, k, 0);
    // The rare path comes back with the results alone: what leads out of the kernel is done after it.
    if (rare_at >= 0) add_edge(d, rare_at, k, 0);
}

Dependences find_dependences(const Kernel& kernel, const std::vector<Instruction>& body) {
    const std::size_t n = body.size();
    Dependences d;
    d.successors.resize(n), d.predecessors.resize(n), d.height.resize(n);
    d.readers.resize(kernel.registers.size()), d.producer.resize(kernel.registers.size(), -1);
    int rare_at = -1;
    for (int k = 0; k < int(n); ++k) {
        d.reads.push_back(registers_read(kernel, body[k]));
        d.writes.push_back(registers_written(kernel, body[k]));
        add_edges(kernel, body, k, rare_at, d);
        if (body[k].kind == Instruction::Kind::rare) rare_at = k;
    }
    for (int k = int(n) - 1; k >= 0; --k)
        for (const Edge& edge : d.successors[k])
            d.height[k] = std::max(d.height[k], d.height[edge.to] + std::max(edge.latency, 1));
    return d;
}

// The order.

struct Progress {
    std::vector<int> ready;               ///< instructions that nothing has to precede any more
    std::vector<int> predecessors;        ///< by instruction: how many are still to come
    std::vector<int> earliest;            ///< by instruction: cycle in which its operands are there
    std::vector<int> freshness;           ///< by instruction: when its youngest operand was made
    std::vector<int> uses_left;           ///< by register
    std::array<int, 2> alive{};           ///< by file: registers with uses left
    std::array<int, 3> busy{-1, -1, -1};  ///< by unit: last cycle in which it was given work
    int now = 0, issued = 0;              ///< the cycle, and the instructions issued in it
};

bool takes_turns(Unit unit) { return unit < Unit::integer; }

Progress begin(const Kernel& kernel, const Dependences& d) {
    Progress p;
    const int n = int(d.predecessors.size());
    p.predecessors = d.predecessors;
    p.earliest.resize(n), p.freshness.resize(n, -1);
    for (int k = 0; k < n; ++k)
        if (d.predecessors[k] == 0) p.ready.push_back(k);
    for (std::size_t r = 0; r < kernel.registers.size(); ++r) {
        p.uses_left.push_back(int(d.readers[r].size()));
        if (p.uses_left[r] > 0 && d.producer[r] < 0) ++p.alive[int(kernel.registers[r].file)];
    }
    return p;
}

/// How many more registers of a file are alive after an instruction.
int growth(const Kernel& kernel, const Dependences& d, const Progress& p, int k, File file) {
    int change = 0;
    for (int r : d.writes[k])
        if (kernel.registers[r].file == file && p.uses_left[r] > 0) ++change;
    for (int r : d.reads[k])
        if (kernel.registers[r].file == file && p.uses_left[r] == 1) --change;
    return change;
}

/// What speaks for an instruction, the weightiest first.
using Key = std::array<int, 4>;

Key preference(const Dependences& d, const Progress& p, int k, Unit unit, Policy policy) {
    switch (policy) {
    case Policy::longest_chain: {
        const bool waits = p.earliest[k] > p.now || (takes_turns(unit) && p.busy[int(unit)] >= p.now);
        return {0, 0, waits ? -std::max(p.earliest[k] - p.now, 1) : 0, d.height[k]};
    }
    case Policy::as_written: return {0, 0, -k, 0};
    default: return {0, 0, p.freshness[k], d.height[k]};
    }
}

/// Among those that are ready, the one that comes next. Where registers are short, those that take more wait.
int choose(const Kernel& kernel, const std::vector<Instruction>& body, const Dependences& d, const Progress& p,
           Policy policy, int pressure) {
    constexpr int general_limit = 5;  // general registers that indices may fill before their loads
    const bool tight = p.alive[int(File::vector)] >= pressure;
    const bool tight_general = p.alive[int(File::general)] >= general_limit;
    int best = -1;
    Key best_key{};
    for (int k : p.ready) {
        Key key = preference(d, p, k, cost_of(body[k]).unit, policy);
        if (tight_general) key[0] = -std::max(growth(kernel, d, p, k, File::general), 0);
        if (tight) key[1] = -std::max(growth(kernel, d, p, k, File::vector), 0);
        if (best < 0 || key > best_key) best = k, best_key = key;
    }
    return best;
}

/// Takes an instruction off the ready ones, at its time. `order`: how many have gone before. Returns the cycle in which
/// its result is there.
int issue(const Kernel& kernel, const Dependences& d, Progress& p, int k, Cost cost, int order) {
    p.ready.erase(std::ranges::find(p.ready, k));
    for (const File file : {File::vector, File::general}) p.alive[int(file)] += growth(kernel, d, p, k, file);
    for (int r : d.reads[k]) --p.uses_left[r];
    const int unit = int(cost.unit);
    if (takes_turns(cost.unit) && p.busy[unit] >= p.now) p.now = p.busy[unit] + 1, p.issued = 0;
    if (p.earliest[k] > p.now) p.now = p.earliest[k], p.issued = 0;
    if (takes_turns(cost.unit)) p.busy[unit] = p.now;
    for (const Edge& edge : d.successors[k]) {
        p.earliest[edge.to] = std::max(p.earliest[edge.to], p.now + edge.latency);
        p.freshness[edge.to] = order;
        if (--p.predecessors[edge.to] == 0) p.ready.push_back(edge.to);
    }
    const int done = p.now + cost.latency;
    if (++p.issued == 4) ++p.now, p.issued = 0;
    return done;
}

}  // namespace

Scheduled schedule(const Kernel& kernel, const std::vector<Instruction>& body, Policy policy, int pressure) {
    const Dependences d = find_dependences(kernel, body);
    Progress p = begin(kernel, d);
    Scheduled result;
    while (!p.ready.empty()) {
        const int k = choose(kernel, body, d, p, policy, pressure);
        const int done = issue(kernel, d, p, k, cost_of(body[k]), int(result.order.size()));
        result.cycles = std::max(result.cycles, done);
        result.order.push_back(body[k]);
    }
    return result;
}

}  // namespace tuvo

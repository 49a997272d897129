#include "frame/description/program.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace tuvo {
namespace {

struct Range {
    std::int64_t low = std::numeric_limits<std::int32_t>::min();
    std::int64_t high = std::numeric_limits<std::int32_t>::max();
    bool fits() const {
        return low >= std::numeric_limits<std::int32_t>::min() && high <= std::numeric_limits<std::int32_t>::max();
    }
};

/// What can be proven about a 32-bit integer node, read as signed.
Range range_of(const Program& program, int index) {
    for (const Claim& claim : program.claims)
        if (claim.node == index) return {claim.low, claim.high};
    const Node& node = program.nodes[index];
    const auto operand = [&](int k) { return range_of(program, node.args[k]); };
    const auto checked = [](Range r) { return r.fits() ? r : Range{}; };
    switch (node.op) {
    case Op::constant:
        if (node.quad) return {};
        return {std::int32_t(node.imm), std::int32_t(node.imm)};
    case Op::bit_and: {
        const Range a = operand(0), b = operand(1);
        if (a.low >= 0 && b.low >= 0) return {0, std::min(a.high, b.high)};
        if (a.low >= 0) return {0, a.high};
        if (b.low >= 0) return {0, b.high};
        return {};
    }
    case Op::shift_right: {
        const Range a = operand(0);
        if (node.imm == 0 || node.imm >= 32) return {};
        if (a.low >= 0) return {a.low >> node.imm, a.high >> node.imm};
        return {0, std::int64_t(0xffffffffu >> node.imm)};
    }
    case Op::shift_left: {
        const Range a = operand(0);
        if (a.low < 0 || node.imm >= 31) return {};
        return checked({a.low << node.imm, a.high << node.imm});
    }
    case Op::add: {
        const Range a = operand(0), b = operand(1);
        return checked({a.low + b.low, a.high + b.high});
    }
    case Op::sub: {
        const Range a = operand(0), b = operand(1);
        return checked({a.low - b.high, a.high - b.low});
    }
    default: return {};
    }
}

std::string describe_node(const Program& program, int index) {
    const Node& node = program.nodes[index];
    return program.name + ": node " + std::to_string(index) + (node.name.empty() ? "" : " (" + node.name + ")");
}

}  // namespace

Type type_of(Lane lane) {
    switch (lane) {
    case Lane::f32: return Type::f32;
    case Lane::f64: return Type::f64;
    case Lane::i32:
    case Lane::u32: return Type::i32;
    default: return Type::i64;
    }
}

void find_gather_ranges(Program& program) {
    for (const Node& node : program.nodes) {
        if (node.op != Op::gather) continue;
        const Range range = range_of(program, node.args[0]);
        Gather& gather = program.gathers[node.imm];
        gather.low = range.low, gather.high = range.high;
    }
}

void validate(const Program& program) {
    const auto fail = [&](int node, const std::string& what) {
        throw std::invalid_argument(describe_node(program, node) + ": " + what);
    };
    for (std::size_t k = 0; k < program.nodes.size(); ++k) {
        const Node& node = program.nodes[k];
        if (node.op == Op::gather) {
            const Gather& gather = program.gathers[node.imm];
            const RawTable& data = program.tables[gather.table].data;
            const std::int64_t size = std::int64_t(data.patterns.size()) * lane_size(data.lane);
            const std::int64_t first = gather.low - gather.bias;
            const std::int64_t end = gather.high - gather.bias + gather.count * lane_size(data.lane);
            if (first < 0 || end > size)
                fail(int(k), "reads bytes " + std::to_string(first) + " to " + std::to_string(end) + " of table " +
                                 program.tables[gather.table].name + ", which has " + std::to_string(size) +
                                 "; mask the index or claim its range");
        }
        for (int arg : node.args) {
            if (arg < 0) continue;
            const Node& used = program.nodes[arg];
            if (used.op == Op::gather && node.op != Op::element) fail(int(k), "uses a gather as a value");
            if (used.op == Op::constant && node.op == Op::by_part_size)
                fail(int(k), "chooses a constant by the size of parts");
            bool visible = used.section == 0;
            for (int s = node.section; s != 0 && !visible; s = program.sections[s].parent) visible = used.section == s;
            if (node.op == Op::join && arg == node.args[1]) visible = true;
            if (!visible) fail(int(k), "uses a value from inside a section that may not have run");
        }
    }
    int repairs = 0;
    for (const Section& section : program.sections) repairs += section.kind == Section::Kind::repair;
    if (repairs > 1) throw std::invalid_argument(program.name + ": has more than one repair");
}

}  // namespace tuvo

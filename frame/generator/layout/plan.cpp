#include "frame/generator/layout/plan.hpp"

#include <algorithm>

namespace tuvo {
namespace {

/// From here on, a value with two ways is another name of the way that this width takes.
void choose_by_part_size(Program& program, const Family& family, int width) {
    const int chosen = part_bits(family.element, width).front() == 256 ? 1 : 0;
    for (Node& node : program.nodes)
        if (node.op == Op::by_part_size) node.op = Op::bitcast, node.args = {node.args[chosen], -1, -1};
}

/// A kernel that returns no whole register takes its 256-bit arguments apart at once. Then it leaves no upper halves in
/// use, and need not keep those of the caller from a vzeroupper.
bool works_narrow(const Plan& plan) {
    const Family& family = plan.family;
    if (call_form(family, plan.width) == Form::memory || plan.program.sections.size() > 1) return false;
    const auto fits = [&](Lane lane) { return lanes(plan) * lane_size(lane) <= 16; };
    return std::ranges::all_of(family.outputs(), fits) && !std::ranges::all_of(family.arguments, fits);
}

bool needs_halves(const Node& n, Type operand) {
    switch (n.op) {
    case Op::int_to_float: return n.type == Type::f64;
    case Op::lookup4:
    case Op::join: return false;
    case Op::widen:
    case Op::mask_widen:
    case Op::mask_narrow:
    case Op::high_word:
    case Op::low_word:
    case Op::equal:
    case Op::greater: return true;
    default: return is_integer(operand);
    }
}

/// Nodes that some integer instruction reads, directly or through bit operations.
std::vector<bool> find_integer_users(const Plan& plan) {
    const std::vector<Node>& nodes = plan.program.nodes;
    std::vector<bool> wanted(nodes.size());
    for (int k = int(nodes.size()) - 1; k >= 0; --k) {
        if (!plan.live[k]) continue;
        const Node& n = nodes[k];
        const bool bitwise = is_bitwise(n.op) || n.op == Op::select || n.op == Op::bitcast || n.op == Op::join;
        for (int a : n.args)
            if (a >= 0 && (bitwise ? wanted[k] : needs_halves(n, nodes[a].type))) wanted[a] = true;
    }
    return wanted;
}

/// Whether 64-bit lanes can lie in the order that unpacking 256-bit registers of words gives: of eight lanes 0, 1, 4, 5
/// in one register and 2, 3, 6, 7 in the next. Two shuffles of whole registers lead there and one back, where lanes in
/// order take extracts and inserts as well. Nothing may see the order from outside: 64-bit lanes have to be joined of
/// words and end as words, and must not meet values that lie otherwise.
bool can_interleave(const Plan& plan) {
    const Program& program = plan.program;
    if (wide_family(plan) || !split(plan, Type::i32) || program.sections.size() > 1 || plan.family.has_rare)
        return false;
    std::vector<bool> inner(program.nodes.size());
    bool joins = false;
    for (int k = 0; k < int(program.nodes.size()); ++k) {
        const Node& n = program.nodes[k];
        if (!plan.live[k] || is_constant(plan, k)) continue;
        const bool enters = n.op == Op::join_words;
        const bool leaves = n.op == Op::low_word || n.op == Op::high_word || n.op == Op::mask_narrow;
        std::vector<int> values;
        for (int a : n.args)
            if (a >= 0 && !is_constant(plan, a)) values.push_back(a);
        const auto is_inner = [&](int a) { return inner[a]; };
        inner[k] = !leaves && (type_size(n.type) == 8 || std::ranges::any_of(values, is_inner));
        for (int a : values)
            if (inner[a] != (leaves || (inner[k] && !enters))) return false;
        joins = joins || enters;
        if (n.op == Op::argument && inner[k]) return false;
    }
    return joins && std::ranges::none_of(program.outputs, [&](int output) { return inner[output]; });
}

}  // namespace

Plan make_plan(const Program& program, const BlockLayout& blocks, const Family& family, int width) {
    Plan plan{program, blocks, family, width, {}, false, false, {}};
    choose_by_part_size(plan.program, family, width);
    plan.live = live_nodes(plan.program);
    plan.narrow = works_narrow(plan);
    plan.halves_wanted = find_integer_users(plan);
    plan.interleaved = can_interleave(plan);
    return plan;
}

int lanes(const Plan& plan) { return physical_lanes(plan.width); }
bool scalar(const Plan& plan) { return plan.width == 1; }
bool wide_family(const Plan& plan) { return lane_size(plan.family.element) == 8; }

int whole_count(const Plan& plan, Type type) {
    return plan.narrow ? half_count(plan, type) : std::max(1, lanes(plan) * type_size(type) / 32);
}
int half_count(const Plan& plan, Type type) { return std::max(1, lanes(plan) * type_size(type) / 16); }
int whole_bits(const Plan& plan, Type type) { return !plan.narrow && lanes(plan) * type_size(type) > 16 ? 256 : 128; }
bool split(const Plan& plan, Type type) { return whole_bits(plan, type) == 256; }

int count_of(const Plan& plan, Type type, Shape shape) {
    return shape == Shape::whole ? whole_count(plan, type) : half_count(plan, type);
}
int bits_of(const Plan& plan, Type type, Shape shape) { return shape == Shape::whole ? whole_bits(plan, type) : 128; }

int mask_cut(const Plan& plan) { return plan.width <= 2 ? (1 << plan.width) - 1 : 0; }

bool is_floating(Type type) { return type == Type::f32 || type == Type::f64; }
bool is_integer(Type type) { return type == Type::i32 || type == Type::i64; }
bool is_bitwise(Op op) { return op == Op::bit_and || op == Op::bit_or || op == Op::bit_xor || op == Op::and_not; }

const Node& node_of(const Plan& plan, int node) { return plan.program.nodes[node]; }
bool is_constant(const Plan& plan, int node) { return node_of(plan, node).op == Op::constant; }

bool is_nan_constant(const Plan& plan, int node) {
    const Node& n = node_of(plan, node);
    if (n.type == Type::f32) return (n.imm & 0x7fffffff) > 0x7f800000;
    return n.type == Type::f64 && (n.imm & ~(std::uint64_t(1) << 63)) > 0x7ff0000000000000;
}

int root(const Plan& plan, int node) {
    while (node_of(plan, node).op == Op::bitcast) node = node_of(plan, node).args[0];
    return node;
}

bool integer_domain(const Plan& plan, int node) {
    const Node& n = node_of(plan, node);
    if (is_integer(n.type)) return true;
    return n.op == Op::equal || n.op == Op::greater || (n.op == Op::constant && !is_floating(n.type));
}

bool is_read(const Plan& plan, int node) {
    for (std::size_t k = 0; k < plan.live.size(); ++k)
        if (plan.live[k] && std::ranges::count(plan.program.nodes[k].args, node) > 0) return true;
    return std::ranges::any_of(plan.program.rare, [&](const RareTest& test) { return test.mask == node; });
}

}  // namespace tuvo

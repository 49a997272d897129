#include "frame/description/program.hpp"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "frame/description/notation.hpp"

namespace tuvo {
namespace {

thread_local Program* current = nullptr;
thread_local int current_section = 0;
thread_local int current_block = InBlock::pool;

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

Program& recording() {
    if (!current) throw std::logic_error("a value of the kernel notation was made outside a description");
    return *current;
}

int record(Op op, Type type, std::array<int, 3> args, std::uint64_t imm) {
    Program& program = recording();
    for (int arg : args)
        if (arg < -1 || arg >= int(program.nodes.size()))
            throw std::invalid_argument(program.name + ": an operation uses a value that was never given one");
    if (op == Op::bitcast && program.nodes[args[0]].op == Op::constant && !program.nodes[args[0]].quad)
        return record_constant(type, program.nodes[args[0]].imm);  // the same pattern under another type
    Node node;
    node.op = op, node.type = type, node.args = args, node.imm = imm, node.section = current_section;
    program.nodes.push_back(node);
    return int(program.nodes.size()) - 1;
}

namespace {

int record_shared_constant(Type type, std::uint64_t imm, bool quad) {
    Program& program = recording();
    const int block = current_block < program.blocks ? current_block : InBlock::pool;
    for (std::size_t k = 0; k < program.nodes.size(); ++k) {
        const Node& n = program.nodes[k];
        if (n.op == Op::constant && n.type == type && n.imm == imm && n.quad == quad && n.block == block) return int(k);
    }
    const int node = record(Op::constant, type, {-1, -1, -1}, imm);
    program.nodes[node].block = block;
    program.nodes[node].quad = quad;
    program.nodes[node].section = 0;  // a constant is there everywhere
    return node;
}

}  // namespace

int record_constant(Type type, std::uint64_t pattern) { return record_shared_constant(type, pattern, false); }

int record_quad(Type type, std::array<std::uint32_t, 4> patterns) {
    auto& quads = recording().quads;
    auto found = std::find(quads.begin(), quads.end(), patterns);
    if (found == quads.end()) found = quads.insert(quads.end(), patterns);
    return record_shared_constant(type, std::uint64_t(found - quads.begin()), true);
}

void name_node(int node, const char* name) { recording().nodes.at(node).name = name; }

int record_not(int mask) {
    const Node node = recording().nodes.at(mask);
    if (node.op == Op::compare) {
        static constexpr std::array<int, 15> negated{4, 5, 6, 7, 0, 1, 2, 3, -1, 13, 14, -1, -1, 9, 10};
        return record(Op::compare, node.type, node.args, std::uint64_t(negated[node.imm]));
    }
    const int ones = record_constant(node.type, node.type == Type::m32 ? 0xffffffffu : ~std::uint64_t(0));
    return record(Op::bit_xor, node.type, {mask, ones, -1});
}

int table(RawTable data, const char* name) {
    Program& program = recording();
    if (current_block < 0 || current_block >= program.blocks)
        throw std::invalid_argument(program.name + ": table " + name +
                                    " needs a constant block, and the family has none here");
    program.tables.push_back({std::move(data), current_block, name});
    return int(program.tables.size()) - 1;
}

I32 claim_range(I32 value, std::int64_t low, std::int64_t high) {
    recording().claims.push_back({value.node, low, high});
    return value;
}

int record_gather(int table, int index, std::int64_t bias, int count, Type type) {
    Program& program = recording();
    if (table < 0 || table >= int(program.tables.size()))
        throw std::invalid_argument(program.name + ": gather from a table that the description doesn't have");
    if (type_size(type) != lane_size(program.tables[table].data.lane))
        throw std::invalid_argument(program.name + ": gather reads table " + program.tables[table].name +
                                    " in another lane size");
    program.gathers.push_back({table, count, bias, 0, 0});
    return record(Op::gather, Type::none, {index, -1, -1}, program.gathers.size() - 1);
}

void rare_if_node(int mask) { recording().rare.push_back({current_section, mask}); }
void rare_always() { recording().always_rare = true; }

InBlock::InBlock(int block) : previous_(current_block) { current_block = block; }
InBlock::~InBlock() { current_block = previous_; }

int open_section(Section::Kind kind, int mask) {
    Program& program = recording();
    Section section;
    section.kind = kind, section.parent = current_section, section.mask = mask;
    if (kind == Section::Kind::repair && current_section != 0)
        throw std::invalid_argument(program.name + ": a repair belongs to the rare path, not into another section");
    program.sections.push_back(section);
    return current_section = int(program.sections.size()) - 1;
}

void close_section(int index, std::vector<int> before, std::vector<int> after, int repair_mask) {
    Program& program = recording();
    Section& section = program.sections.at(index);
    current_section = section.parent;
    if (section.kind == Section::Kind::repair) section.mask = repair_mask;
    section.before = std::move(before);
    section.after = std::move(after);
    for (std::size_t k = 0; k < section.before.size(); ++k) {
        const Type type = program.nodes[section.before[k]].type;
        program.sections[index].joined.push_back(
            record(Op::join, type, {section.before[k], section.after[k], -1}, std::uint64_t(index)));
    }
}

int joined_node(int section, int k) { return recording().sections.at(section).joined.at(k); }

Program record_program(std::string name, int blocks, const std::vector<Type>& arguments,
                       const std::function<std::vector<int>(const std::vector<int>&)>& body) {
    Program program;
    program.name = std::move(name);
    program.blocks = blocks;
    program.argument_types = arguments;
    struct Restore {
        ~Restore() { current = nullptr, current_section = 0, current_block = InBlock::pool; }
    } restore;
    current = &program, current_section = 0, current_block = blocks > 0 ? 0 : InBlock::pool;
    std::vector<int> argument_nodes;
    for (std::size_t k = 0; k < arguments.size(); ++k)
        argument_nodes.push_back(record(Op::argument, arguments[k], {-1, -1, -1}, k));
    program.outputs = body(argument_nodes);
    for (std::size_t k = 0; k < program.nodes.size(); ++k) {
        if (program.nodes[k].op != Op::gather) continue;
        Gather& gather = program.gathers[program.nodes[k].imm];
        const Range range = range_of(program, program.nodes[k].args[0]);
        gather.low = range.low, gather.high = range.high;
    }
    validate(program);
    return program;
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

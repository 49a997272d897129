#include "frame/description/notation.hpp"

#include <algorithm>
#include <stdexcept>

namespace tuvo {
namespace {

// What is being recorded, in this thread.
thread_local Program* current = nullptr;
thread_local int current_section = 0;
thread_local int current_block = InBlock::pool;

}  // namespace

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

void rare_unless_nearest() { recording().nearest_only = true; }

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
    find_gather_ranges(program);
    validate(program);
    return program;
}

}  // namespace tuvo

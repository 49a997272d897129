#include "frame/generator/layout/sections.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "frame/generator/layout/elementwise.hpp"
#include "frame/generator/layout/forms.hpp"
#include "frame/generator/layout/masks.hpp"
#include "frame/generator/layout/nodes.hpp"

namespace tuvo {
namespace {

/// A value that a section replaces.
struct Replaced {
    int after;                ///< node: what the section makes of it
    std::vector<int> before;  ///< registers on the way in, by part
    std::vector<int> joined;  ///< registers that stand for it from then on, whichever way was taken
};

/// What passes a section's border.
struct Border {
    int condition;                  ///< in: general register, nonzero if any lane needs the section
    std::vector<Replaced> values;   ///< in and out
    std::optional<int> rare_lanes;  ///< out: general register for the rare lanes found inside, if there can be any
};

bool is_inside(const Program& program, int section, int outer) {
    while (section != 0 && section != outer) section = program.sections[section].parent;
    return section == outer;
}

bool finds_rare_lanes(const Program& program, int section) {
    return std::ranges::any_of(program.rare,
                               [&](const RareTest& test) { return is_inside(program, test.section, section); });
}

/// Whether anything but the joins of its own section reads a value after them.
bool read_later(const Plan& plan, int value, int join) {
    const Program& program = plan.program;
    const int node = root(plan, value);
    const Node& n = program.nodes[node];
    if (n.op == Op::argument || n.op == Op::constant) return true;
    for (int k = join + 1; k < int(program.nodes.size()); ++k) {
        const Node& user = program.nodes[k];
        if (!plan.live[k] || (user.op == Op::join && user.imm == program.nodes[join].imm)) continue;
        for (int arg : user.args)
            if (arg >= 0 && root(plan, arg) == node && user.op != Op::bitcast) return true;
    }
    const auto is_node = [&](int other) { return root(plan, other) == node; };
    return std::ranges::any_of(program.rare, is_node, &RareTest::mask) || std::ranges::any_of(program.outputs, is_node);
}

/// The nodes of a mask, in order, if a compare and little else makes it of arguments that the rare path keeps alive:
/// such a mask is made again inside its section, and takes no register on the way around it.
std::vector<int> made_of_arguments(const Plan& plan, int mask) {
    constexpr std::size_t little = 3;
    std::vector<int> nodes;
    if (!plan.family.has_rare) return nodes;
    const auto collect = [&](int k, auto&& self) -> bool {
        const Node& n = node_of(plan, k);
        if (n.op == Op::argument || n.op == Op::constant || std::ranges::find(nodes, k) != nodes.end()) return true;
        if (!is_bitwise(n.op) && n.op != Op::bitcast && n.op != Op::compare) return false;
        for (int a : n.args)
            if (a >= 0 && !self(a, self)) return false;
        nodes.push_back(k);
        return nodes.size() <= little;
    };
    return collect(mask, collect) ? nodes : std::vector<int>{};
}

/// Prepares what a section takes over. From here on its values' joins have registers.
Border prepare_border(Layout& l, int s) {
    const Section& section = l.plan.program.sections[s];
    Border border{any_lane(l, section.mask), {}, {}};
    for (std::size_t v = 0; v < section.before.size(); ++v) {
        if (!l.plan.live[section.joined[v]]) continue;
        const int node = section.before[v];
        // The section overwrites what it takes over.
        const bool copy = read_later(l.plan, node, section.joined[0]);
        Replaced value{section.after[v], {}, {}};
        for (int p = 0; p < whole_count(l.plan, node_of(l.plan, node).type); ++p) {
            value.before.push_back(copy ? copied(l, node, p) : parts(l, node, Shape::whole)[p]);
            value.joined.push_back(new_register(l.code, l.code.kernel.registers[value.before.back()].bits));
        }
        set_parts(l, section.joined[v], Shape::whole, value.joined);
        border.values.push_back(std::move(value));
    }
    if (finds_rare_lanes(l.plan.program, s)) {
        border.rare_lanes = new_register(l.code, 32, File::general);
        l.rare_lanes[l.code.section].push_back(*border.rare_lanes);
    }
    return border;
}

/// Lays out the section's own nodes; returns what it gives back.
std::vector<Joined> lay_out_inside(Layout& l, int s, const Border& border, const std::vector<int>& remade) {
    // What the body makes of outer values (halves of them, entries of tables) is not there outside.
    const std::vector<Forms> outer_forms = l.forms;
    const auto outer_gathered = l.gathered;
    const int outer_section = std::exchange(l.code.section, s);
    for (int k : remade) l.forms[k] = {};
    for (int k : remade) lay_out_node(l, k);
    for (int k = 0; k < int(l.plan.program.nodes.size()); ++k)
        if (l.plan.live[k] && node_of(l.plan, k).section == s) lay_out_node(l, k);
    std::vector<Joined> joins;
    for (const Replaced& value : border.values)
        for (int p = 0; p < int(value.before.size()); ++p)
            joins.push_back({value.before[p],
                             blended(l, value.before[p], value.after, l.plan.program.sections[s].mask, p),
                             value.joined[p]});
    // Where the section doesn't run, its condition is zero: the mask of no lane.
    if (border.rare_lanes) joins.push_back({border.condition, rare_lanes_found(l, s), *border.rare_lanes});
    std::vector<int> kept;
    for (const Joined& j : joins) kept.push_back(j.after);
    emit_end(l.code, std::move(kept));
    l.code.section = outer_section;
    l.forms = outer_forms;
    l.gathered = outer_gathered;
    return joins;
}

/// Inside a section only the lanes that asked for it can be rare, or a lane would depend on its neighbours.
Mask restricted(Layout& l, Mask mask, int section) {
    const Program& program = l.plan.program;
    for (int s = section; s != 0; s = program.sections[s].parent) {
        const Mask own = mask_of(l, program.sections[s].mask);
        if (own.type != mask.type)
            throw std::invalid_argument(program.name +
                                        ": a rare test inside a section has another mask size than the section");
        mask = combine(l, Op::bit_and, mask, own);
    }
    return mask;
}

// What is alive at a branch.

void add_once(std::vector<int>& list, int r) {
    if (std::ranges::find(list, r) == list.end()) list.push_back(r);
}

/// Registers that a section and those inside it read.
void collect_read(const Kernel& kernel, int section, std::vector<int>& read) {
    for (const Instruction& i : kernel.sections[section].body) {
        for (const Operand& o : i.sources) {
            if (o.kind == Operand::Kind::reg) add_once(read, o.reg);
            if (o.kind == Operand::Kind::memory && o.memory.index >= 0) add_once(read, o.memory.index);
        }
        for (int use : i.uses) add_once(read, use);
        if (i.section >= 0) collect_read(kernel, i.section, read);
    }
}

/// Registers that a section and those inside it write.
void collect_made(const Kernel& kernel, int section, std::vector<bool>& made) {
    for (const Instruction& i : kernel.sections[section].body) {
        if (i.dst >= 0) made[i.dst] = true;
        if (i.section < 0) continue;
        for (const Joined& j : kernel.sections[i.section].joins) made[j.joined] = true;
        collect_made(kernel, i.section, made);
    }
}

}  // namespace

void lay_out_section(Layout& l, int s) {
    const Section& section = l.plan.program.sections[s];
    const int join = section.joined[0];
    if (!l.forms[join].whole.empty()) return;  // its first join has done the work
    if (section.kind == Section::Kind::repair) {
        // The rare path does the repair; up to there the value stays as it is.
        l.forms[join] = l.forms[root(l.plan, section.before[0])];
        return;
    }
    const Border border = prepare_border(l, s);
    const std::vector<int> remade = made_of_arguments(l.plan, section.mask);
    // The mask's whole form is wanted inside; made out here it serves both sides.
    if (remade.empty()) parts(l, section.mask, Shape::whole);
    std::vector<Joined> joins = lay_out_inside(l, s, border, remade);
    KernelSection& result = l.code.kernel.sections[s];
    result.condition = border.condition, result.cut = mask_cut(l.plan), result.joins = std::move(joins);
    branch_to(l.code, s, Instruction::Kind::branch);
}

int rare_lanes_found(Layout& l, int section) {
    const Program& program = l.plan.program;
    std::vector<int> found;
    // Tests of one size are joined as masks, where the or of several costs least.
    for (const Type type : {Type::m32, Type::m64}) {
        std::optional<Mask> all;
        for (const RareTest& test : program.rare) {
            if (test.section != section || node_of(l.plan, test.mask).type != type) continue;
            const Mask mask = mask_of(l, test.mask);
            all = all ? combine(l, Op::bit_or, *all, mask) : mask;
        }
        if (all) found.push_back(lane_bits(l, restricted(l, *all, section)));
    }
    found.insert(found.end(), l.rare_lanes[section].begin(), l.rare_lanes[section].end());
    if (section == 0 && program.nearest_only) found.push_back(emit_unless_nearest(l.code, all_lanes(l)));
    return or_general(l, found);
}

int blended(Layout& l, int before, int after, int mask, int part) {
    const Type type = node_of(l.plan, after).type;
    const int bits = whole_bits(l.plan, type);
    return emit(l.code, blend_form(type), bits,
                {reg(l.code, before, bits), any_operand(l, after, Shape::whole, part, bits),
                 in_register(l, mask, Shape::whole, part, bits)});
}

void branch_to(Code& code, int section_index, Instruction::Kind kind) {
    const Kernel& kernel = code.kernel;
    const KernelSection& section = kernel.sections[section_index];
    Instruction branch;
    branch.kind = kind, branch.section = section_index;
    std::vector<int> read;
    collect_read(kernel, section_index, read);
    std::vector<bool> made(kernel.registers.size());
    collect_made(kernel, section_index, made);
    add_once(branch.uses, section.condition);
    for (const Joined& j : section.joins) add_once(branch.uses, j.before);
    for (int r : read)
        if (!made[r] && kernel.registers[r].rematerialize < 0) add_once(branch.uses, r);
    if (section.rare)
        for (const StashArray& array : section.rare->inputs)
            for (int r : array.parts) add_once(branch.uses, r);
    body(code).push_back(branch);
}

}  // namespace tuvo

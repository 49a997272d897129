// Spreads a one-lane program over a width.
//
// Nodes are laid out one after the other, in the order of the program. The pieces, each of which says in its header
// what it may touch, stand on one another in this order: plan; code; constants; forms; elementwise, conversions,
// gathers, masks; sections, rare path; boundary.
#include "frame/generator/layout.hpp"

#include <algorithm>
#include <stdexcept>

#include "frame/generator/layout/boundary.hpp"
#include "frame/generator/layout/nodes.hpp"
#include "frame/generator/layout/rare_path.hpp"

namespace tuvo {
namespace {

void refuse(const Program& program, const std::string& why) { throw std::invalid_argument(program.name + ": " + why); }

/// Whether the description is one of the operation that the table knows by that name.
void check(const Program& program, const Family& family) {
    std::vector<Type> arguments;
    for (Lane lane : family.arguments) arguments.push_back(type_of(lane));
    if (program.argument_types != arguments)
        refuse(program, "the description's arguments are not those of the operation table");
    const std::vector<Lane> lanes = family.outputs();
    if (program.outputs.size() != lanes.size())
        refuse(program, "the description yields " + std::to_string(program.outputs.size()) + " values, the operation " +
                            std::to_string(lanes.size()));
    for (std::size_t v = 0; v < lanes.size(); ++v)
        if (program.nodes[program.outputs[v]].type != type_of(lanes[v]))
            refuse(program, "output " + std::to_string(v) + " has another type than the operation table says");
    const bool rare = program.always_rare || program.nearest_only || !program.rare.empty();
    if (rare && !family.has_rare) refuse(program, "the description has a rare test, the operation table no rare path");
    if (!rare && family.has_rare) refuse(program, "the operation table has a rare path, the description no rare test");
}

Layout begin(const Program& program, const BlockLayout& blocks, const Family& family, int width, std::string symbol) {
    Layout l{make_plan(program, blocks, family, width), {}, {}, {}, {}, {}, {}};
    Kernel& kernel = l.code.kernel;
    kernel.family = &family;
    kernel.symbol = std::move(symbol);
    kernel.width = width;
    kernel.form = call_form(family, width);
    kernel.preserved = preserved(family, width);
    kernel.sections.resize(program.sections.size());
    l.forms.resize(program.nodes.size());
    l.rare_lanes.resize(program.sections.size());
    return l;
}

/// Whether the kernel does 256-bit work. An argument that arrives in a whole register may be moved or stashed, which is
/// work enough; one that is taken apart at once is not.
bool works_256(const Layout& l) {
    if (l.plan.narrow) return false;
    for (const std::vector<int>& parts : l.arguments)
        for (int r : parts)
            if (l.code.kernel.registers[r].bits == 256) return true;
    for (const KernelSection& section : l.code.kernel.sections)
        for (const Instruction& i : section.body)
            if (i.dst_bits == 256 || std::ranges::find(i.sources, 256, &Operand::bits) != i.sources.end()) return true;
    return false;
}

}  // namespace

Kernel lay_out(const Program& program, const BlockLayout& blocks, const Family& family, int width, std::string symbol) {
    check(program, family);
    Layout l = begin(program, blocks, family, width, std::move(symbol));
    enter_arguments(l);
    for (int k = 0; k < int(program.nodes.size()); ++k)
        if (l.plan.live[k] && node_of(l.plan, k).section == 0) lay_out_node(l, k);
    std::vector<std::vector<int>> outputs = collect_outputs(l);
    if (family.has_rare) outputs = lay_out_rare_path(l, outputs);
    lay_out_exit(l, outputs);
    l.code.kernel.works_256 = works_256(l);
    return std::move(l.code.kernel);
}

}  // namespace tuvo

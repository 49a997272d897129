#include "frame/generator/layout/rare_path.hpp"

#include <stdexcept>

#include "frame/generator/layout/forms.hpp"
#include "frame/generator/layout/masks.hpp"
#include "frame/generator/layout/nodes.hpp"
#include "frame/generator/layout/sections.hpp"

namespace tuvo {
namespace {

/// The repair runs ahead of the calls: it patches the only output and takes its lanes out of the rare mask.
void lay_out_repair(Layout& l, int repair_index, int s) {
    const Section& repair = l.plan.program.sections[repair_index];
    KernelSection& section = l.code.kernel.sections[s];
    if (section.rare->outputs.size() != 1)
        throw std::invalid_argument(l.plan.program.name + ": a repair needs a single output");
    const int outer_section = std::exchange(l.code.section, s);
    for (int k = 0; k < int(l.plan.program.nodes.size()); ++k)
        if (l.plan.live[k] && node_of(l.plan, k).section == repair_index) lay_out_node(l, k);
    std::vector<int> kept;
    for (int p = 0; p < int(section.joins.size()); ++p) {
        section.joins[p].after = blended(l, section.joins[p].before, repair.after[0], repair.mask, p);
        kept.push_back(section.joins[p].after);
    }
    const int finished = lane_bits(l, mask_of(l, repair.mask));
    const Operand rare = reg(l.code, section.condition, 32);
    const int differing = emit_general(l.code, Mnemonic::xor_, 32, {rare, reg(l.code, finished, 32)});
    section.rare->remaining = emit_general(l.code, Mnemonic::and_, 32, {reg(l.code, differing, 32), rare});
    kept.push_back(*section.rare->remaining);
    for (const StashArray& array : section.rare->inputs)
        kept.insert(kept.end(), array.parts.begin(), array.parts.end());
    emit_end(l.code, std::move(kept));
    l.code.section = outer_section;
}

}  // namespace

std::vector<std::vector<int>> lay_out_rare_path(Layout& l, const std::vector<std::vector<int>>& outputs) {
    const Program& program = l.plan.program;
    const Family& family = l.plan.family;
    Kernel& kernel = l.code.kernel;
    KernelSection section;
    section.condition =
        program.always_rare ? emit_general(l.code, Mnemonic::mov, 32, {}, all_lanes(l)) : rare_lanes_found(l, 0);
    section.cut = mask_cut(l.plan);
    section.rare.emplace();
    const std::vector<Lane> lanes = family.outputs();
    std::vector<std::vector<int>> joined(outputs.size());
    for (std::size_t v = 0; v < outputs.size(); ++v) {
        section.rare->outputs.push_back({outputs[v], lane_size(lanes[v])});
        for (int r : outputs[v]) {
            joined[v].push_back(new_register(l.code, kernel.registers[r].bits));
            section.joins.push_back({r, r, joined[v].back()});
        }
    }
    for (std::size_t a = 0; a < family.arguments.size(); ++a)
        section.rare->inputs.push_back({l.arguments[a], lane_size(family.arguments[a])});
    const int s = int(kernel.sections.size());
    kernel.sections.push_back(std::move(section));
    l.rare_lanes.emplace_back();
    for (std::size_t t = 1; t < program.sections.size(); ++t)
        if (program.sections[t].kind == Section::Kind::repair) lay_out_repair(l, int(t), s);
    branch_to(l.code, s, Instruction::Kind::rare);
    return joined;
}

}  // namespace tuvo

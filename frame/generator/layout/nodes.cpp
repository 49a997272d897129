#include "frame/generator/layout/nodes.hpp"

#include "frame/generator/layout/conversions.hpp"
#include "frame/generator/layout/elementwise.hpp"
#include "frame/generator/layout/gathers.hpp"
#include "frame/generator/layout/sections.hpp"

namespace tuvo {
namespace {

/// Another name of the same registers, for those that have none.
void name_registers(Layout& l, int node) {
    for (int r : l.forms[root(l.plan, node)].whole) {
        std::string& name = l.code.kernel.registers[r].name;
        if (name.empty()) name = node_of(l.plan, node).name;
    }
}

}  // namespace

void lay_out_node(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    switch (n.op) {
    case Op::argument:
    case Op::constant:
    case Op::gather: return;
    case Op::bitcast: return name_registers(l, node);
    case Op::join: return lay_out_section(l, int(n.imm));
    case Op::element: return lay_out_element(l, node);
    case Op::int_to_float:
    case Op::float_to_int:
    case Op::float_to_int_trunc:
    case Op::widen:
    case Op::narrow: return lay_out_conversion(l, node);
    case Op::zero_extend:
    case Op::sign_extend:
    case Op::low_word:
    case Op::high_word:
    case Op::join_words:
    case Op::mask_widen:
    case Op::mask_narrow: return lay_out_words(l, node);
    case Op::shift_left_each:
    case Op::shift_right_each: return lay_out_shift_each(l, node);
    default: return lay_out_elementwise(l, node);
    }
}

}  // namespace tuvo

#include "frame/generator/layout/forms.hpp"

#include <stdexcept>

#include "frame/generator/layout/constants.hpp"

namespace tuvo {

bool has(const Layout& l, int node, Shape shape) {
    if (is_constant(l.plan, node)) return true;
    const Forms& f = l.forms[root(l.plan, node)];
    if (!split(l.plan, node_of(l.plan, node).type)) return !f.whole.empty() || !f.half.empty();
    return shape == Shape::whole ? !f.whole.empty() : !f.half.empty();
}

const std::vector<int>& parts(Layout& l, int node, Shape shape) {
    if (is_constant(l.plan, node)) throw std::logic_error("constants are operands");
    Forms& f = l.forms[root(l.plan, node)];
    if (!split(l.plan, node_of(l.plan, node).type)) {
        if (f.whole.empty()) f.whole = f.half;
        return f.whole;
    }
    if (f.whole.empty() && f.half.empty())
        throw std::logic_error(l.plan.program.name + ": a value is used before it is made");
    if (shape == Shape::whole && f.whole.empty())
        for (std::size_t p = 0; p < f.half.size(); p += 2) f.whole.push_back(joined(l.code, f.half[p], f.half[p + 1]));
    if (shape == Shape::half && f.half.empty())
        for (int r : f.whole) {
            f.half.push_back(r);
            f.half.push_back(upper_half(l.code, r));
        }
    return shape == Shape::whole ? f.whole : f.half;
}

Operand in_register(Layout& l, int node, Shape shape, int part, int bits) {
    const int r = is_constant(l.plan, node) ? constant_register(l, node, bits) : parts(l, node, shape)[part];
    return reg(l.code, r, std::max(bits, 128));
}

Operand any_operand(Layout& l, int node, Shape shape, int part, int bits) {
    if (is_constant(l.plan, node)) return constant_operand(l, node, bits);
    return in_register(l, node, shape, part, bits);
}

int copied(Layout& l, int node, int part) {
    const int bits = whole_bits(l.plan, node_of(l.plan, node).type);
    const Operand source = is_constant(l.plan, node) ? constant_operand(l, node, bits)
                                                     : reg(l.code, parts(l, node, Shape::whole)[part], bits);
    return emit(l.code, Mnemonic::vmovaps, bits, {source});
}

void set_parts(Layout& l, int node, Shape shape, std::vector<int> registers) {
    const Node& n = node_of(l.plan, node);
    for (int r : registers)
        if (!n.name.empty()) l.code.kernel.registers[r].name = n.name;
    const bool whole = shape == Shape::whole || !split(l.plan, n.type);
    (whole ? l.forms[node].whole : l.forms[node].half) = std::move(registers);
}

void set_commented(Layout& l, int node, Shape shape, std::vector<int> registers) {
    const int count = int(registers.size());
    set_parts(l, node, shape, std::move(registers));
    comment(l, node, count - 1, count);
}

void comment(Layout& l, int node, int part, int parts) {
    const std::string& name = node_of(l.plan, node).name;
    if (name.empty() || body(l.code).empty()) return;
    body(l.code).back().comment = parts > 1 ? name + ", part " + std::to_string(part) : name;
}

}  // namespace tuvo

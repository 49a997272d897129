#include "frame/generator/layout/elementwise.hpp"

#include <stdexcept>

#include "frame/generator/layout/constants.hpp"
#include "frame/generator/layout/forms.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;

// In which form an operation is done.

bool must_be_halves(const Node& n) {
    switch (n.op) {
    case Op::add:
    case Op::sub:
    case Op::mul:
    case Op::min:
    case Op::max: return is_integer(n.type);
    case Op::umin:
    case Op::umax:
    case Op::multiply_words:
    case Op::shift_left:
    case Op::shift_right:
    case Op::shift_right_signed:
    case Op::equal:
    case Op::greater: return true;
    default: return false;
    }
}

/// Whether 32-bit lanes stay in the halves that conversions from and to doubles deal in.
bool beside_doubles(const Plan& plan, Type type) { return wide_family(plan) && type_size(type) == 4; }

Shape compare_shape(const Layout& l, const Node& n) {
    if (!split(l.plan, n.type)) return Shape::whole;
    for (int a : {n.args[0], n.args[1]})
        if (!is_constant(l.plan, a) && has(l, a, Shape::whole)) return Shape::whole;
    return beside_doubles(l.plan, n.type) ? Shape::half : Shape::whole;
}

/// In which form a bit operation, selection or 32-bit floating-point operation is cheapest.
Shape cheapest_shape(const Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    if (!split(l.plan, n.type)) return Shape::whole;
    bool whole = true, half = true, any = false;
    for (int a : n.args) {
        if (a < 0 || is_constant(l.plan, a)) continue;
        any = true;
        whole = whole && has(l, a, Shape::whole);
        half = half && has(l, a, Shape::half);
    }
    if (!any) return Shape::whole;
    if (!whole && beside_doubles(l.plan, n.type)) return Shape::half;
    const bool halves_wanted = l.plan.halves_wanted[node];
    if (is_floating(n.type) && !is_bitwise(n.op) && n.op != Op::select)
        return !whole && halves_wanted && type_size(n.type) == 4 ? Shape::half : Shape::whole;
    return halves_wanted && (half || !whole) ? Shape::half : Shape::whole;
}

Shape shape_of(const Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    if (must_be_halves(n)) return Shape::half;
    return n.op == Op::compare ? compare_shape(l, n) : cheapest_shape(l, node);
}

// Which instruction does it.

FloatForms float_forms(Op op) {
    switch (op) {
    case Op::add: return {vaddps, vaddpd, vaddss, vaddsd};
    case Op::sub: return {vsubps, vsubpd, vsubss, vsubsd};
    case Op::mul: return {vmulps, vmulpd, vmulss, vmulsd};
    case Op::div: return {vdivps, vdivpd, vdivss, vdivsd};
    case Op::min: return {vminps, vminpd, vminss, vminsd};
    case Op::max: return {vmaxps, vmaxpd, vmaxss, vmaxsd};
    case Op::sqrt: return {vsqrtps, vsqrtpd, vsqrtss, vsqrtsd};
    case Op::round: return {vroundps, vroundpd, vroundss, vroundsd};
    case Op::compare: return {vcmpps, vcmppd, vcmpss, vcmpsd};
    default: throw std::logic_error("no operation of floating-point lanes");
    }
}

Mnemonic float_form(const Plan& plan, const Node& n) {
    const bool single = type_size(n.type) == 4;
    if (n.op == Op::reciprocal && single) return scalar(plan) ? vrcpss : vrcpps;
    if (n.op == Op::reciprocal_sqrt && single) return scalar(plan) ? vrsqrtss : vrsqrtps;
    const FloatForms forms = float_forms(n.op);
    if (scalar(plan)) return single ? forms.scalar_single : forms.scalar_double;
    return single ? forms.packed_single : forms.packed_double;
}

Mnemonic word_form(Op op) {
    switch (op) {
    case Op::add: return vpaddd;
    case Op::sub: return vpsubd;
    case Op::mul: return vpmulld;
    case Op::min: return vpminsd;
    case Op::max: return vpmaxsd;
    case Op::umin: return vpminud;
    case Op::umax: return vpmaxud;
    case Op::equal: return vpcmpeqd;
    case Op::greater: return vpcmpgtd;
    case Op::shift_left: return vpslld;
    case Op::shift_right: return vpsrld;
    case Op::shift_right_signed: return vpsrad;
    default: throw std::logic_error("no operation of 32-bit integer lanes");
    }
}

Mnemonic long_form(Op op) {
    switch (op) {
    case Op::add: return vpaddq;
    case Op::sub: return vpsubq;
    case Op::multiply_words: return vpmuludq;
    case Op::equal: return vpcmpeqq;
    case Op::greater: return vpcmpgtq;
    case Op::shift_left: return vpsllq;
    case Op::shift_right: return vpsrlq;
    default: throw std::logic_error("no operation of 64-bit integer lanes");
    }
}

Mnemonic integer_form(const Node& n) { return type_size(n.type) == 4 ? word_form(n.op) : long_form(n.op); }

// One part of an operation, with the node's arguments as `n` has them.

/// Bits of a floating-point operand: one lane of it at width 1.
int operand_bits(const Plan& plan, const Node& n, Shape shape) {
    return scalar(plan) ? type_size(n.type) * 8 : bits_of(plan, n.type, shape);
}

int unary(Layout& l, const Node& n, Shape shape, int part) {
    const int bits = operand_bits(l.plan, n, shape), immediate = n.op == Op::round ? int(n.imm) : -1;
    const Operand source = in_register(l, n.args[0], shape, part, bits);
    if (scalar(l.plan)) return emit(l.code, float_form(l.plan, n), 128, {source, source}, immediate);
    return emit(l.code, float_form(l.plan, n), bits, {source}, immediate);
}

int binary(Layout& l, Mnemonic mnemonic, const Node& n, Shape shape, int part, int bits, int immediate = -1) {
    return emit(l.code, mnemonic, bits_of(l.plan, n.type, shape),
                {in_register(l, n.args[0], shape, part, bits), any_operand(l, n.args[1], shape, part, bits)},
                immediate);
}

int select(Layout& l, const Node& n, Shape shape, int part) {
    const int bits = bits_of(l.plan, n.type, shape);
    return emit(l.code, blend_form(n.type), bits,
                {in_register(l, n.args[2], shape, part, bits), any_operand(l, n.args[1], shape, part, bits),
                 in_register(l, n.args[0], shape, part, bits)});
}

/// A constant in first place moves to the second, where it can stay in memory, if that gives the same values.
Node constant_second(const Plan& plan, const Node& n) {
    Node swapped = n;
    if (n.args[1] < 0 || !is_constant(plan, n.args[0]) || is_constant(plan, n.args[1])) return n;
    std::swap(swapped.args[0], swapped.args[1]);
    switch (n.op) {
    case Op::add:
    case Op::mul: return is_nan_constant(plan, n.args[0]) ? n : swapped;  // of two NaNs the first survives
    case Op::bit_and:
    case Op::bit_or:
    case Op::bit_xor: return swapped;
    case Op::compare: {
        static constexpr std::array<int, 15> mirrored{0, 14, 13, 3, 4, 10, 9, 7, -1, 6, 5, -1, -1, 2, 1};
        swapped.imm = std::uint64_t(mirrored[n.imm]);
        return swapped;
    }
    default: return n;
    }
}

int elementwise(Layout& l, const Node& n, Shape shape, int part) {
    const int bits = bits_of(l.plan, n.type, shape);
    switch (n.op) {
    case Op::add:
    case Op::sub:
    case Op::mul:
    case Op::div:
    case Op::min:
    case Op::max:
        if (is_integer(n.type)) return binary(l, integer_form(n), n, shape, part, 128);
        return binary(l, float_form(l.plan, n), n, shape, part, operand_bits(l.plan, n, shape));
    case Op::umin:
    case Op::umax:
    case Op::multiply_words:
    case Op::equal:
    case Op::greater: return binary(l, integer_form(n), n, shape, part, 128);
    case Op::sqrt:
    case Op::reciprocal:
    case Op::reciprocal_sqrt:
    case Op::round: return unary(l, n, shape, part);
    case Op::bit_and:
    case Op::bit_or:
    case Op::bit_xor:
    case Op::and_not: {
        const bool integer = bits == 128 && integer_domain(l.plan, n.args[0]) && integer_domain(l.plan, n.args[1]);
        return binary(l, bitwise_form(n.op, n.type, integer), n, shape, part, bits);
    }
    case Op::shift_left:
    case Op::shift_right:
    case Op::shift_right_signed:
        return emit(l.code, integer_form(n), 128, {in_register(l, n.args[0], shape, part, 128)}, int(n.imm));
    case Op::compare:
        return binary(l, float_form(l.plan, n), n, shape, part, operand_bits(l.plan, n, shape), int(n.imm));
    case Op::select: return select(l, n, shape, part);
    case Op::lookup4: return binary(l, vpermilps, n, shape, part, bits);
    default: throw std::logic_error(l.plan.program.name + ": unknown operation");
    }
}

}  // namespace

void lay_out_elementwise(Layout& l, int node) {
    const Shape shape = shape_of(l, node);
    const Node n = constant_second(l.plan, node_of(l.plan, node));
    const int count = count_of(l.plan, n.type, shape);
    std::vector<int> result;
    // Every part's instruction before the next node's: the parts run side by side.
    for (int p = 0; p < count; ++p) {
        result.push_back(elementwise(l, n, shape, p));
        comment(l, node, p, count);
    }
    set_parts(l, node, shape, std::move(result));
}

Mnemonic bitwise_form(Op op, Type type, bool integer) {
    const bool single = type_size(type) == 4;
    switch (op) {
    case Op::bit_and: return integer ? vpand : single ? vandps : vandpd;
    case Op::bit_or: return integer ? vpor : single ? vorps : vorpd;
    case Op::bit_xor: return integer ? vpxor : single ? vxorps : vxorpd;
    default: return integer ? vpandn : single ? vandnps : vandnpd;
    }
}

Mnemonic blend_form(Type type) { return type_size(type) == 4 ? vblendvps : vblendvpd; }

}  // namespace tuvo

#include "frame/generator/layout/masks.hpp"

#include <stdexcept>

#include "frame/generator/layout/elementwise.hpp"
#include "frame/generator/layout/forms.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;

bool has_whole(const Layout& l, const Mask& mask) {
    if (mask.node >= 0) return has(l, mask.node, Shape::whole);
    return !mask.combined.whole.empty();
}

std::vector<int> registers_of(Layout& l, const Mask& mask, Shape shape) {
    if (mask.node >= 0) return parts(l, mask.node, shape);
    return shape == Shape::whole ? mask.combined.whole : mask.combined.half;
}

Operand part_of(Layout& l, const Mask& mask, Shape shape, int part, int bits) {
    if (mask.node >= 0) return in_register(l, mask.node, shape, part, bits);
    return reg(l.code, registers_of(l, mask, shape)[part], bits);
}

int pack(Layout& l, Mnemonic mnemonic, int low, int high) {
    return emit(l.code, mnemonic, 128, {reg(l.code, low, 128), reg(l.code, high, 128)});
}

/// Of halves of long masks: the high words of two in one register.
std::vector<int> high_words(Layout& l, const std::vector<int>& halves) {
    std::vector<int> words;
    for (std::size_t p = 0; p < halves.size(); p += 2)
        words.push_back(
            emit(l.code, vshufps, 128, {reg(l.code, halves[p], 128), reg(l.code, halves[p + 1], 128)}, 0xdd));
    return words;
}

/// Of four halves of words: sixteen lanes, packed to bytes.
int packed_bits(Layout& l, const std::vector<int>& halves) {
    const int low = pack(l, vpackssdw, halves[0], halves[1]);
    const int high = pack(l, vpackssdw, halves[2], halves[3]);
    const int bytes = pack(l, vpacksswb, low, high);
    return emit_general(l.code, vpmovmskb, 32, {reg(l.code, bytes)});
}

}  // namespace

Mask mask_of(const Layout& l, int node) { return {node, node_of(l.plan, node).type, integer_domain(l.plan, node), {}}; }

Mask combine(Layout& l, Op op, Mask a, Mask b) {
    const Shape shape = has_whole(l, a) && has_whole(l, b) ? Shape::whole : Shape::half;
    const int bits = bits_of(l.plan, a.type, shape);
    const bool integer = bits == 128 && a.integer && b.integer;
    Mask result{-1, a.type, a.integer, {}};
    std::vector<int>& registers =
        shape == Shape::whole || !split(l.plan, a.type) ? result.combined.whole : result.combined.half;
    for (int p = 0; p < count_of(l.plan, a.type, shape); ++p)
        registers.push_back(emit(l.code, bitwise_form(op, a.type, integer), bits,
                                 {part_of(l, a, shape, p, bits), part_of(l, b, shape, p, bits)}));
    return result;
}

// Sign bits are taken from the registers as they are and shifted together; only the four halves of sixteen lanes are
// packed to bytes first. Packing two halves as well would give the same bits, but write three vector registers more,
// and those limit how many calls are in flight: the default logarithm of eight lanes gains 2 % this way.
int lane_bits(Layout& l, const Mask& mask) {
    if (mask.node >= 0 && is_constant(l.plan, mask.node))
        throw std::invalid_argument(l.plan.program.name + ": a rare test on a constant");
    const Shape shape = has_whole(l, mask) ? Shape::whole : Shape::half;
    const int bits = bits_of(l.plan, mask.type, shape);
    std::vector<int> registers = registers_of(l, mask, shape);
    bool single = mask.type == Type::m32;
    if (shape == Shape::half && !single) registers = high_words(l, registers), single = true;
    if (shape == Shape::half && registers.size() == 4) return packed_bits(l, registers);
    const int lanes_each = bits / (single ? 32 : 64);
    int all = -1;
    for (std::size_t p = 0; p < registers.size(); ++p) {
        const int part = emit_general(l.code, single ? vmovmskps : vmovmskpd, 32, {reg(l.code, registers[p], bits)});
        if (p == 0) {
            all = part;
            continue;
        }
        const int moved = emit_general(l.code, shl, 32, {reg(l.code, part, 32)}, int(p) * lanes_each);
        all = or_general(l, {all, moved});
    }
    return all;
}

int any_lane(Layout& l, int node) {
    const Type type = node_of(l.plan, node).type;
    const Shape shape = has(l, node, Shape::whole) ? Shape::whole : Shape::half;
    const int bits = bits_of(l.plan, type, shape);
    int all = parts(l, node, shape)[0];
    for (int p = 1; p < count_of(l.plan, type, shape); ++p)
        all = emit(l.code, bitwise_form(Op::bit_or, type, false), bits,
                   {reg(l.code, all, bits), reg(l.code, parts(l, node, shape)[p], bits)});
    return emit_general(l.code, type == Type::m32 ? vmovmskps : vmovmskpd, 32, {reg(l.code, all, bits)});
}

int all_lanes(const Layout& l) { return (1 << l.plan.width) - 1; }

int or_general(Layout& l, const std::vector<int>& registers) {
    int all = registers[0];
    for (std::size_t k = 1; k < registers.size(); ++k)
        all = emit_general(l.code, or_, 32, {reg(l.code, all, 32), reg(l.code, registers[k], 32)});
    return all;
}

}  // namespace tuvo

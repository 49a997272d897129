#include "frame/generator/layout/conversions.hpp"

#include "frame/generator/layout/forms.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;

/// The upper two words, long words or lanes of four, moved down.
Operand upper_two(Layout& l, const Operand& source) { return reg(l.code, emit(l.code, vpshufd, 128, {source}, 0xee)); }

void convert_same_size(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    const int a = n.args[0];
    const Type from = node_of(l.plan, a).type;
    const Mnemonic name = n.op == Op::int_to_float ? vcvtdq2ps : n.op == Op::float_to_int ? vcvtps2dq : vcvttps2dq;
    const Shape shape = has(l, a, Shape::whole) || !wide_family(l.plan) ? Shape::whole : Shape::half;
    std::vector<int> result;
    for (int p = 0; p < count_of(l.plan, n.type, shape); ++p)
        result.push_back(emit(l.code, name, bits_of(l.plan, n.type, shape),
                              {any_operand(l, a, shape, p, bits_of(l.plan, from, shape))}));
    set_commented(l, node, shape, std::move(result));
}

/// 32-bit lanes to doubles: a half of four lanes to a whole of four, or to two of two.
void convert_to_doubles(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    std::vector<int> result;
    if (scalar(l.plan) && n.op == Op::widen) {
        const Operand source = in_register(l, n.args[0], Shape::half, 0, 128);
        result.push_back(emit(l.code, vcvtss2sd, 128, {source, source}));
    } else {
        const int bits = whole_bits(l.plan, n.type), wholes_of_four = bits == 256 ? 1 : 2;
        for (int p = 0; p < whole_count(l.plan, n.type); ++p) {
            Operand source = in_register(l, n.args[0], Shape::half, p / wholes_of_four, 128);
            if (p % wholes_of_four == 1) source = upper_two(l, source);
            result.push_back(emit(l.code, n.op == Op::int_to_float ? vcvtdq2pd : vcvtps2pd, bits, {source}));
        }
    }
    set_commented(l, node, Shape::whole, std::move(result));
}

void convert_from_doubles(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    const int a = n.args[0];
    const Type from = node_of(l.plan, a).type;
    const Mnemonic name = n.op == Op::narrow ? vcvtpd2ps : n.op == Op::float_to_int ? vcvtpd2dq : vcvttpd2dq;
    std::vector<int> result;
    for (int p = 0; p < whole_count(l.plan, from); ++p) {
        const Operand source = in_register(l, a, Shape::whole, p, whole_bits(l.plan, from));
        int r = scalar(l.plan) && n.op == Op::narrow ? emit(l.code, vcvtsd2ss, 128, {source, source})
                                                     : emit(l.code, name, 128, {source});
        // Zeros in the upper lanes become copies, unless nothing but the caller looks at the value.
        if (l.plan.width == 2 && is_read(l.plan, node)) r = emit(l.code, vmovddup, 128, {reg(l.code, r)});
        result.push_back(r);
    }
    if (l.plan.narrow && l.plan.width > 2)
        result = {emit(l.code, vunpcklpd, 128, {reg(l.code, result[0]), reg(l.code, result[1])})};
    set_commented(l, node, Shape::half, std::move(result));
}

/// Words of two long words each, side by side: the low ones by 0x88, the high ones by 0xdd.
int selector_of(Op op) { return op == Op::low_word ? 0x88 : 0xdd; }

/// 64-bit lanes in the order of unpacked words: whole registers joined of words, or taken apart.
void interleave_words(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    std::vector<int> result;
    for (int p = 0; p < whole_count(l.plan, n.type); ++p) {
        if (n.op == Op::join_words)
            result.push_back(emit(l.code, p % 2 == 0 ? vunpcklps : vunpckhps, 256,
                                  {in_register(l, n.args[1], Shape::whole, p / 2, 256),
                                   any_operand(l, n.args[0], Shape::whole, p / 2, 256)}));
        else
            result.push_back(emit(l.code, vshufps, 256,
                                  {in_register(l, n.args[0], Shape::whole, 2 * p, 256),
                                   in_register(l, n.args[0], Shape::whole, 2 * p + 1, 256)},
                                  selector_of(n.op)));
    }
    set_commented(l, node, Shape::whole, std::move(result));
}

/// One half of words out of, or of long words into, 64-bit lanes: four lanes are one half of words and two of long
/// words.
int half_of_words(Layout& l, const Node& n, int p) {
    const auto half = [&](int argument, int part) { return in_register(l, n.args[argument], Shape::half, part, 128); };
    switch (n.op) {
    case Op::low_word:
    case Op::high_word:
    case Op::mask_narrow:
        if (l.plan.width <= 2) return emit(l.code, vpshufd, 128, {half(0, p)}, selector_of(n.op));
        return emit(l.code, vshufps, 128, {half(0, 2 * p), half(0, 2 * p + 1)}, selector_of(n.op));
    case Op::join_words:
    case Op::mask_widen: {
        const int low = n.op == Op::join_words ? 1 : 0;
        return emit(l.code, p % 2 == 0 ? vpunpckldq : vpunpckhdq, 128, {half(low, p / 2), half(0, p / 2)});
    }
    default: {
        Operand source = half(0, p / 2);
        if (p % 2 == 1) source = upper_two(l, source);
        return emit(l.code, n.op == Op::zero_extend ? vpmovzxdq : vpmovsxdq, 128, {source});
    }
    }
}

}  // namespace

void lay_out_conversion(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    const bool from_words = type_size(node_of(l.plan, n.args[0]).type) == 4;
    if (type_size(n.type) == 8)
        convert_to_doubles(l, node);
    else if (from_words)
        convert_same_size(l, node);
    else
        convert_from_doubles(l, node);
}

void lay_out_words(Layout& l, int node) {
    if (l.plan.interleaved) return interleave_words(l, node);
    const Node& n = node_of(l.plan, node);
    std::vector<int> result;
    for (int p = 0; p < half_count(l.plan, n.type); ++p) result.push_back(half_of_words(l, n, p));
    set_commented(l, node, Shape::half, std::move(result));
}

/// The processor shifts a register by one count: each lane is shifted apart, then the lanes are merged.
void lay_out_shift_each(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    const Mnemonic shift = n.op == Op::shift_left_each ? vpsllq : vpsrlq;
    std::vector<int> result;
    for (int p = 0; p < half_count(l.plan, n.type); ++p) {
        const Operand value = in_register(l, n.args[0], Shape::half, p, 128);
        const Operand counts = in_register(l, n.args[1], Shape::half, p, 128);
        int r = emit(l.code, shift, 128, {value, counts});
        if (!scalar(l.plan)) {
            const Operand upper = upper_two(l, counts);
            const int high = emit(l.code, shift, 128, {value, upper});
            r = emit(l.code, vpblendw, 128, {reg(l.code, r), reg(l.code, high)}, 0xf0);
        }
        result.push_back(r);
    }
    set_commented(l, node, Shape::half, std::move(result));
}

}  // namespace tuvo

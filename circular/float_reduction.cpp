// With a = m 2^(e - 150), m the 24-bit significand, the fraction of a / (2 pi) is m W modulo 2^96 in units of 2^-96,
// where W are those 96 bits of 1/(2 pi) that neither make whole turns only nor lie below the result's last place.
#include "circular/float_reduction.hpp"

#include "circular/float_turn_tables.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t infinity = 0x7f800000;  // the exponent field, too
constexpr std::uint32_t fraction_mask = 0x007fffff;
constexpr std::uint32_t implicit_bit = 0x00800000;
constexpr std::uint32_t turn_shifter = 0x47400000;  // 49152, 1.5 x 2^15: the last place of the sum is 2^-8
constexpr std::uint32_t two_pi = 0x40c90fdb;        // 6.2831854820251465
constexpr std::uint32_t two_pi_head = 0x40c91000;   // 6.283203125, 12 bits
constexpr std::uint32_t two_pi_tail = 0xb795777a;   // -1.781781975296326e-05
constexpr std::uint32_t head_mask = 0xfffff000;     // keeps 12 bits of a significand
constexpr std::uint32_t tiny_limit = 0x35800000;    // 9.5367431640625e-07, 2^-20
constexpr std::uint32_t sine_1 = 0xbe2aaaab;        // -0.1666666716337204
constexpr std::uint32_t sine_2 = 0x3c08885c;        // 0.008333291858434677
constexpr std::uint32_t cosine_1 = 0xbf000000;      // -0.5
constexpr std::uint32_t cosine_2 = 0x3d2aaa7c;      // 0.04166649281978607

/// A fraction field as the significand behind a leading one, which is taken off again.
F32 without_one(I32 field, I32 one) { return as_float(field | one) - as_float(one); }

}  // namespace

Fraction fraction_of_turn(F32 a) {
    int words = 0;
    {
        InBlock second(1);
        words = table(inv_two_pi_words(), "invTwoPiWords");
    }
    const I32 e = claim_range(bits(a) >> 23, 0, 255);
    const auto [w0, w1, w2] = gather_fields<Type::i32, 3>(words, ((e << 1) + e) << 2);
    const I32 m = (bits(a) & i32(fraction_mask)) + i32(implicit_bit);
    // W = w0 2^64 + w1 2^32 + w2. Of m w2, in limbs of 16 bits, only what counts for 2^32 and above is formed, and its
    // lowest limbs' product not at all.
    const I32 mh = m >> 16, ml = m & i32(0xffff), w2h = w2 >> 16, w2l = w2 & i32(0xffff);
    const I32 carried = ((mh * w2l) >> 16) + mh * w2h + ((ml * w2h) >> 16);
    // Multiplication and the sum modulo 2^64 take the low words of 64-bit lanes.
    const I64 m_low = join_words(m, m), w0_low = join_words(w1, w0), w1_low = w0_low >> 32;
    const I64 sum = (multiply_words(m_low, w0_low) << 32) + multiply_words(m_low, w1_low) + join_words(i32(0), carried);
    return {high_word(sum).as("R0"), low_word(sum).as("R1")};
}

TurnRemainder<Type::f32> reduce_to_turn(F32 x, Sign sign) {
    const F32 a = sign == Sign::any ? abs(x) : x;
    const auto with_sign = [&](std::uint32_t pattern) {
        return sign == Sign::any ? bits(sign_bit(x)) | i32(pattern) : i32(pattern);
    };
    const auto [R0, R1] = fraction_of_turn(a);
    // 23 bits behind a leading one; its sum with the shifter is rounded to 1/256, and a negative one counts backward.
    const F32 f = as_float((R0 >> 9) | with_sign(0x3f800000));
    const F32 b = f32(turn_shifter) + f;
    const I32 index = (bits(b) & i32(0xff)).as("index");
    // What is left, in three parts of which each begins where the former ends.
    const F32 d0 = f - (b - f32(turn_shifter));
    const F32 d1 = without_one(((R0 & i32(0x1ff)) << 14) | (R1 >> 18), with_sign(0x34000000));  // 2^-23
    const F32 d2 = without_one((R1 & i32(0x3ffff)) << 5, with_sign(0x28800000));                // 2^-46
    const F32 h = d0 + d1;
    const F32 l = (d1 + (d0 - h)) + d2;
    // To radians: the product of the heads is exact.
    const F32 h1 = h & f32(head_mask), h2 = h - h1;
    const F32 p = f32(two_pi_head) * h1;
    const F32 q = (f32(two_pi_head) * h2 + h1 * f32(two_pi_tail)) + (l * f32(two_pi) + h2 * f32(two_pi_tail));
    const F32 rh = p + q, rl = q + (p - rh);
    // Tiny lanes run beside large ones; their own value is the remainder. A NaN has none.
    const M32 tiny = a <= f32(tiny_limit), other = a > f32(tiny_limit);
    return {index, (where(tiny, x) | where(other, rh)).as("r"), where(other, rl).as("low part of r")};
}

SineSeries<Type::f32> sine_series(const TurnRemainder<Type::f32>& argument) {
    const F32 r = argument.r, z = r * r;
    const F32 sine = r * (z * (f32(sine_2) * z + f32(sine_1)));
    const F32 cosine = z * (f32(cosine_2) * z + f32(cosine_1));
    return {r, argument.low, sine, cosine};
}

F32 sine_around(const SineSeries<Type::f32>& series, int turn_table, I32 index) {
    const auto [cos_tail, sin_head, sin_tail, cos_head] = gather_quad<Type::f32>(turn_table, index << 4);
    const F32 r = series.r;
    // sinHead + cosHead r + cosTail r, and the roundings of the two sums: the powers of two make the first product
    // exact.
    const F32 a1 = r * cos_head, a2 = r * cos_tail;
    const F32 u = sin_head + a1, e1 = a1 + (sin_head - u);
    const F32 v = a2 + u, e2 = a2 + (u - v);
    const F32 low = e2 + e1;
    const F32 derivative = (cos_tail + cos_head) - r * sin_head;
    return v +
           (((sin_head * series.cosine) + ((series.low * derivative) + sin_tail)) + ((derivative * series.sine) + low));
}

void rare_unless_finite(F32 x) { rare_if((x & f32(infinity)) == f32(infinity)); }

}  // namespace tuvo

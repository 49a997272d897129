// With a = m 2^(e - 1075), m the 53-bit significand, the fraction of a / (2 pi) is m W modulo 2^192 in units of 2^-192,
// where W are those 192 bits of 1/(2 pi) that neither make whole turns only nor lie below the result's last place.
#include "circular/double_reduction.hpp"

#include "circular/double_turn_tables.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t infinity = 0x7ff0000000000000;  // the exponent field, too
constexpr std::uint64_t fraction_mask = 0x000fffffffffffff;
constexpr std::uint64_t implicit_bit = 0x0010000000000000;
constexpr std::uint64_t low_limb = 0x00000000ffffffff;
constexpr std::uint64_t turn_shifter = 0x42a8000000000000;  // 1.5 x 2^43: the last place of the sum is 2^-9
constexpr std::uint64_t two_pi = 0x401921fb54442d18;        // 6.283185307179586
constexpr std::uint64_t two_pi_head = 0x401921fb54000000;   // 6.283185303211212, 26 bits
constexpr std::uint64_t two_pi_tail = 0x3e310b4611a62633;   // 3.968374318722162e-09
constexpr std::uint64_t head_mask = 0xfffffffff8000000;     // keeps 26 bits of a significand
constexpr std::uint64_t tiny_limit = 0x3eb0000000000000;    // 9.5367431640625e-07, 2^-20
constexpr std::uint64_t sine_1 = 0xbfc5555555554448;        // -0.1666666666665455
constexpr std::uint64_t sine_2 = 0x3f81110fabb3551c;        // 0.008333322932609515
constexpr std::uint64_t cosine_1 = 0xbfe0000000000000;      // -0.5
constexpr std::uint64_t cosine_2 = 0x3fa5555555554ccf;      // 0.041666666666651524
constexpr std::uint64_t cosine_3 = 0xbf56c16ab163b2d7;      // -0.0013888875887985619

/// A fraction field as the significand behind a leading one, which is taken off again.
F64 without_one(I64 field, I64 one) { return as_float(field | one) - as_float(one); }

}  // namespace

Fraction64 fraction_of_turn(F64 a) {
    int words = 0;
    {
        InBlock second(1);
        words = table(inv_two_pi_words64(), "invTwoPiWords64");
    }
    const I32 e = claim_range(high_word(bits(a)) >> 20, 0, 2047);
    const auto [w0, w1, w2] = gather_fields<Type::i64, 3>(words, ((e << 1) + e) << 3);
    const I64 m = (bits(a) & i64(fraction_mask)) + i64(implicit_bit);
    // W = w0 2^128 + w1 2^64 + w2, in limbs of 32 bits, and the product in columns of 32 bits with their carries. Its
    // lowest column is the carry's source only; the product of the lowest limbs is not formed at all, and of the
    // highest column no more is wanted than 32 bits.
    const auto upper = [](I64 word) { return word >> 32; };
    const auto low = [](I64 word) { return word & i64(low_limb); };
    const I64 mh = upper(m), w0h = upper(w0), w1h = upper(w1), w2h = upper(w2);
    const I64 l1 = multiply_words(m, w1), h1 = multiply_words(m, w1h), l0 = multiply_words(m, w0);
    const I64 A = ((upper(multiply_words(mh, w2)) + low(l1)) + multiply_words(mh, w2h)) + upper(multiply_words(m, w2h));
    const I64 B = ((upper(A) + low(h1)) + multiply_words(mh, w1)) + upper(l1);
    const I64 C = ((upper(B) + low(l0)) + multiply_words(mh, w1h)) + upper(h1);
    const I64 D = ((upper(C) + multiply_words(m, w0h)) + multiply_words(mh, w0)) + upper(l0);
    return {((D << 32) + low(C)).as("R0"), ((B << 32) + low(A)).as("R1")};
}

TurnRemainder<Type::f64> reduce_to_turn(F64 x, Sign sign) {
    const F64 a = sign == Sign::any ? abs(x) : x;
    const auto with_sign = [&](std::uint64_t pattern) {
        return sign == Sign::any ? bits(sign_bit(x)) | i64(pattern) : i64(pattern);
    };
    const auto [R0, R1] = fraction_of_turn(a);
    // 52 bits behind a leading one; its sum with the shifter is rounded to 1/512, and a negative one counts backward.
    const F64 f = as_float((R0 >> 12) | with_sign(0x3ff0000000000000));
    const F64 b = f64(turn_shifter) + f;
    const I32 index = (low_word(bits(b)) & i32(0x1ff)).as("index");
    // What is left, in three parts of which each begins where the former ends.
    const F64 d0 = f - (b - f64(turn_shifter));
    const F64 d1 = without_one(((R0 & i64(0xfff)) << 40) | (R1 >> 24), with_sign(0x3cb0000000000000));  // 2^-52
    const F64 d2 = without_one((R1 & i64(0xffffff)) << 28, with_sign(0x3970000000000000));              // 2^-104
    const F64 h = d0 + d1;
    const F64 l = (d1 + (d0 - h)) + d2;
    // To radians: the product of the heads is exact.
    const F64 h1 = h & f64(head_mask), h2 = h - h1;
    const F64 p = f64(two_pi_head) * h1;
    const F64 q = (f64(two_pi_head) * h2 + h1 * f64(two_pi_tail)) + (l * f64(two_pi) + h2 * f64(two_pi_tail));
    const F64 rh = p + q, rl = q + (p - rh);
    // Tiny lanes run beside large ones; their own value is the remainder. A NaN has none.
    const M64 tiny = a <= f64(tiny_limit), other = a > f64(tiny_limit);
    return {index, (where(tiny, x) | where(other, rh)).as("r"), where(other, rl).as("low part of r")};
}

SineSeries<Type::f64> sine_series(const TurnRemainder<Type::f64>& argument) {
    const F64 r = argument.r, z = r * r;
    const F64 sine = r * (z * (f64(sine_2) * z + f64(sine_1)));
    const F64 cosine = z * ((f64(cosine_3) * z + f64(cosine_2)) * z + f64(cosine_1));
    return {r, argument.low, sine, cosine};
}

F64 sine_around(const SineSeries<Type::f64>& series, int turn_table, I32 index, LastSums sums) {
    const auto [cos_tail, cos_head, sin_head, sin_tail] = gather_quad<Type::f64>(turn_table, index << 5);
    const F64 r = series.r;
    // sinHead + cosHead r + cosTail r, and the roundings of the two sums: the powers of two make the first product
    // exact.
    const F64 a1 = r * cos_head, a2 = r * cos_tail;
    const F64 u = sin_head + a1, e1 = a1 + (sin_head - u);
    const F64 v = a2 + u, e2 = a2 + (u - v);
    const F64 cosine = cos_tail + cos_head, derivative = cosine - r * sin_head;
    const F64 from_low = series.low * derivative + sin_tail, from_cosine = sin_head * series.cosine;
    const F64 from_sine = series.sine * cosine;
    if (sums == LastSums::both) return v + ((from_cosine + ((from_sine + from_low) + e2)) + e1);
    return v + ((from_cosine + (from_sine + (e2 + e1))) + from_low);
}

void rare_unless_finite(F64 x) { rare_if((x & f64(infinity)) == f64(infinity)); }

}  // namespace tuvo

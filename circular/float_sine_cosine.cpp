// Float sine and cosine: sinf, cosf, sincosf, sincosregf.
//
// Up to 10000, a multiple of pi is subtracted in parts that are short enough for exact products, as there is no fused
// multiply-add; one odd polynomial gives the sine of what remains. A cosine is the sine of a remainder that belongs to
// an odd multiple of pi/2. The quotient's low bit, moved to the sign's place, is the sign that an odd multiple of pi
// brings. Larger arguments are reduced out of line (float_reduction.cpp).
#include <span>

#include "circular/float_reduction.hpp"
#include "circular/float_turn_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

// 10000, above which arguments are large. Up to it quotients have 12 bits, and parts of pi 11, for exact products.
constexpr std::uint32_t large_limit = 0x461c4000;
constexpr std::uint32_t inv_pi = 0x3ea2f983;         // 0.31830987334251404
constexpr std::uint32_t half_pi = 0x3fc90fdb;        // 1.5707963705062866
constexpr std::uint32_t round_shifter = 0x4b400000;  // 12582912, 1.5 x 2^23
constexpr std::uint32_t half = 0x3f000000;
constexpr std::uint32_t sign_mask = 0x80000000;

constexpr std::uint32_t pi_default[] = {
    0x40490000,  // 3.140625
    0x3a7da000,  // 0.0009675025939941406
    0x34222000,  // 1.5099067240953445e-07
    0x2cb4611a,  // 5.126688136514179e-12
};
constexpr std::uint32_t pi_short[] = {
    0x40490000,  // 3.140625
    0x3a7da000,  // 0.0009675025939941406
    0x34222169,  // 1.5099580252808664e-07
};
// (sin r - r) / r^3, highest degree first.
constexpr std::uint32_t sine_default_polynomial[] = {
    0x362edef8,  // 2.605780537123792e-06
    0xb94fb7ff,  // -0.00019809602235909551
    0x3c088766,  // 0.008333062753081322
    0xbe2aaaa6,  // -0.16666659712791443
};
constexpr std::uint32_t sincos_default_polynomial[] = {
    0x362edef8,  // 2.605780537123792e-06
    0xb94fb7ff,  // -0.00019809602235909551
    0x3c08876a,  // 0.00833306647837162
    0xbe2aaaa7,  // -0.16666661202907562
};
// sin r / r of the short tiers. Its value at 0 is below 1: that evens out the error up to pi/2, at the price of a
// relative error of 1e-4 for small arguments.
constexpr std::uint32_t short_a0 = 0x3f7ff87c;         // 0.9998853206634521
constexpr std::uint32_t sine_short_a1 = 0xbe29e72f;    // -0.16592095792293549
constexpr std::uint32_t cosine_short_a1 = 0xbe29e73f;  // -0.1659211963415146
constexpr std::uint32_t short_a2 = 0x3bf84524;         // 0.007576601579785347

// The sine of u, which is a remainder with its sign settled, and z = u^2. The groupings belong to the kernels.
using Polynomial = F32 (*)(F32 u, F32 z);
F32 sine_default_of(F32 u, F32 z) { return u + (horner(z, sine_default_polynomial) * z) * u; }
F32 cosine_default_of(F32 u, F32 z) { return u + horner(z, sine_default_polynomial) * (z * u); }
F32 sincos_default_of(F32 u, F32 z) { return u + u * (z * horner(z, sincos_default_polynomial)); }
F32 sine_short_of(F32 u, F32 z) { return u * (z * (f32(short_a2) * z + f32(sine_short_a1))) + u * f32(short_a0); }
F32 cosine_short_of(F32 u, F32 z) { return (f32(short_a2) * z + f32(cosine_short_a1)) * (u * z) + u * f32(short_a0); }

struct Quotient {
    I32 odd;  ///< its low bit, in the sign's place
    F32 n;
};
/// a / pi to the nearest integer, which stands in the low bits of the shifted sum.
Quotient quotient_by_pi(F32 a) {
    const F32 t = a * f32(inv_pi) + f32(round_shifter);
    return {bits(t) << 31, (t - f32(round_shifter)).as("n")};
}

using Parts = std::span<const std::uint32_t>;

F32 minus_multiple(F32 a, F32 n, Parts parts) {
    for (std::uint32_t part : parts) a = a - n * f32(part);
    return a;
}

M32 is_large(F32 a) { return !(a <= f32(large_limit)); }

/// The sine, or with a table rotated by a quarter turn the cosine, of lanes above the limit.
F32 complete(F32 x, M32 large, F32 result, int rotation) {
    return if_any(large, result, [&] {
        rare_unless_finite(x);
        const TurnRemainder<Type::f32> reduced = reduce_to_turn(x);
        const int points = table(sin_cos_turn_table(rotation), "sinCosTurnTable");
        return sine_around(sine_series(reduced), points, reduced.index);
    });
}

F32 sine(F32 x, Parts pi, Polynomial polynomial) {
    const F32 a = abs(x);
    const M32 large = is_large(a);
    const auto [odd, n] = quotient_by_pi(a);
    const F32 r = minus_multiple(a, n, pi).as("r");
    return complete(x, large, polynomial(r ^ as_float(odd), r * r) ^ sign_bit(x), 0);
}

F32 cosine(F32 x, Parts pi, Polynomial polynomial) {
    const M32 large = is_large(abs(x));
    const F32 b = x + f32(half_pi);
    const M32 tiny = b == f32(half_pi);
    const auto [odd, n] = quotient_by_pi(b);
    const F32 r = minus_multiple(x, n - f32(half), pi).as("r");
    return complete(x, large, select(tiny, F32(1.0f), polynomial(r ^ as_float(odd), r * r)), 64);
}

std::pair<F32, F32> sine_cosine(F32 x, Parts pi, Polynomial polynomial) {
    const F32 a = abs(x);
    const M32 large = is_large(a);
    const auto [odd, n] = quotient_by_pi(a);
    const F32 c = minus_multiple(a, n, pi.first(2));
    const F32 g = sign_bit(c).as("sign of c");
    const F32 h = n + (f32(half) ^ g);  // toward the nearer odd multiple of pi/2
    const F32 rs = minus_multiple(c, n, pi.subspan(2)).as("r of the sine");
    const F32 rc = minus_multiple(a, h, pi).as("r of the cosine");
    const F32 us = rs ^ as_float(odd);
    const F32 uc = rc ^ ((g ^ f32(sign_mask)) ^ as_float(odd));
    const F32 s = sign_bit(x);
    const F32 sine = polynomial(us, us * us) ^ s;
    const F32 cosine = select(x == s, F32(1.0f), polynomial(uc, uc * uc));  // x is a zero if it equals its own sign bit
    const auto [all_sines, all_cosines] = if_any(large, std::tuple(sine, cosine), [&] {
        rare_unless_finite(x);
        const TurnRemainder<Type::f32> reduced = reduce_to_turn(abs(x), Sign::positive);
        const SineSeries<Type::f32> series = sine_series(reduced);
        const int points = table(sin_cos_turn_table(), "sinCosTurnTable");
        const I32 quarter_on = (reduced.index + i32(64)) & i32(255);
        return std::tuple(sine_around(series, points, reduced.index) ^ sign_bit(x),
                          sine_around(series, points, quarter_on));
    });
    return {all_sines, all_cosines};
}

F32 sine_default(F32 x) { return sine(x, pi_default, sine_default_of); }
F32 sine_short(F32 x) { return sine(x, pi_short, sine_short_of); }
F32 cosine_default(F32 x) { return cosine(x, pi_default, cosine_default_of); }
F32 cosine_short(F32 x) { return cosine(x, pi_short, cosine_short_of); }
std::pair<F32, F32> sine_cosine_default(F32 x) { return sine_cosine(x, pi_default, sincos_default_of); }
std::pair<F32, F32> sine_cosine_short(F32 x) { return sine_cosine(x, pi_short, sine_short_of); }

// Where the cosine is 1 because x vanishes beside pi/2.
constexpr std::uint32_t tiny_cosine = 0x33800000;  // 5.9604645e-08, 2^-24

const Describe families[] = {
    {{"sinf"}, describe(sine_default), {.ulp = 2.582, .worst = {0x43914288}, .thresholds = {half_pi, large_limit}}},
    {{"cosf"},
     describe(cosine_default),
     {.ulp = 2.518, .worst = {0x42e8a3b7}, .thresholds = {tiny_cosine, half_pi, large_limit}}},
    {{"sincosf", "sincosregf"},
     describe(sine_cosine_default),
     {.ulp = 2.861, .worst = {0x460ca30a}, .thresholds = {half_pi, large_limit}}},
    // The short tiers lose accuracy by design: for small x the sine is 0.99988532 x, 1924 ulp or less off x, and near
    // its extremes the error is of the same relative size.
    {{"sinf_half", "sinf_rm", "sinf_native"},
     describe(sine_short),
     {.ulp = 2525, .worst = {0x45fdeca2}, .thresholds = {half_pi, large_limit}}},
    {{"cosf_half", "cosf_rm", "cosf_native"},
     describe(cosine_short),
     {.ulp = 2537, .worst = {0x447127b2}, .thresholds = {tiny_cosine, half_pi, large_limit}}},
    {{"sincosf_rm", "sincosf_native", "sincosregf_native"},
     describe(sine_cosine_short),
     {.ulp = 2525, .worst = {0x3e1c09b1}, .thresholds = {half_pi, large_limit}}},
};

}  // namespace
}  // namespace tuvo

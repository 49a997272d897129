// Double tangent: tan.
//
// Up to 128000, a multiple of pi/2 is subtracted in parts, and the tangent of what remains is a rational function;
// after an odd multiple, minus its reciprocal. Larger arguments are reduced to the half turn out of line, where a table
// has the tangent's expansion around 256 points, with the pole as a reciprocal of its own.
#include "circular/double_tangent.hpp"

#include <span>

#include "circular/double_reduction.hpp"
#include "circular/double_turn_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {

PoleEntry64 pole_entry64(I32 index) {
    const int points = table(tan_pole_table64(), "tanPoleTable64");
    const I32 offset = ((index << 6) + (index << 5)) + (index << 3);
    const auto f = gather_fields<Type::f64, 13>(points, offset);
    return {f[0], f[2], f[3], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12]};
}

F64 reciprocal_approximation(F64 d) { return to_f64(reciprocal_approximation(to_f32(d))); }

namespace {

constexpr std::uint64_t tan_limit = 0x40ff400000000000;      // 128000
constexpr std::uint64_t round_shifter = 0x4338000000000000;  // 6755399441055744, 1.5 x 2^52
constexpr std::uint64_t two_over_pi = 0x3fe45f306dc9c883;    // 0.6366197723675814
constexpr std::uint64_t head_mask = 0xfffffffff8000000;      // keeps 26 bits of a significand
// The heads have 35 bits, in the short tier 23: products with quotients of up to 17 bits are exact.
constexpr std::uint64_t half_pi_default[] = {
    0x3ff921fb54440000,  // 1.5707963267923333
    0x3d868c234c4c0000,  // 2.5633441515839558e-12
    0x3b298a2e03707345,  // 1.0562999066987428e-23
};
constexpr std::uint64_t half_pi_short[] = {
    0x3ff921fb40000000,  // 1.570796251296997
    0x3e74442d00000000,  // 7.549789415861596e-08
    0x3cf8469898cc5170,  // 5.390302858158119e-15
};
// tan r = (r + r z num(z)) / (1 + z den(z)) with z = r^2, highest degree first.
constexpr std::uint64_t numerator[] = {
    0xbedf637dce2a3800,  // -7.483634564165939e-06
    0x3f66fc6fdce5d301,  // 0.002805918199721425
    0xbfc06b97be36d389,  // -0.12828347003747023
};
constexpr std::uint64_t denominator[] = {
    0xbf2b525b03bc92a6,  // -0.00020844803827304198
    0x3f97e7b68ac28a56,  // 0.02334485265658722
    0xbfdd8b213470beee,  // -0.46161680337080113
};
// tan r = r num(z) / den(z): both scaled alike, with constant terms that differ by 4e-13 to even out the error.
constexpr std::uint64_t short_numerator[] = {
    0x3f545c936ed9193a,  // 0.0012427749419586368
    0xbfc079ff5bf6a4df,  // -0.12872306814578047
    0x3ff27e949512aa02,  // 1.155903417888681
};
constexpr std::uint64_t short_denominator[] = {
    0x3f92e825cc67d220,  // 0.018463698006558116
    0xbfe072e2e400ec37,  // -0.5140242055125616
    0x3ff27e949510e8de,  // 1.1559034178631502
};

struct Ratio {
    F64 p, q;
};
Ratio ratio_default(F64 r, F64 z) {
    return {r + r * (z * horner(z, numerator)), z * horner(z, denominator) + F64(1.0)};
}
Ratio ratio_short(F64 r, F64 z) {
    const auto& n = short_numerator;
    const auto& d = short_denominator;
    return {r * (z * (f64(n[0]) * z + f64(n[1])) + f64(n[2])), z * (f64(d[0]) * z + f64(d[1])) + f64(d[2])};
}

F64 large(F64 x) {
    const TurnRemainder<Type::f64> reduced = reduce_to_turn(x, Sign::any);
    // 512ths of a turn, and the tangent's period is half of one.
    const PoleEntry64 e = pole_entry64(reduced.index & i32(0xff));
    const F64 r = reduced.r + reduced.low;
    // 1 / (u - r) by one cubic step.
    const F64 d = e.pole_dist_head - r, c = reciprocal_approximation(d);
    const F64 dh = d & f64(head_mask), dl = d - dh;  // dh and c have 26 and 24 bits or less
    const F64 eps = (F64(1.0) - dh * c) - c * dl, e2 = eps * eps;
    const F64 R = c + ((c + c * e2) * (eps + e2));
    const F64 head = R * e.pole_weight + (e.slope_head * r + e.value_head);
    const F64 z = r * r, z2 = z * z;
    const F64 A = e.r2 * r + e.slope_tail, B = e.r4 * r + e.r3, C = e.r6 * r + e.r5;
    const F64 w = (z * e.r7 + C) * z2 + (z * B + A);
    return r * w + head;
}

F64 tangent(F64 x, std::span<const std::uint64_t> half_pi, Ratio (*ratio)(F64 r, F64 z)) {
    const F64 a = abs(x);
    const M64 is_large = !(a <= f64(tan_limit));
    const F64 t = a * f64(two_over_pi) + f64(round_shifter);
    const F64 n = (t - f64(round_shifter)).as("n");
    F64 r = a;
    for (std::uint64_t part : half_pi) r = r - n * f64(part);
    // The quotient's low two bits as a double: 2 where it is odd, else a zero, of either sign.
    const M64 odd = as_float(bits(t) << 62) != F64(0.0);
    const F64 sign = as_float(bits(t) << 63) ^ sign_bit(x);
    const auto [p, q] = ratio(r, r * r);
    const F64 result = (select(odd, q, p) / select(odd, p, q)) ^ sign;
    return if_any(is_large, result, [&] {
        rare_unless_finite(x);
        return large(x);
    });
}

F64 tangent_default(F64 x) { return tangent(x, half_pi_default, ratio_default); }
F64 tangent_short(F64 x) { return tangent(x, half_pi_short, ratio_short); }

constexpr std::uint64_t quarter_pi = 0x3fe921fb54442d18;  // 0.7853981633974483, where the quotient begins to be odd

const Describe families[] = {
    {{"tan"},
     describe(tangent_default),
     {.ulp = 3.541, .worst = {0x402de07725ec30f3}, .stand_in = StandIn::exact, .thresholds = {quarter_pi, tan_limit}}},
    {{"tan_native"},
     describe(tangent_short),
     {.ulp = 1.99e5, .worst = {0x3e4fffff7a2fb138}, .stand_in = StandIn::exact, .thresholds = {quarter_pi, tan_limit}}},
};

}  // namespace
}  // namespace tuvo

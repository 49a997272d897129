// Float tangent: tanf.
//
// Up to 8256, a multiple of pi/2 is subtracted in parts, and the tangent of what remains is a rational function; after
// an odd multiple, minus its reciprocal. Larger arguments are reduced to the half turn out of line, where a table has
// the tangent's expansion around 128 points, with the pole as a reciprocal of its own.
#include "circular/float_tangent.hpp"

#include "circular/float_reduction.hpp"
#include "circular/float_turn_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {

PoleEntry pole_entry(I32 index) {
    const int points = table(tan_pole_table(), "tanPoleTable");
    const I32 offset = (index << 5) + (index << 3);
    const auto f = gather_fields<Type::f32, 10>(points, offset);
    return {f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9]};
}

/// The expansion without its value and the head of its slope, over r.
static F32 higher_terms(const PoleEntry& e, F32 r) { return (r * r) * (e.r4 * r + e.r3) + (e.r2 * r + e.slope_tail); }

F32 tangent_around_default(const PoleEntry& e, F32 r, F32 d) {
    constexpr std::uint32_t head_mask = 0xfffff000;  // keeps 12 bits of a significand
    // 1 / (u - r) = rc + corr. rc has 12 bits, and so has dh: eps is exact.
    const F32 dc = (e.pole_dist_head - d) - r;
    const F32 dh = d & f32(head_mask), rc = reciprocal_approximation(dh) & f32(head_mask);
    const F32 dlo = dc + ((d - dh) + e.pole_dist_tail);
    const F32 eps = 1.0f - dh * rc;
    const F32 R = (rc + rc * eps) * (eps * eps + 1.0f);
    const F32 q = dlo * R, corr = R * (q * q - (q - eps));
    const F32 m0 = rc * e.pole_weight, m1 = e.pole_weight * corr;
    // The three large terms, and what their sums round off.
    const F32 a1 = e.slope_head * r, s1 = e.value_head + a1, s2 = a1 + (e.value_head - s1);
    const F32 hd = s1 + m0, s3 = s2 + m1, s4 = s1 + (m0 - hd);
    return hd + (r * higher_terms(e, r) + (e.value_tail + (s3 + s4)));
}

F32 tangent_around_short(const PoleEntry& e, F32 r, F32 d) {
    const F32 c = reciprocal_approximation(d);
    const F32 m = c * e.pole_weight, pole = m + m * (1.0f - d * c);
    return (r * higher_terms(e, r) + (e.slope_head * r + e.value_head)) + pole;
}

namespace {

constexpr std::uint32_t tan_limit = 0x46010000;      // 8256
constexpr std::uint32_t round_shifter = 0x4b400000;  // 12582912, 1.5 x 2^23
constexpr std::uint32_t two_over_pi = 0x3f22f983;    // 0.6366197466850281
constexpr std::uint32_t half_pi_default[] = {
    0x3fc90000,  // 1.5703125
    0x39fda000,  // 0.0004837512969970703
    0x33a22000,  // 7.549533620476723e-08
    0x2c34611a,  // 2.5633440682570896e-12
};
constexpr std::uint32_t half_pi_short[] = {
    0x3fc90000,  // 1.5703125
    0x39fda000,  // 0.0004837512969970703
    0x33a22169,  // 7.549790126404332e-08
};
// tan r = r num(r^2) / den(r^2), highest degree first.
constexpr std::uint32_t numerator[] = {
    0xbdc433b4,  // -0.09580174088478088
    0x3f7ffffc,  // 0.9999997615814209
};
constexpr std::uint32_t denominator[] = {
    0x3c1f336b,  // 0.009716848842799664
    0xbedbb7ab,  // -0.42913565039634705
    0x3f7ffffc,  // 0.9999997615814209
};

/// A reciprocal approximation and one Newton step; the short tiers divide no more exactly than that.
F32 short_quotient(F32 numerator, F32 denominator) {
    const F32 c = reciprocal_approximation(denominator);
    return (c * (2.0f - c * denominator)) * numerator;
}
F32 true_quotient(F32 numerator, F32 denominator) { return numerator / denominator; }

using Around = F32 (*)(const PoleEntry& e, F32 r, F32 d);

F32 large(F32 x, Around tangent_around) {
    const TurnRemainder<Type::f32> reduced = reduce_to_turn(x);
    const PoleEntry e = pole_entry(reduced.index & i32(127));  // 256ths of a turn; the tangent's period is half of one
    const F32 r = reduced.r + reduced.low;
    return tangent_around(e, r, e.pole_dist_head - r);
}

template <std::size_t N>
F32 tangent(F32 x, const std::uint32_t (&half_pi)[N], F32 (*quotient)(F32, F32), Around tangent_around) {
    const F32 a = abs(x);
    const M32 is_large = !(a <= f32(tan_limit));
    const F32 t = a * f32(two_over_pi) + f32(round_shifter);
    const F32 n = (t - f32(round_shifter)).as("n");
    const F32 sign = sign_bit(x) ^ as_float(bits(t) << 31);
    F32 r = a;
    for (std::uint32_t part : half_pi) r = r - n * f32(part);
    // The quotient's low two bits as a float: 2 where it is odd, else a zero, of either sign.
    const M32 odd = as_float(bits(t) << 30) != 0.0f;
    const F32 z = r * r;
    const F32 p = r * horner(z, numerator);
    const F32 q = z * (f32(denominator[0]) * z + f32(denominator[1])) + f32(denominator[2]);
    const F32 result = quotient(select(odd, q, p), select(odd, p, q)) ^ sign;
    return if_any(is_large, result, [&] {
        rare_unless_finite(x);
        return large(x, tangent_around);
    });
}

F32 tangent_default(F32 x) { return tangent(x, half_pi_default, true_quotient, tangent_around_default); }
F32 tangent_short(F32 x) { return tangent(x, half_pi_short, short_quotient, tangent_around_short); }

constexpr std::uint32_t quarter_pi = 0x3f490fdb;  // 0.78539819, where the quotient begins to be odd

const Describe families[] = {
    {{"tanf"},
     describe(tangent_default),
     {.ulp = 3.944, .worst = {0x45ec763b}, .stand_in = StandIn::exact, .thresholds = {quarter_pi, tan_limit}}},
    // The short tiers divide by an approximate reciprocal and subtract pi/2 in three parts. So near multiples of pi/2,
    // where little remains, they lose what the fourth part would bring.
    {{"tanf_half", "tanf_rm", "tanf_native"},
     describe(tangent_short),
     {.ulp = 924.5, .worst = {0x45d1d93c}, .stand_in = StandIn::low, .thresholds = {quarter_pi, tan_limit}}},
};

}  // namespace
}  // namespace tuvo

// Double sine and cosine: sin, cos, sincos, sincosreg.
//
// A multiple of pi is subtracted in parts that are short enough for exact products, as there is no fused multiply-add;
// one odd polynomial gives the sine of what remains. A cosine is the sine of a remainder that belongs to an odd
// multiple of pi/2. The quotient's low bit, moved to the sign's place, is the sign that an odd multiple of pi brings.
// The default tier reduces larger arguments out of line (double_reduction.cpp).
#include <span>

#include "circular/double_reduction.hpp"
#include "circular/double_sine_polynomial.hpp"
#include "circular/double_turn_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

// Up to these quotients have 23 bits, and parts of pi 23 at most, for exact products; the cosine needs one bit more.
constexpr std::uint64_t sine_limit = 0x4170000000000000;     // 16777216
constexpr std::uint64_t cosine_limit = 0x4160000000000000;   // 8388608
constexpr std::uint64_t inv_pi = 0x3fd45f306dc9c883;         // 0.3183098861837907
constexpr std::uint64_t half_pi = 0x3ff921fb54442d18;        // 1.5707963267948966
constexpr std::uint64_t round_shifter = 0x4338000000000000;  // 6755399441055744, 1.5 x 2^52
constexpr std::uint64_t half = 0x3fe0000000000000;
constexpr std::uint64_t sign_mask = 0x8000000000000000;

constexpr std::uint64_t pi_default[] = {
    0x400921fb40000000,  // 3.141592502593994
    0x3e84442d00000000,  // 1.5099578831723193e-07
    0x3d08469880000000,  // 1.078060505991553e-14
    0x3b88cc51701b839a,  // 6.564007085747001e-22
};
constexpr std::uint64_t pi_short[] = {
    0x400921fb40000000,  // 3.141592502593994
    0x3e84442d00000000,  // 1.5099578831723193e-07
    0x3d08469898cc5170,  // 1.0780605716316238e-14
};
// Like the sine's, highest degree first: for the cosine, for both at once, and with fewer terms.
constexpr std::uint64_t cosine_polynomial[] = {
    0xbd69f0d60811aac8,  // -7.37280909726507e-13
    0x3de60e6857a2f220,  // 1.6048055576979365e-10
    0xbe5ae63546002231,  // -2.505187912674299e-08
    0x3ec71de38030fea0,  // 2.755731658449074e-06
    0xbf2a01a019a5b87b,  // -0.00019841269824944275
    0x3f8111111110a4a8,  // 0.00833333333328519
    0xbfc55555555554a7,  // -0.16666666666666183
};
constexpr std::uint64_t sincos_polynomial[] = {
    0xbd69f0d60811aac8,  // -7.37280909726507e-13
    0x3de60e6857a2f220,  // 1.6048055576979365e-10
    0xbe5ae63546002231,  // -2.505187912674299e-08
    0x3ec71de38030fea0,  // 2.755731658449074e-06
    0xbf2a01a019a5b86d,  // -0.00019841269824944237
    0x3f8111111110a4a6,  // 0.008333333333285186
    0xbfc55555555554a7,  // -0.16666666666666183
};
constexpr std::uint64_t short_polynomial[] = {
    0x3ec5d4567512bbd5,  // 2.602272538419318e-06
    0xbf29f67d9395d587,  // -0.0001980808536178708
    0x3f8110ea968a0185,  // 0.008333046645248707
    0xbfc55554ad3eaf1f,  // -0.16666658839437162
};

using Parts = std::span<const std::uint64_t>;

/// What a tier is made of: pi in parts, the polynomial, and whether lanes above the limit are reduced in the kernel or
/// left to the rare routine.
struct Steps {
    Parts pi, polynomial;
    bool reduces;
};
constexpr Steps sine_default_steps{pi_default, double_sine_polynomial, true};
constexpr Steps cosine_default_steps{pi_default, cosine_polynomial, true};
constexpr Steps sincos_default_steps{pi_default, sincos_polynomial, true};
constexpr Steps short_steps{pi_short, short_polynomial, false};

F64 horner(F64 z, Parts polynomial) {
    F64 p = f64(polynomial[0]);
    for (std::uint64_t coefficient : polynomial.subspan(1)) p = p * z + f64(coefficient);
    return p;
}

struct Quotient {
    F64 odd;  ///< its low bit, in the sign's place
    F64 n;
};
/// a / pi to the nearest integer, which stands in the low bits of the shifted sum.
Quotient quotient_by_pi(F64 a) {
    const F64 t = a * f64(inv_pi) + f64(round_shifter);
    return {as_float(bits(t) << 63).as("odd"), (t - f64(round_shifter)).as("n")};
}

F64 minus_multiple(F64 a, F64 n, Parts parts) {
    for (std::uint64_t part : parts) a = a - n * f64(part);
    return a;
}

/// Results of which the lanes above the limit are replaced.
template <typename... Results, typename Large>
std::tuple<Results...> complete(F64 x, M64 is_large, const Steps& steps, std::tuple<Results...> results, Large large) {
    if (!steps.reduces) {
        rare_if(is_large);
        return results;
    }
    return if_any(is_large, results, [&] {
        rare_unless_finite(x);
        InBlock third(2);
        return large(reduce_to_turn(abs(x), Sign::positive));
    });
}

/// The sine of a >= 0 by its place on the turn, or with a table rotated by a quarter turn the cosine.
F64 by_table(const TurnRemainder<Type::f64>& reduced, int rotation) {
    const int points = table(sin_cos_turn_table64(rotation), "sinCosTurnTable64");
    return sine_around(sine_series(reduced), points, reduced.index, LastSums::sine_or_cosine);
}

F64 sine(F64 x, const Steps& steps) {
    const F64 a = abs(x), s = sign_bit(x);
    const auto [odd, n] = quotient_by_pi(a);
    const F64 r = minus_multiple(a, n, steps.pi).as("r");
    const F64 z = r * r, u = r ^ odd;
    const F64 result = (u + (z * horner(z, steps.polynomial)) * u) ^ s;
    return std::get<0>(complete(x, !(a <= f64(sine_limit)), steps, std::tuple(result),
                                [&](const auto& reduced) { return std::tuple(by_table(reduced, 0) ^ sign_bit(x)); }));
}

F64 cosine(F64 x, const Steps& steps) {
    const F64 a = abs(x);
    const F64 c = f64(half_pi) - a;
    const M64 tiny = c == f64(half_pi);
    const auto [odd, n] = quotient_by_pi(c);
    const F64 h = f64(half) - n;  // a is taken from h pi, and so h has the sign
    F64 r = h * f64(steps.pi[0]) - a;
    for (std::uint64_t part : steps.pi.subspan(1)) r = r + h * f64(part);
    r = r.as("r");
    const F64 z = r * r, u = r ^ odd;
    const F64 result = select(tiny, F64(1.0), u + horner(z, steps.polynomial) * (z * u));
    return std::get<0>(complete(x, !(abs(c) <= f64(cosine_limit)), steps, std::tuple(result),
                                [&](const auto& reduced) { return std::tuple(by_table(reduced, 128)); }));
}

std::pair<F64, F64> sine_cosine(F64 x, const Steps& steps) {
    const F64 a = abs(x), s = sign_bit(x);
    const auto [odd, n] = quotient_by_pi(a);
    const F64 c = minus_multiple(a, n, steps.pi.first(2));
    const F64 g = sign_bit(c).as("sign of c");
    const F64 h = n + (f64(half) | g);  // toward the nearer odd multiple of pi/2
    const F64 rs = minus_multiple(c, n, steps.pi.subspan(2)).as("r of the sine");
    const F64 rc = minus_multiple(a, h, steps.pi).as("r of the cosine");
    const F64 zs = rs * rs, zc = rc * rc;
    const F64 ys = rs + rs * (zs * horner(zs, steps.polynomial));
    const F64 yc = rc + rc * (zc * horner(zc, steps.polynomial));
    const F64 sine = ys ^ (odd ^ s);
    const F64 signed_cosine = yc ^ (odd ^ (g ^ f64(sign_mask)));
    const F64 cosine = select(x == s, F64(1.0), signed_cosine);  // x is a zero if it equals its own sign bit
    const auto [all_sines, all_cosines] =
        complete(x, !(a <= f64(cosine_limit)), steps, std::tuple(sine, cosine), [&](const auto& reduced) {
            const SineSeries<Type::f64> series = sine_series(reduced);
            const int points = table(sin_cos_turn_table64(), "sinCosTurnTable64");
            const I32 quarter_on = (reduced.index + i32(128)) & i32(0x1ff);
            return std::tuple(sine_around(series, points, reduced.index, LastSums::both) ^ sign_bit(x),
                              sine_around(series, points, quarter_on, LastSums::both));
        });
    return {all_sines, all_cosines};
}

F64 sine_default(F64 x) { return sine(x, sine_default_steps); }
F64 cosine_default(F64 x) { return cosine(x, cosine_default_steps); }
std::pair<F64, F64> sine_cosine_default(F64 x) { return sine_cosine(x, sincos_default_steps); }

F64 sine_short(F64 x) { return sine(x, short_steps); }
F64 cosine_short(F64 x) { return cosine(x, short_steps); }
std::pair<F64, F64> sine_cosine_short(F64 x) { return sine_cosine(x, short_steps); }

// Where the cosine is 1 because x vanishes beside pi/2.
constexpr std::uint64_t tiny_cosine = 0x3ca0000000000000;  // 2^-53

const std::vector<std::uint64_t> short_domain{0, 0x41cfffffffffffff};  // below 2^30

const Describe families[] = {
    {{"sin"},
     describe(sine_default),
     {.ulp = 3.637, .worst = {0x4117129740785ad3}, .thresholds = {half_pi, sine_limit}}},
    {{"cos"},
     describe(cosine_default),
     {.ulp = 3.723, .worst = {0x4153cc301ad666cf}, .thresholds = {tiny_cosine, half_pi, cosine_limit}}},
    {{"sincos", "sincosreg"},
     describe(sine_cosine_default),
     {.ulp = 3.723, .worst = {0x4153cc301ad666cf}, .thresholds = {half_pi, cosine_limit}}},
    // The shorter polynomial loses accuracy by design. From 2^30 on the rare routine keeps some 50 bits after the point
    // only, so that next to zeros of the sine and cosine all digits can be lost: docs/large-arguments.md.
    {{"sin_native"},
     describe(sine_short),
     {.ulp = 6.143e7, .worst = {0x40131197d3ba429b}, .thresholds = {half_pi, sine_limit}, .domain = short_domain}},
    {{"cos_native"},
     describe(cosine_short),
     {.ulp = 6.143e7,
      .worst = {0xbfac11b1867be7e7},
      .thresholds = {tiny_cosine, half_pi, cosine_limit},
      .domain = short_domain}},
    {{"sincos_native", "sincosreg_native"},
     describe(sine_cosine_short),
     {.ulp = 6.143e7, .worst = {0xbfac11b1867be7e7}, .thresholds = {half_pi, cosine_limit}, .domain = short_domain}},
};

}  // namespace
}  // namespace tuvo

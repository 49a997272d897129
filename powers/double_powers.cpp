// Double powers: pow, powr, pown, rootn.
//
// The default tier works to base 2 and carries the logarithm as a pair:
//     log2 x = k + log2(c / R) + log2(1 + t / c),  t = m R - c,
// with m the significand, R one of 1025 short reciprocals that carry the head c of 1 / ln 2, so that t is the last
// logarithm's first term as it stands. Heads of 26 bits make the large product with y exact. The native tier takes
// natural logarithms in plain double.
#include "frame/description/families.hpp"
#include "powers/double_power_tables.hpp"
#include "powers/natural_steps.hpp"

namespace tuvo {
namespace {

// The vector path finishes exponents of the result below these: of their heads to base 2, or to base e in native tiers.
constexpr std::uint64_t pow_limit = 0x408f3fff00000000;       // 999.999, well within the normal numbers
constexpr std::uint64_t pown_limit = 0x408eefff00000000;      // 989.999
constexpr std::uint64_t rootn_limit = 0x408fefff00000000;     // 1021.9995
constexpr std::uint64_t native_limit = 0x4086232b00000000;    // 708.396: the result is normal
constexpr std::uint64_t exponent_limit = 0x7f80000000000000;  // 2^1017, of y: more are no power's business

/// Zeros, subnormals, negative numbers, infinities and NaNs.
void rare_unless_positive_normal(I32 high) { rare_if((high + i32(0x00100000)) < i32(0x00200000)); }

void rare_from(F64 v, std::uint64_t greatest) { rare_if(!(abs(v) < f64(greatest))); }

F64 head(F64 v) { return v & f64(0xfffffffff8000000); }  // 26 bits

/// The sign of x where n is odd, as a high word.
I32 sign_of_odd_power(I32 high, I32 n) { return high & (n << 31); }
F64 with_sign(F64 v, I32 sign) { return v | as_float(join_words(sign, i32(0))); }
void rare_for_even_root_of_negative(I32 high, I32 n) { rare_if(as_mask(and_not(n << 31, high))); }

// Default.

/// H + low, and head + tail = H.
struct Logarithm {
    F64 head, tail, low;
};

constexpr std::uint64_t logarithm_polynomial[] = {
    0xbf9b4ea0e9419f52,  // -0.026667131649815552
    0x3fa7a334ddfc9f86,  // 0.04616704187202374
    0xbfb550472a8bb463,  // -0.08325619496072671
    0x3fc47fd462b3b816,  // 0.16015105075297303
    0xbfd62e4346694107,  // -0.3465736568077919
    0x3e79c3a6966457ee,  // 9.6e-08: what c, as a head, leaves of the first term
};

/// log2 of normal a > 0, whose high word is given.
Logarithm binary_logarithm(F64 a, I32 high) {
    const I32 i = ((high & i32(0x000ffe00)) + i32(0x00000200)) >> 10;  // ten bits, rounded
    const int triples = table(double_logarithm_triples(), "log2(c / R) (hi, lo), R");
    const auto [log_hi, log_lo, R] = gather_fields<Type::f64, 3>(triples, (i << 4) + (i << 3));
    const F64 k = to_f64(shift_right_signed(high - i32(0x3fe7fe00), 20)).as("k");  // m in [0.74975, 1.4995)
    const F64 m = (a & f64(0x000fffffffffffff)) | f64(0x3ff0000000000000);

    const F64 mh = head(m);
    const F64 ml = m - mh;
    const F64 P = m * R;
    const F64 A = P + f64(0xbff7154740000000);  // -c
    const F64 B = mh * R - P;                   // exact
    const F64 C = R * ml;
    const F64 D = (C + B).as("D");  // A + D is the whole residual

    const F64 E = k + log_hi;
    const F64 S1 = E + A;
    const F64 S2 = S1 + D;
    const F64 e1 = E - S1;
    const F64 e2 = S1 - S2;
    const F64 e3 = A + e1;
    const F64 e4 = D + e2;
    const F64 lo = (e4 + e3) + log_lo;
    const F64 t = (A + D).as("t");
    const F64 lo2 = t * horner(t, logarithm_polynomial) + lo;
    const F64 H = (S2 + lo2).as("H");
    const F64 low = lo2 - (H - S2);
    const F64 Hh = head(H);
    return {Hh, H - Hh, low};
}

/// The exponent of 2 in the result: n / 128 + w, with n in the low word of `sum`.
struct Steps {
    F64 sum, w;
    I32 n;
};
Steps steps(F64 PH, F64 PL) {
    const F64 shifter = f64(0x42c8000000000000);  // 52776558133248, 1.5 2^45: the sum's ulp is 1/128
    const F64 v = (PH + shifter).as("n");
    return {v, PL + (PH - (v - shifter)), low_word(v)};
}
/// 2^(n / 128) without its fraction, for addition to a pattern.
I64 exponent_of(const Steps& s) { return (bits(s.sum) & i64(0xffffffffffffff80)) << 45; }

/// (2^w - 1) / w.
constexpr std::uint64_t d4 = 0x3f55d87fe78a6731;  // 0.0013333558146428443
constexpr std::uint64_t d3 = 0x3f83b2ab6fba4e77;  // 0.009618129107628477
constexpr std::uint64_t d2 = 0x3fac6b08d704a0bf;  // 0.055504108664821576
constexpr std::uint64_t d1 = 0x3fcebfbdff82c58e;  // 0.2402265069591007
constexpr std::uint64_t d0 = 0x3fe62e42fefa39ef;  // 0.6931471805599453

/// 2^(PH + PL), a normal number.
F64 binary_exponential(F64 PH, F64 PL) {
    const Steps s = steps(PH, PL);
    const I32 offset = (s.n & i32(127)) << 3;
    const I64 T = gather<Type::i64>(table(double_powers_of_two(), "2^(j / 128)"), offset);
    const F64 TS = as_float(T + exponent_of(s)).as("2^(n / 128)");
    const F64 g = horner(s.w, {d4, d3, d2, d1, d0});
    return TS + g * (TS * s.w);
}

F64 power(F64 a, I32 high, F64 y, std::uint64_t limit) {
    const auto [Hh, Hl, low] = binary_logarithm(a, high);
    const F64 yh = head(y);
    const F64 yl = y - yh;
    const F64 PH = yh * Hh;
    const F64 PL = (Hh * yl + (yh * Hl + yl * Hl)) + y * low;
    rare_from(PH, limit);
    return binary_exponential(PH, PL);
}

F64 pow_default(F64 x, F64 y) {
    const I32 high = high_word(x);
    rare_unless_positive_normal(high);
    rare_from(y, exponent_limit);
    return power(x, high, y, pow_limit);
}

F64 pown_default(F64 x, I32 n) {
    const I32 high = high_word(x), magnitude = high & i32(0x7fffffff);
    rare_unless_positive_normal(magnitude);
    return with_sign(power(x, magnitude, to_f64(n), pown_limit), sign_of_odd_power(high, n));
}

F64 rootn_default(F64 x, I32 n) {
    const I32 high = high_word(x), magnitude = high & i32(0x7fffffff);
    rare_unless_positive_normal(magnitude);
    rare_for_even_root_of_negative(high, n);
    const F64 y = to_f64(n);
    const F64 r = (1.0 / y).as("1 / n");
    const F64 u = r * f64(0x41a0000002000000);  // 134217729
    const F64 rh = u - (u - r);
    const F64 d = (1.0 - y * rh) - rh * 0.0;
    const F64 rl = rh * (d * (1.0 + d));
    rare_from(rh, exponent_limit);  // an infinity has become a NaN

    const auto [Hh, Hl, low] = binary_logarithm(x, magnitude);
    const F64 PH = rh * Hh;
    const F64 PL = (Hh * rl + (rh * Hl + rl * Hl)) + rh * low;
    rare_from(PH, rootn_limit);

    // The exponential in even and odd halves, and with the table's low words.
    const Steps s = steps(PH, PL);
    const int powers = table(double_power_of_two_pairs(), "2^(j / 128) (hi, lo)");
    const auto [T, Tl] = gather_pair<Type::f64>(powers, (s.n & i32(127)) << 4);
    const F64 w2 = s.w * s.w;
    const F64 w4 = w2 * w2;
    const F64 u1 = s.w * f64(d4) + f64(d3);
    const F64 u2 = s.w * f64(d2) + f64(d1);
    const F64 e = (((u1 * w4) * T + Tl) + T * (w2 * u2)) + T * (s.w * f64(d0));
    const F64 v = T + e;
    const I32 sign = sign_of_odd_power(high, n);
    const I32 field = ((s.n << 13) + i32(0x3ff00000)) & i32(0xfff00000);
    return by_part_size(with_sign(as_float(bits(v) + exponent_of(s)), sign),
                        v * as_float(join_words(field | sign, i32(0))));
}

// Native.

/// a^y for normal a > 0.
F64 natural_power(F64 a, I32 high, F64 y) {
    const F64 m = ((a & f64(0x000fffffffffffff)) | f64(0x3f50000000000000)).as("m");  // in [2^-10, 2^-9)
    const F32 r = round(reciprocal_approximation(to_f32(m)), RoundTo::nearest_even).as("r");
    // A factor of 2 goes from the table's value to the exponent for r up to 724, next to 512 sqrt(2): near 1 both are
    // zero.
    const I32 above = bits(bits(r) > i32(0x44350000));
    const F64 k = to_f64(((high >> 20) - i32(1022)) + above).as("k");
    const I32 offset = claim_range(bits(r) >> 11, 0x44000000 >> 11, 0x44800000 >> 11);
    const int logarithms = table(reciprocal_logarithms(), "-ln(r / 1024) or -ln(r / 512)");
    const F64 T = gather<Type::f64>(logarithms, offset, 0x44000000 >> 11).as("T");
    const F64 t = (m * to_f64(r) - 1.0).as("t");
    const F64 z = (natural_logarithm(t, T, k) * y).as("z");
    rare_from(z, native_limit);
    return first_order_exponential(z, centred_powers_from_one());
}

F64 pow_native(F64 x, F64 y) {
    const I32 high = high_word(x);
    rare_unless_positive_normal(high);
    rare_from(y, exponent_limit);
    return natural_power(x, high, y);
}

F64 pown_native(F64 x, I32 n) {
    const I32 high = high_word(x), magnitude = high & i32(0x7fffffff);
    rare_unless_positive_normal(magnitude);
    return with_sign(natural_power(x, magnitude, to_f64(n)), sign_of_odd_power(high, n));
}

F64 rootn_native(F64 x, I32 n) {
    const I32 high = high_word(x), magnitude = high & i32(0x7fffffff);
    rare_unless_positive_normal(magnitude);
    rare_for_even_root_of_negative(high, n);
    const F64 y = (1.0 / to_f64(n)).as("1 / n");
    rare_from(y, exponent_limit);
    return with_sign(natural_power(x, magnitude, y), sign_of_odd_power(high, n));
}

const std::vector<std::uint64_t> thresholds{0x0010000000000000, 0x7fefffffffffffff, 0x3ff7fe0000000000};
const std::vector<std::uint64_t> native_thresholds{0x0010000000000000, 0x7fefffffffffffff, 0x3ff69d3d4e44322d};

const Describe families[] = {
    {{"pow", "powr"},
     describe(pow_default),
     {.ulp = 1.707, .worst = {0x3ff00202ca002115, 0x413581530b93dcd7}, .thresholds = thresholds}},
    {{"pown"},
     describe(pown_default),
     {.ulp = 1.700, .worst = {0x3ff002033b836714, 0x00154ac1}, .thresholds = thresholds}},
    {{"rootn"},
     describe(rootn_default),
     {.ulp = 0.7516, .worst = {0x7fd858f2d02c5a68, 0xffffffff}, .thresholds = thresholds}},
    {{"pow_native", "powr_native"},
     describe(pow_native),
     {.ulp = 8.458e9,
      .worst = {0x3feffafe440ee204, 0xc131a0edbcdff54d},
      .stand_in = StandIn::high,
      .thresholds = native_thresholds}},
    {{"pown_native"},
     describe(pown_native),
     {.ulp = 8.377e9,
      .worst = {0x3feffafe199aa0bd, 0xffee7eab},
      .stand_in = StandIn::high,
      .thresholds = native_thresholds}},
    {{"rootn_native"},
     describe(rootn_native),
     {.ulp = 6.450e7, .worst = {0x7e0fffffffff9200, 1}, .stand_in = StandIn::high, .thresholds = native_thresholds}},
};

}  // namespace
}  // namespace tuvo

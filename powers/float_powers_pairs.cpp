// The default powrf, pownf and rootnf, in floats throughout. The logarithm and the exponent are pairs of floats, the
// head with so few bits that the product of both heads is exact; their tails make three small products.
//
//     ln x = E ln 2 + ln(1 / rcp) + ln(1 + r),  r = m rcp - 1,  with rcp one of 65 short reciprocals.
#include "frame/description/families.hpp"
#include "powers/float_power_sign.hpp"
#include "powers/float_power_tables.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t powr_limit = 0x42819f00;  // 64.81055, of the exponent's head
constexpr std::uint32_t limit = 0x42ae9a00;       // 87.30078: the result is normal up to there

F32 veltkamp(F32 v) { return v * f32(0x45800800); }  // 4097

struct Pair {
    F32 h, l;
};

/// The textbook split; both halves have 12 bits.
Pair split(F32 v) {
    const F32 u = veltkamp(v);
    const F32 h = u - (u - v);
    return {h, v - h};
}

/// ln a for normal a > 0.
Pair logarithm(F32 a) {
    const I32 b = bits(a);
    const F32 E = (to_f32(b >> 23) - 127.0f).as("E");
    const I32 offset = (((b & i32(0x007f0000)) + i32(0x00010000)) >> 13) & i32(0x7f0);  // seven bits, rounded, to 64
    const int triples = table(float_logarithm_triples(), "-ln(rcp) (hi, lo), rcp");
    const auto [log_hi, log_lo, rcp, unused] = gather_quad<Type::f32>(triples, offset);

    const F32 m = (a & f32(0x007fffff)) | f32(0x3f800000);
    const F32 mh = m & f32(0x7fffc000);
    const F32 ml = m - mh;
    const F32 head = (mh * rcp - 1.0f).as("a");  // exact
    const F32 carry = (rcp * ml).as("b");
    const F32 r = (head + carry).as("r");
    const F32 c = head + log_hi;
    const F32 p = (r * f32(0xbe800000) + f32(0x3eaaaaab)) * r + f32(0xbf000000);  // -0.25, 0.33333334, -0.5
    const F32 q = p * (r * r);
    const F32 A = E * f32(0x3f317000) + c;       // 0.69311523
    const F32 B = E * f32(0x3805fdf4) + log_lo;  // 3.1946183e-05
    const F32 C = q + B;

    // Next to 1 the exponent's and the table's terms vanish, and the carry belongs to the head; else to the tail.
    const M32 near = (a > f32(0x3f7e0000)) & (a < f32(0x3f820000));  // 0.9921875, 1.015625
    const F32 H = A + where(near, carry);
    const F32 L = C + and_not(as_float(bits(near)), carry);
    const F32 S = (H + L).as("S");
    const F32 u = veltkamp(S);
    const F32 Sh = (S + u) - u;
    return {Sh.as("Sh"), (L + (H - Sh)).as("Sl")};
}

constexpr std::uint32_t polynomial[] = {
    0x3c07d9fe,  // 0.0082917195
    0x3d2b8392,  // 0.041873522
    0x3e2aacac,  // 0.16667432
    0x3effff34,  // 0.49999392
    0x3f7ffffe,  // 0.9999999
    0x3f800000,  // 1
};
constexpr std::uint32_t pown_polynomial[] = {
    0x3c0950ef,  // 0.0083811125
    0x3d2bb1b6,  // 0.041917525
    0x3e2aa9c6,  // 0.16666326
    0x3efffe85,  // 0.4999887
    0x3f800001,  // 1.0000001, twice: 0 doesn't give 1
    0x3f800001,
};

/// e^(h + l), the head exact. It goes to the rare routine beyond `greatest`, or as a NaN.
F32 exponential(F32 h, F32 l, const std::uint32_t (&coefficients)[6], std::uint32_t greatest) {
    rare_if(!(abs(h) <= f32(greatest)));
    const F32 shifter = f32(0x4b400000);                    // 12582912
    const F32 v = (h * f32(0x3fb8aa3b) + shifter).as("n");  // 1 / ln 2, 1.442695
    const F32 n = v - shifter;
    const F32 f = (((h - n * f32(0x3f317200)) - n * f32(0x35bfbe8e)) + l).as("f");  // 0.69314575, 1.4286068e-06
    return scaled_power_of_two(horner(f, coefficients), v);
}

F32 powrf_default(F32 x, F32 y) {
    rare_unless_power_base(x);
    rare_unless_finite(y);
    const auto [Sh, Sl] = logarithm(x);
    const auto [yh, yl] = split(y);
    return exponential(Sh * yh, yh * Sl + (Sh * yl + Sl * yl), polynomial, powr_limit);
}

F32 pownf_default(F32 x, I32 n) {
    const F32 a = abs(x);
    rare_unless_power_base(a);
    const F32 y = to_f32(n).as("y");
    const F32 lost = to_f32(n - to_i32(y));  // by the conversion, from 2^24 up
    const auto [Sh, Sl] = logarithm(a);
    const F32 yh = split(y).h;
    const F32 yl = (y - yh) + lost;
    return exponential(Sh * yh, yh * Sl + (Sh * yl + Sl * yl), pown_polynomial, limit) | sign_of_odd_power(x, n);
}

F32 rootnf_default(F32 x, I32 n) {
    const F32 a = abs(x);
    rare_unless_power_base(a);
    rare_if(as_mask(even_power_of_negative(x, n)));
    const F32 y = to_f32(n);
    const F32 rcp = (1.0f / y).as("1 / n");
    rare_unless_finite(rcp);
    const F32 rh = split(rcp).h;
    const F32 d = (1.0f - y * rh) - rh * 0.0f;  // a NaN for an infinite rh
    const F32 rl = rh * (d * (1.0f + d));
    const auto [Sh, Sl] = logarithm(a);
    return exponential(Sh * rh, rh * Sl + (Sh * rl + Sl * rl), polynomial, limit) | sign_of_odd_power(x, n);
}

const std::vector<std::uint64_t> thresholds{0x00800000, 0x7f7ffffe, 0x3f7e0000, 0x3f820000};

const Describe families[] = {
    {{"powrf"}, describe(powrf_default), {.ulp = 9.703, .worst = {0x3f8226f5, 0x4572d867}, .thresholds = thresholds}},
    {{"pownf"}, describe(pownf_default), {.ulp = 11.89, .worst = {0x3f7de8d2, 0xffffd83a}, .thresholds = thresholds}},
    {{"rootnf"}, describe(rootnf_default), {.ulp = 5.717, .worst = {0x0db7b685, 0xffffffff}, .thresholds = thresholds}},
};

}  // namespace
}  // namespace tuvo

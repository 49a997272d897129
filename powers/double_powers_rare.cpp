// Rare routines of the double powers. Kernels send them bases that are no positive normal numbers, exponents that are
// not finite, and results beyond the range of normal doubles or close to its ends; they give every other power too.
//
// Largest errors over 300,000 random pairs each, in ulp: 0.511 where the result is normal, and 0.752 where it is
// subnormal and rounded twice: to 53 bits, at a scale where it is normal, and where the double ends.
#include "frame/description/rare.hpp"
#include "powers/power_classes.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
extern const double pow_stage1_rcp[33], pow_stage2_rcp[33], pow_stage3_rcp[129];
extern const double pow_stage1_log[33][2], pow_stage2_log[33][2], pow_stage3_log[129][2];
extern const double pow_exp2_pairs[128][2];  // 2^(j / 128)
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

struct Halves {
    double high, low;
};
inline Halves split(double a) {
    const double c = f64(0x41a0000002000000, 134217729.0) * a;
    const double high = c - (c - a);
    return {high, a - high};
}

constexpr double tiny = f64(0x0010000000000000);   // 2^-1022, whose square underflows
constexpr double large = f64(0x7fe0000000000000);  // 2^1023, whose square overflows
inline double underflow(double sign) { return runtime(tiny) * tiny * sign; }
inline double overflow(double sign) { return runtime(large) * large * sign; }

constexpr std::uint32_t high_word(double x) { return static_cast<std::uint32_t>(bits(x) >> 32); }

/// log2 of a significand times 2^k.
struct Logarithm {
    double head;  ///< without the polynomial
    double v, lows;
};
inline Logarithm binary_logarithm(double a) {
    int k = 0;
    if (exponent_field(a) == 0) {
        a = a * f64(0x4c70000000000000, 0x1p200);
        k = -200;
    }
    // The significand is taken from 0.746 to 1.492, so that the logarithm has no cancellation next to 1.
    k += (static_cast<std::int32_t>(high_word(a)) - 0x3fe7c000) >> 20;
    const double m = significand(a);

    const unsigned i1 = ((high_word(m) & 0xfc000) + 0x4000) >> 15;
    const auto [hi1, lo1] = pow_stage1_log[i1];
    const double m1 = m * pow_stage1_rcp[i1];

    const unsigned i2 = ((high_word(m1) & 0xfc00) + 0x400) >> 11;
    const auto [hi2, lo2] = pow_stage2_log[i2];
    const double m2 = m1 * pow_stage2_rcp[i2];

    const unsigned i3 = ((high_word(m2) & 0xff0) + 16) >> 5;
    const auto [hi3, lo3] = pow_stage3_log[i3];
    const double m3 = m2 * pow_stage3_rcp[i3];

    const double S = k + hi1 + hi2 + hi3;  // exact
    const double lows = (lo2 + lo3) + lo1;
    const double R = pow_stage1_rcp[i1] * pow_stage2_rcp[i2] * pow_stage3_rcp[i3];  // exact
    const double u = m3 - f64(0x3ff7154740000000, 1.442694902420044);

    // What the three products lost: the exact m R less m3.
    const auto [mh, ml] = split(m);
    const auto [Rh, Rl] = split(R);
    const double D = ((mh * Rh - m3) + Rh * ml) + mh * Rl + ml * Rl;

    const double head = S + u;
    const double e4 = (S - head) + u;
    return {head, u + D, lows + (D + e4)};
}

/// An exponent in two parts, of which the head has 26 bits.
struct Exponent {
    double y, h, l;
};

/// a^y for finite a > 0, times `sign`.
inline double power_core(double a, const Exponent& y, double sign) {
    const Logarithm log = binary_logarithm(a);
    const int fields = exponent_field(log.head) + exponent_field(y.y);
    if (fields >= 2057)  // |y log2 a| is 2048 or more
        return has_sign(y.y) != has_sign(log.head) ? underflow(sign) : overflow(sign);
    if (fields <= 1984) return (1.0 + runtime(tiny)) * sign;  // below 2^-60

    const double v = log.v;
    const double P =
        (((-0.08325619496470027 * v + 0.16015105075870564) * v - 0.3465736568077919) * v + 9.597935033233503e-08) * v;
    const double T1 = log.head + P;
    const double e5 = (log.head - T1) + P;
    const double T2 = T1 + log.lows;
    const double e6 = (T1 - T2) + log.lows;
    const auto [Th2, Tl2] = split(T2);
    const double low = (e6 + e5) * y.y;

    const double shifter = f64(0x42c8000000000000, 52776558133248.0);  // 1.5 2^45: the sum's ulp is 1/128
    const double PH = y.h * Th2;
    const double W = shifter + PH;
    const auto n = static_cast<std::int32_t>(bits(W));
    const double g = low + (y.l * Tl2 + y.h * Tl2 + Th2 * y.l) + (PH - (W - shifter));
    const int ne = n >> 7;
    const auto [Th, Tl] = pow_exp2_pairs[n & 127];
    const double excess = horner(g, f64(0x3f55d87fe78a6731), 0.009618129107628477, 0.05550410866482158,
                                 0.24022650695910072, 0.6931471805599453) *
                              g * Th +
                          Tl;
    const double result = excess + Th;

    const int q = exponent_field(result) + ne - 1023;
    if (q >= 1024) return overflow(sign);
    if (q >= -1022) return f64((bits(result) & 0x800fffffffffffff) | static_cast<std::uint64_t>(q + 1023) << 52) * sign;
    if (q < -1084) return underflow(sign);
    // A subnormal: made 2^200 times as large, and brought down by the last product. The sum raises underflow.
    const double s = f64(static_cast<std::uint64_t>((ne + 1223) & 0x7ff) << 52);
    const double down = 0x1p-200, nothing = runtime(tiny) * tiny;
    if (q < -1032) return (down * (result * s) + nothing) * sign;
    const double h = split(result).high;
    const double l = (result - h) + ((Th - result) + excess);
    return (down * (h * s + l * s) + nothing) * sign;
}

inline Exponent whole_exponent(double y) {
    const auto [h, l] = split(y);
    return {y, h, l};
}

}  // namespace

extern "C" {

RareStatus pow_rare(const double* x, const double* y, double* r) {
    return power(*x, *y, r, [y = *y](double a, double sign) { return power_core(a, whole_exponent(y), sign); });
}

RareStatus powr_rare(const double* x, const double* y, double* r) {
    return power_of_positive(*x, *y, r,
                             [y = *y](double a, double sign) { return power_core(a, whole_exponent(y), sign); });
}

RareStatus pown_rare(const double* x, const int* n, double* r) {
    return integer_power(*x, *n, r, [y = static_cast<double>(*n)](double a, double sign) {
        return power_core(a, whole_exponent(y), sign);
    });
}

RareStatus rootn_rare(const double* x, const int* n, double* r) {
    return integer_root(*x, *n, r, [y = static_cast<double>(*n)](double a) {
        const double inverse = 1.0 / y;
        const double h = split(inverse).high;
        const double d = (1.0 - y * h) - h * 0.0;
        return power_core(a, {inverse, h, d * (1.0 + d) * h}, 1.0);
    });
}

}  // extern "C"

}  // namespace tuvo

// Rare routines of the float logarithms. Kernels send them zeros, negatives, subnormals, infinities and NaN; they give
// the logarithm of every other argument too.
//
// Largest errors over all positive floats, in ulp:
//
//                   subnormals              normals
//     logf_rare     1.034 at 0x00003b60     0.521 at 0x3f8194a8
//     log2f_rare    0.550 at 0x004d92ef     3.52 outside [1/2, 2]; within, 4.2e-7 absolute, up to 397 ulp near 1
//     log10f_rare   0.545 at 0x0036c4b2     5.77 outside [1/2, 2]; within, 1.77e-7 absolute, up to 615 ulp near 1
//     log1pf_rare   the value of logf_rare for the rounded sum; from 2^24 on, 0.5312 at 0x4b80145a

#include "explog/logarithms_rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (c, hi, lo): the scaled reciprocal, and minus its logarithm.
extern const float logf_table[65][3];
extern const float log1pf_table[65][3];
extern const float log2f_table[65][3];
extern const float log10f_table[65][3];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr SubnormalScale<float> scale_27{0x1p27f, 27};
constexpr SubnormalScale<float> scale_40{0x1p40f, 40};

constexpr float head_shifter = 0x1p13f;  // heads have 10 fractional bits

/// (log1p(v) - v) / v^2.
inline float natural_polynomial(float v) {
    return horner(v, f32(0xbe0005a0, -0.12502146f), f32(0x3e124e01, 0.14287569f), f32(0xbe2aaaab, -0.16666667f),
                  f32(0x3e4ccccd, 0.2f), f32(0xbe800000, -0.25f), f32(0x3eaaaaab, 0.33333334f), f32(0xbf000000, -0.5f));
}

inline float natural_logarithm(Argument<float> argument, const float (&table)[65][3]) {
    const float d = argument.t - 1.0f;
    if (__builtin_fabsf(d) <= 0.009765625f) return d + d * d * natural_polynomial(d);

    // E ln 2 needs two terms where the rest may cancel it; the large E of a subnormal does with one.
    const float e = argument.exponent;
    const float e_hi = e * (argument.scaled ? f32(0x3f317218, 0.6931472f) : f32(0x3f317200, 0.69314575f));
    const float e_lo = argument.scaled ? 0.0f : e * f32(0x35bfbe8e, 1.4286068e-06f);

    return natural_sum(e_hi, e_lo, reduce(argument.t, table, head_shifter), natural_polynomial);
}

// The other two bases carry a factor K, about 256 log(e), in the reduced argument s = K (m q - 1). Their polynomial Q
// makes s + s Q(s) the logarithm: its constant term is -255/256, so the sum begins with s / 256. Eight bits cancel
// there. They lie below the last place of a subnormal's logarithm, at least 126 in base 2; near one they show.

constexpr float binary_scale = f32(0x43b8aa40, 369.33008f);
constexpr float decimal_scale = f32(0x42de5c00, 111.1796875f);
constexpr float near_one = f32(0x3bc00000, 0.005859375f);

/// Q for base 2.
inline float binary_polynomial(float v) {
    return horner(v, f32(0x9c1d865e, -5.2120608e-22f), f32(0x2081cd9d, 2.1989513e-19f),
                  f32(0xa4da74dc, -9.4740397e-17f), f32(0x293d1988, 4.1988575e-14f), f32(0xadaa8223, -1.9384555e-11f),
                  f32(0x3223fe93, 9.5457322e-09f), f32(0xb6b1720f, -5.2882892e-06f), f32(0xbf7f0000, -0.99609375f));
}

/// Q for base 10.
inline float decimal_polynomial(float v) {
    return horner(v, f32(0xa22b5dae, -2.3224415e-18f), f32(0x25aa5bfd, 2.9552633e-16f),
                  f32(0xa92c998b, -3.8324849e-14f), f32(0x2cb3e701, 5.1131326e-12f), f32(0xb04353b9, -7.1059564e-10f),
                  f32(0x33e23666, 1.053384e-07f), f32(0xb7935d5a, -1.7567236e-05f), f32(0xbf7f0000, -0.99609375f));
}

/// The logarithm next to 1, without a table. Elsewhere `sum` makes it.
template <class Polynomial, class Sum>
inline float scaled_logarithm(float t, float scale, Polynomial polynomial, Sum sum) {
    const float d = t - 1.0f;
    if (__builtin_fabsf(d) > near_one) return sum();
    const float s = d * scale;
    return s + s * polynomial(s);
}

inline float binary_logarithm(Argument<float> argument) {
    return scaled_logarithm(argument.t, binary_scale, binary_polynomial, [&] {
        const Reduction m = reduce(argument.t, log2f_table, head_shifter);
        const float v = m.c * m.tail;
        const float u = m.head * m.c - binary_scale;
        const float g = binary_polynomial(u + v);
        return ((argument.exponent + m.hi) + u) + ((v + (v * g + m.lo)) + u * g);
    });
}

inline float decimal_logarithm(Argument<float> argument) {
    return scaled_logarithm(argument.t, decimal_scale, decimal_polynomial, [&] {
        const float e_hi = f32(0x3e9a0000, 0.30078125f) * argument.exponent;  // exact, and so is its sum with hi
        const float e_lo = argument.exponent * f32(0x39826a14, 0.00024874567f);
        return decimal_sum(e_hi, e_lo, reduce(argument.t, log10f_table, head_shifter), decimal_scale,
                           decimal_polynomial);
    });
}

}  // namespace

extern "C" {

RareStatus logf_rare(const float* x, float* r) {
    return logarithm(*x, r, scale_27, [](Argument<float> a) { return natural_logarithm(a, logf_table); });
}

RareStatus log1pf_rare(const float* x, float* r) {
    return logarithm(*x + 1.0f, r, scale_40, [](Argument<float> a) { return natural_logarithm(a, log1pf_table); });
}

RareStatus log2f_rare(const float* x, float* r) { return logarithm(*x, r, scale_27, binary_logarithm); }

RareStatus log10f_rare(const float* x, float* r) { return logarithm(*x, r, scale_40, decimal_logarithm); }

}  // extern "C"

}  // namespace tuvo

// Rare routines of the double logarithms. Kernels send them zeros, negatives, subnormals, infinities and NaN, and
// `log1p` the largest numbers; they give the logarithm of every other argument too.
//
// Largest errors over 10^7 random arguments of each kind, in ulp:
//
//                  subnormals   normals
//     log_rare     0.5001       0.7501
//     log2_rare    0.5001       0.5010 outside [1/2, 2]; within, 2.5e-21 absolute on top, up to 4.1e10 ulp next to 1
//     log10_rare   0.5001       1.001
//     log1p_rare   the value of log_rare for the rounded sum; 0.5001 for the largest numbers

#include "explog/logarithms_rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (c, hi, lo): the scaled reciprocal, and minus its logarithm.
extern const double log_table[65][3];
extern const double log1p_table[65][3];
extern const double log10_table[65][3];
// Reciprocals of log2_rare, and entries (lo, hi): minus their logarithms.
extern const float log2_rcp[256];
extern const double log2_log[256][2];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr SubnormalScale<double> scale_60{f64(0x43b0000000000000, 0x1p60), 60};

/// (log1p(v) - v) / v^2.
inline double natural_polynomial(double v) {
    return horner(v, f64(0xbfc000b405a2836d, -0.1250214602960357), f64(0x3fc249c02481059d, 0.1428756883852146),
                  f64(0xbfc555555228b38f, -0.1666666651884978), f64(0x3fc9999997b36c81, 0.19999999911565072),
                  f64(0xbfd0000000000262, -0.25000000000003386), f64(0x3fd5555555555613, 0.33333333333334386),
                  f64(0xbfe0000000000000, -0.5));
}

inline double natural_logarithm(Argument<double> argument, const double (&table)[65][3]) {
    const double e_hi = f64(0x3fe62e42fefa3800, 0.6931471805598903) * argument.exponent;  // exact, and its sum with hi
    const double e_lo = argument.exponent * f64(0x3d2ef35793c76730, 5.497923018708371e-14);
    return natural_sum(e_hi, e_lo, reduce(argument.t, table, 0x1p21), natural_polynomial);  // 31 bits in heads
}

/// (log10(1 + v / K) - v) / v with K near log10(e): the constant term makes up for the difference.
inline double decimal_polynomial(double v) {
    return horner(v, f64(0xc045b3214e75eea2, -43.39945393331915), f64(0x40358992e1b1aa78, 21.537397485614264),
                  f64(0xc025c90e698cfb68, -10.89268808217976), f64(0x4016ab9f7b1efe5c, 5.667600559012126),
                  f64(0xc008930964d42479, -3.0717952611199135), f64(0x3ffc6a02dc963a31, 1.7758816353485936),
                  f64(0xbff27af2dc77b115, -1.1550167667401798), f64(0x3f5a7a6cbf2e4107, 0.0016161024074997103));
}

inline double decimal_logarithm(Argument<double> argument) {
    const double e_hi = f64(0x3fd34413509f8000, 0.3010299956640665) * argument.exponent;  // exact, and its sum with hi
    const double e_lo = argument.exponent * f64(0xbd380433b83b532a, -8.532344317057107e-14);
    return decimal_sum(e_hi, e_lo, reduce(argument.t, log10_table, 0x1p23),  // 29 bits in heads
                       f64(0x3fdbc00000000000, 0.43359375), decimal_polynomial);
}

constexpr std::uint32_t high_word(double x) { return static_cast<std::uint32_t>(bits(x) >> 32); }

/// x with a low word of zeros.
constexpr double head(double x) { return f64(bits(x) & 0xffffffff00000000); }

/// log2 of 2^k m, with the significand m in [1, 2).
inline double binary_logarithm(int k, double m) {
    const std::uint32_t i = high_word(m) >> 12 & 0xff;
    const auto [log_lo, log_hi] = log2_log[i];
    const double c = log2_rcp[i];
    const double log2_e = f64(0x3ff7154700000000, 1.4426946640014648);  // its head; the polynomial has the rest
    const double mh = head(m);
    const double e = (m - mh) * c;
    const double t = mh * c - 1.0;  // exact
    const double s = t + e;
    const double z = s * s;
    const double u = t * log2_e;
    const double h = (4294967296.0 + u) - 4294967296.0;
    const double w = (k + log_hi) + h;  // exact: all three have few bits
    const double p1 = ((-0.24045091916380087 * z + -0.36067376021722414) * z + -0.7213475204444817) * z;
    const double p2 = ((0.2885405044652136 * z + 0.48089834696027206) * z + 3.7688749856434016e-07) * s;
    return (((e * log2_e + (p1 + p2)) + (u - h)) + log_lo) + w;
}

}  // namespace

extern "C" {

RareStatus log_rare(const double* x, double* r) {
    return logarithm(*x, r, scale_60, [](Argument<double> a) { return natural_logarithm(a, log_table); });
}

RareStatus log1p_rare(const double* x, double* r) {
    return logarithm(*x + 1.0, r, scale_60, [](Argument<double> a) { return natural_logarithm(a, log1p_table); });
}

RareStatus log10_rare(const double* x, double* r) { return logarithm(*x, r, scale_60, decimal_logarithm); }

RareStatus log2_rare(const double* argument, double* r) {
    const double x = *argument;
    const std::uint32_t h = high_word(x);
    if (x == 0.0) {
        *r = -1.0 / runtime(0.0);
        return RareStatus::pole;
    }
    if (h >= 0x7ff00000) {
        constexpr double infinity = __builtin_inf();
        if (x != x || x == infinity) {
            *r = x * runtime(1.0);  // infinity stays, NaN is quieted
            return RareStatus::ordinary;
        }
        *r = infinity * runtime(0.0);
        return RareStatus::domain;
    }
    const bool scaled = h < 0x00100000;
    const double t = scaled ? x * 36028797018963968.0 : x;  // by 2^55
    *r = binary_logarithm(exponent_field(t) - exponent_bias<double> - (scaled ? 55 : 0), significand(t));
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

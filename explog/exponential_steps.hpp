// Steps that the rare routines of the exponentials share, for results in double and in float. All work in double.
//
// x is n steps of log(2) / 64 and a rest w of half a step at most. With n = 64 m + j,
//     b^x = 2^m 2^(j / 64) b^w = 2^m T (1 + g),
// where T is 2^(j / 64) from a table, and g what b^w adds and T lacks of the power.
#pragma once

#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (T, Tl): 2^(j / 64) rounded, and what that lacks, relative to T.
extern const double exp_table[64][2];
}
#pragma GCC visibility pop

namespace tuvo {

/// b^infinity is infinity, b^-infinity 0; a NaN is quieted.
template <class T>
inline RareStatus exponential_of_not_finite(T x, T* r) {
    *r = x == -__builtin_huge_val() ? T(0) : x * x;
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus exponential_overflow(T* r) {
    const double largest = runtime(f64(0x7fefffffffffffff));
    *r = static_cast<T>(largest * largest);
    return RareStatus::overflow;
}

template <class T>
inline RareStatus exponential_underflow(T* r) {
    const double s = runtime(f64(0x0010000000000001));
    *r = static_cast<T>(s * s);
    return RareStatus::underflow;
}

/// The power of two with this biased exponent, of which 11 bits count.
inline double power_of_two(std::uint32_t biased) { return f64(std::uint64_t{biased & 0x7ff} << 52); }

/// An argument in steps.
struct Reduction {
    std::uint32_t m;  ///< modulo 2^26
    double T, Tl;     ///< entry j
    double w;         ///< the rest, in the unit of x
};

/// From a sum that has n in the low bits of its pattern.
inline Reduction reduction(double sum, double w) {
    const auto n = static_cast<std::uint32_t>(bits(sum));
    return {n >> 6, exp_table[n & 63][0], exp_table[n & 63][1], w};
}

/// A step, log_b(2) / 64.
struct Step {
    double inverse;
    double head, tail;  ///< in two parts; the head's product with n is exact
};

constexpr Step natural_step{f64(0x40571547652b82fe, 92.33248261689366), f64(0x3f862e42fefa0000, 0.010830424696223417),
                            f64(0x3d1cf79abc9e3b3a, 2.572804622327669e-14)};
constexpr Step decimal_step{f64(0x406a934f0979a371, 212.60339807279118), f64(0x3f734413509f0000, 0.004703593682222618),
                            f64(0x3d1e7fbcc47c4acd, 2.7088530630863833e-14)};

inline Reduction reduce(double x, const Step& step) {
    const double shifter = f64(0x4338000000000000, 6755399441055744.0);  // 1.5 2^52: the sum's ulp is 1
    const double sum = x * step.inverse + shifter;
    const double n = sum - shifter;
    return reduction(sum, (x - n * step.head) - n * step.tail);
}

inline Reduction reduce_binary(double x) {
    const double shifter = f64(0x42d8000000000000, 105553116266496.0);  // 1.5 2^46: the sum's ulp is 1/64
    const double sum = shifter + x;
    return reduction(sum, x - (sum - shifter));
}

/// g for e, 2 and 10.
inline double natural_excess(const Reduction& a) {
    const double p =
        horner(a.w, f64(0x3f56c16a1c2a3ffd, 0.0013888870459233254), f64(0x3f8111123aaf20d3, 0.008333341995140497),
               f64(0x3fa5555555558fcc, 0.04166666666677052), f64(0x3fc55555555548f8, 0.1666666666665788), 0.5);
    return p * a.w * a.w + a.w + a.Tl;
}
inline double binary_excess(const Reduction& a) {
    return horner(a.w, f64(0x3f55d870c4d8440a, 0.0013333417185814622), f64(0x3f83b2ad33f8b48b, 0.009618142269653759),
                  f64(0x3fac6b08d7076268, 0.05550410866607508), f64(0x3fcebfbdff82a23a, 0.24022650695884967),
                  f64(0x3fe62e42fefa39ef, 0.6931471805599453), a.Tl);
}
inline double decimal_excess(const Reduction& a) {
    return horner(a.w, f64(0x3fe1427c87c70a85, 0.5393660213379269), f64(0x3ff2bd77b840f0bf, 1.1712567517670747),
                  f64(0x4000470591e2bc10, 2.0346785924261965), f64(0x40053524c73cd20a, 2.6509490552364285),
                  f64(0x40026bb1bbb55515, 2.3025850929940455), a.Tl);
}

/// 2^m v, in the range of normal doubles.
inline double scaled(double v, std::uint32_t m) {
    const std::uint32_t biased = (m + 1023) & 0x7ff;
    if (biased > 2046) return v * power_of_two(biased - 1) * 2.0;  // there is no double 2^1024, but v may be below 1
    return v * power_of_two(biased);
}

/// 2^m (T + q), |q| far below T, in the range of subnormals. The sum is made at a scale of 2^60 and kept in parts, so
/// that the result is rounded once, by the last product, at the bit where a subnormal double ends.
inline double scaled_to_subnormal(const Reduction& a, double q) {
    const std::uint32_t biased = (a.m + 1083) & 0x7ff;
    const double s = power_of_two(biased);
    const double tail = q * s;
    const double z = s * a.T + tail;
    // No more than 42 bits of a result below 2^-1032 are kept, and it doesn't matter that z is rounded to 53 before.
    if (biased <= 50) return z * 0x1p-60;
    const double error = tail + (s * a.T - z);
    const double split = z * f64(0x41f8000000000000, 6442450944.0);  // 1.5 2^32
    const double head = (z + split) - split;                         // 20 bits, all of them kept
    return head * 0x1p-60 + ((z - head) + error) * 0x1p-60;
}

}  // namespace tuvo

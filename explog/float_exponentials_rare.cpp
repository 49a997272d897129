// Rare routines of the float exponentials. Kernels send them results beyond the range of normal floats or close to its
// ends, infinities and NaN; they give the exponential of every other argument too.
//
// All of them work in double: b^v = 2^m 2^(j/64) b^w, with v = (64 m + j) s + w, where s = log_b(2) / 64. A table has
// 2^(j/64) with its relative remainder, which joins the polynomial before the multiplication. What is left of the
// double arithmetic's errors is far below a float's, also where the float is subnormal: no error exceeds 0.500001 ulp.

#include "frame/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (T, Tl): 2^(j/64) = T (1 + Tl).
extern const double exp_table[64][2];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr std::uint32_t minus_infinity = 0xff800000;
constexpr int exponent_of_2_to_minus_52 = 75;

/// b^infinity, b^-infinity and NaN.
inline RareStatus at_infinity(float x, float* r) {
    *r = bits(x) == minus_infinity ? 0.0f : x * x;
    return RareStatus::ordinary;
}

inline RareStatus overflow(float* r) {
    const double huge = runtime(0x1.fffffffffffffp1023);
    *r = static_cast<float>(huge * huge);
    return RareStatus::overflow;
}

inline RareStatus underflow(float* r) {
    const double tiny = runtime(f64(0x0010000000000001));
    *r = static_cast<float>(tiny * tiny);
    return RareStatus::underflow;
}

/// A power of two with a biased exponent of 11 bits; what n has above them falls off.
inline double power_of_two(std::uint32_t biased) { return f64(std::uint64_t{biased & 0x7ff} << 52); }

/// A number n = 64 m + j in the low bits of a shifter's sum.
struct Index {
    std::uint32_t m;  ///< modulo 2^26
    double T, Tl;     ///< entry j
};

inline Index index_of(double sum) {
    const auto n = static_cast<std::uint32_t>(bits(sum));
    return {n >> 6, exp_table[n & 63][0], exp_table[n & 63][1]};
}

constexpr double integer_shifter = f64(0x4338000000000000, 6755399441055744.0);  // 1.5 2^52

struct Step {
    double inverse;  ///< 1 / s = 64 log_2(b)
    double head;     ///< s in two parts; the head's product with n is exact
    double tail;
};

struct Reduced {
    Index index;
    double w;
};

inline Reduced reduce(double v, Step step) {
    const double sum = v * step.inverse + integer_shifter;
    const double n = sum - integer_shifter;
    return {index_of(sum), (v - n * step.head) - n * step.tail};
}

/// Rounds 2^m (q + T) once, where it is subnormal. The sum is made at a scale of 2^60, in two parts with their errors,
/// and scaled back at the end.
inline float subnormal(const Index& index, double q) {
    const std::uint32_t biased = (index.m + 1083) & 0x7ff;
    const double s = power_of_two(biased);
    const double T = index.T;
    const double z = q * s + s * T;
    if (biased <= 50) return static_cast<float>(0x1p-60 * z);  // not for the powers of any float
    const double split = z * 6442450944.0;                     // 1.5 2^32
    const double head = (z + split) - split;
    return static_cast<float>(head * 0x1p-60 + ((z - head) + (q * s + (s * T - z))) * 0x1p-60);
}

/// e^x.
inline RareStatus natural_exponential(float x, float* r) {
    constexpr Step step{f64(0x40571547652b82fe, 92.33248261689366), f64(0x3f862e42fefa0000, 0.010830424696223417),
                        f64(0x3d1cf79abc9e3b3a, 2.572804622327669e-14)};
    if (exponent_field(x) == exponent_field_all_ones<float>) return at_infinity(x, r);
    const double v = x;
    if (exponent_field(x) < exponent_of_2_to_minus_52) {
        *r = static_cast<float>(1.0 + v);
        return RareStatus::ordinary;
    }
    if (!(f64(0x40562e42e0000000, 88.72283172607422) >= v)) return overflow(r);
    if (!(v >= f64(0xc059fe3680000000, -103.97207641601562))) return underflow(r);

    const auto [index, w] = reduce(v, step);
    const double p =
        horner(w, f64(0x3f56c16a1c2a3ffd, 0.0013888870459233254), f64(0x3f8111123aaf20d3, 0.008333341995140497),
               f64(0x3fa5555555558fcc, 0.04166666666677052), f64(0x3fc55555555548f8, 0.1666666666665788), 0.5);
    const double q = (p * w * w + w + index.Tl) * index.T;
    if (!(v >= f64(0xc055d589e0000000, -87.33654022216797))) {
        *r = subnormal(index, q);
        return RareStatus::underflow;
    }
    const std::uint32_t biased = (index.m + 1023) & 0x7ff;
    *r = biased > 2046 ? static_cast<float>((q + index.T) * power_of_two(biased - 1) * 2.0)
                       : static_cast<float>((q + index.T) * power_of_two(biased));
    return RareStatus::ordinary;
}

/// 2^m T (1 + g). The scale is an ordinary double also where the float is subnormal, and the conversion rounds once.
inline RareStatus scaled_power(const Index& index, double g, bool is_subnormal, float* r) {
    *r = static_cast<float>((g * index.T + index.T) * power_of_two(index.m + 1023));
    return is_subnormal ? RareStatus::underflow : RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus expf_rare(const float* x, float* r) { return natural_exponential(*x, r); }

/// The kernel finishes all but large arguments: there e^x and e^x - 1 are the same float, and e^-x - 1 is -1.
RareStatus expm1f_rare(const float* x, float* r) {
    if (__builtin_isless(*x, 0.0f)) {
        *r = -1.0f;
        return RareStatus::ordinary;
    }
    return natural_exponential(*x, r);
}

RareStatus exp2f_rare(const float* x, float* r) {
    constexpr double shifter = f64(0x42d8000000000000, 105553116266496.0);  // 1.5 2^46, of which an ulp is 1/64
    if (exponent_field(*x) == exponent_field_all_ones<float>) return at_infinity(*x, r);
    const double v = *x;
    if (!(128.0 > v)) return overflow(r);
    if (!(v > -150.0)) return underflow(r);
    const double sum = shifter + v;
    const Index index = index_of(sum);
    const double f = v - (sum - shifter);
    const double g =
        horner(f, f64(0x3f55d870c4d8440a, 0.0013333417185814622), f64(0x3f83b2ad33f8b48b, 0.009618142269653759),
               f64(0x3fac6b08d7076268, 0.05550410866607508), f64(0x3fcebfbdff82a23a, 0.24022650695884967),
               f64(0x3fe62e42fefa39ef, 0.6931471805599453), index.Tl);
    return scaled_power(index, g, v < -126.0, r);
}

RareStatus exp10f_rare(const float* x, float* r) {
    constexpr Step step{f64(0x406a934f0979a371, 212.60339807279118), f64(0x3f734413509f0000, 0.004703593682222618),
                        f64(0x3d1e7fbcc47c4acd, 2.7088530630863833e-14)};
    if (exponent_field(*x) == exponent_field_all_ones<float>) return at_infinity(*x, r);
    const double v = *x;
    if (!(f64(0x4043441360000000, 38.53184127807617) >= v)) return overflow(r);
    if (!(v >= f64(0xc04693c6a0000000, -45.15449905395508))) {
        *r = 0.0f;
        return RareStatus::underflow;
    }
    const auto [index, f] = reduce(v, step);
    const double g = horner(f, f64(0x3fe1427c87c70a85, 0.5393660213379269), f64(0x3ff2bd77b840f0bf, 1.1712567517670747),
                            f64(0x4000470591e2bc10, 2.0346785924261965), f64(0x40053524c73cd20a, 2.6509490552364285),
                            f64(0x40026bb1bbb55515, 2.3025850929940455), index.Tl);
    return scaled_power(index, g, v <= f64(0xc042f70320000000, -37.92978286743164), r);
}

}  // extern "C"

}  // namespace tuvo

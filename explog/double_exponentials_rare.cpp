// Rare routines of the double exponentials. Kernels send them NaNs, infinities, and arguments whose results are beyond
// the range of normal doubles or close to its ends; they give the exponential of every other argument too.
//
// Largest errors in ulp, of 10^7 random arguments with normal and 4 10^6 with subnormal results:
//
//                  normal                          subnormal
//     exp_rare     0.516 at 0x4086286c08510de4     0.504 at 0xc086285552d69af6
//     exp2_rare    0.525 at 0x404efedf8661f3c0     0.756 at 0xc08ff3274ea1b032, with 52 bits; 0.516 with 48
//     exp10_rare   0.527 at 0xc072017ab7e25a4b     0.512 at 0xc0733ab2e8004fb3
//     expm1_rare   the value of exp_rare for positive arguments
//
// exp_rare and exp10_rare round a subnormal result once. exp2_rare rounds 2^w T to 53 bits before.

#include "explog/exponential_steps.hpp"

namespace tuvo {
namespace {

/// Arguments at which the result changes its kind.
struct Range {
    double largest;          ///< above it the result overflows
    double smallest_normal;  ///< below it the result is subnormal
    double smallest;         ///< below it the result is rounded to zero
};

constexpr Range natural_range{f64(0x40862e42fefa39ef, 709.782712893384), f64(0xc086232bdd7abcd2, -708.3964185322641),
                              f64(0xc0874910d52d3051, -745.1332191019411)};
constexpr Range decimal_range{f64(0x40734413509f79fe, 308.2547155599167), f64(0xc0733a7146f72a41, -307.6526555685887),
                              f64(0xc07439b746e36b52, -323.60724533877976)};

/// Below it |x| < 2^-52, and e^x is 1 + x. No kernel sends such an argument, and for base 10 the sum is up to 2.6 ulp
/// off.
constexpr int tiny_field = 971;

template <class Excess>
inline RareStatus exponential(double x, double* r, const Range& range, const Step& step, Excess excess) {
    const int field = exponent_field(x);
    if (field == exponent_field_all_ones<double>) return exponential_of_not_finite(x, r);
    if (field < tiny_field) {
        *r = 1.0 + x;
        return RareStatus::ordinary;
    }
    if (!(range.largest >= x)) return exponential_overflow(r);
    if (!(x >= range.smallest)) return exponential_underflow(r);
    const Reduction a = reduce(x, step);
    const double q = excess(a) * a.T;
    if (!(x >= range.smallest_normal)) {
        *r = scaled_to_subnormal(a, q);
        return RareStatus::underflow;
    }
    *r = scaled(q + a.T, a.m);
    return RareStatus::ordinary;
}

inline RareStatus natural_exponential(double x, double* r) {
    return exponential(x, r, natural_range, natural_step, natural_excess);
}

}  // namespace

extern "C" {

RareStatus exp_rare(const double* x, double* r) { return natural_exponential(*x, r); }

RareStatus exp10_rare(const double* x, double* r) {
    return exponential(*x, r, decimal_range, decimal_step, decimal_excess);
}

/// Of a rare argument, the exponential is so small or so large that taking off 1 leaves -1, or changes nothing.
RareStatus expm1_rare(const double* x, double* r) {
    if (__builtin_isless(*x, 0.0)) {  // unlike <, it raises nothing for a NaN
        *r = -1.0;
        return RareStatus::ordinary;
    }
    return natural_exponential(*x, r);
}

RareStatus exp2_rare(const double* argument, double* r) {
    const double x = *argument;
    if (exponent_field(x) == exponent_field_all_ones<double>) return exponential_of_not_finite(x, r);
    if (!(1024.0 > x)) return exponential_overflow(r);
    if (!(x > -1075.0)) return exponential_underflow(r);
    const Reduction a = reduce_binary(x);
    const double v = binary_excess(a) * a.T + a.T;
    if (!(x >= -1022.0)) {
        *r = power_of_two(a.m + 1123) * v * f64(0x39b0000000000000, 7.888609052210118e-31);  // 2^(m + 100) and 2^-100
        return RareStatus::underflow;
    }
    *r = scaled(v, a.m);
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

// Quotients and reciprocals: div, inv.
//
// Default tiers, and all of div in double, are the processor's correctly rounded divide. The short float tiers are its
// 12-bit reciprocal as it comes, with no refinement. inv_native, in double, corrects the same estimate once, to some 35
// bits, and has no rare lanes: where the exponent of the reciprocal leaves the range, it wraps.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> divide(Value<T> a, Value<T> b) {
    return a / b;
}

F32 reciprocal(F32 x) { return 1.0f / x; }

/// Taking one off the exponent field sends zeros and subnormals to the top of the range, above the large magnitudes:
/// one compare finds both.
M32 outside_estimate(F32 divisor, std::uint32_t threshold) {
    return ((bits(divisor) - i32(0x00800000)) & i32(0x7fffffff)) > i32(threshold);
}

F32 divide_by_estimate(F32 a, F32 b) {
    rare_if(outside_estimate(b, 0x7dffffff));  // from 2^126 on the reciprocal is subnormal
    return a * reciprocal_approximation(b);
}

/// The estimate is the result, and may be high: so the limit lies 0x1800 units lower than that of quotients.
F32 reciprocal_by_estimate(F32 x) {
    rare_if(outside_estimate(x, 0x7dffe800));
    return reciprocal_approximation(x);
}

/// Whether b has no bits but those of the mask. The mask comes from the block, so that tiers differ by data alone.
M64 is_inside(F64 b, std::uint64_t mask) {
    const F64 rest = and_not(f64(mask), b);
    const InBlock pool(InBlock::pool);
    return rest == 0.0;
}

constexpr std::uint64_t all_but_exponent = 0x800fffffffffffff;
constexpr std::uint64_t native_mask = 0x3f8000003f800000;
constexpr std::uint64_t smallest_normal = 0x0010000000000000;

/// Zeros and subnormals are the divisors with nothing in the exponent field.
F64 divide_unless_subnormal(F64 a, F64 b) {
    rare_if(is_inside(b, all_but_exponent));
    return a / b;
}

/// The mask is the float 1 twice, which finds zeros and a few normal divisors and lets subnormals pass. Results are the
/// same, since the rare routine divides as the processor does.
F64 divide_native(F64 a, F64 b) {
    rare_if(is_inside(b, native_mask));
    return a / b;
}

F64 reciprocal_unless_subnormal(F64 x) {
    const F64 one = f64(0x3ff0000000000000);
    rare_if(and_not(f64(all_but_exponent), x) == 0.0);
    return one / x;
}

F64 reciprocal_native(F64 x) {
    const I32 high = high_word(x);
    const F32 f = as_float(((high << 3) & i32(0x007fffff)) | i32(0x3f800000)).as("top 20 fraction bits, in [1, 2)");
    const F32 r = reciprocal_approximation(f);
    // The estimate in the layout of a double, with the exponent and sign of x taken off.
    const I32 y_high = ((bits(r) >> 3) + i32(0x77f00000)) - (high & i32(0xfff00000));
    const F64 one = 1.0;
    const InBlock pool(InBlock::pool);
    const F64 y = as_float(join_words(y_high, i32(0))).as("y0");
    const F64 e = (one - x * y).as("e");
    return y + y * (e + e * e);
}

const Describe families[] = {
    {{"divf"}, describe(divide<Type::f32>), {}},
    {{"divf_native", "divf_half", "divf_rm"},
     describe(divide_by_estimate),
     {.ulp = 6145,
      .worst = {0x6325f7d4, 0x6425f7df},
      .stand_in = StandIn::alternating,
      .thresholds = {0x00800000, 0x7e800000},
      .domain = {0, 0x7fffffff, 0, 0x7e7fe800},
      .remark =
          "From 2^126 (1 - 1.5 * 2^-12) to 2^126 the architecture lets the reciprocal of a divisor be zero, and so "
          "the quotient"}},
    {{"invf"}, describe(reciprocal), {}},
    {{"invf_native", "invf_half", "invf_rm"},
     describe(reciprocal_by_estimate),
     {.ulp = 6144, .worst = {0x3c800400}, .stand_in = StandIn::low, .thresholds = {0x00800000, 0x7e7fe800}}},
    {{"div"}, describe(divide_unless_subnormal), {.thresholds = {smallest_normal}}},
    {{"div_native"}, describe(divide_native), {.thresholds = {smallest_normal, native_mask}}},
    {{"inv"}, describe(reciprocal_unless_subnormal), {.thresholds = {smallest_normal}}},
    // From 2^1022 on the exponent of the reciprocal wraps, and with a low estimate a little earlier.
    {{"inv_native"},
     describe(reciprocal_native),
     {.ulp = 445900,
      .worst = {0x40e00000fffeefdf},
      .stand_in = StandIn::high,
      .thresholds = {smallest_normal, 0x7fd0000000000000},
      .domain = {smallest_normal, 0x7fcffd0000000000}}},
};

}  // namespace
}  // namespace tuvo

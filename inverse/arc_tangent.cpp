// Arc tangent: atan.
//
// Above 1 the argument gives way to its negative reciprocal, atan(x) = pi/2 + atan(-1/x), which vanishes where x is
// infinite: so the default tiers, which divide, finish every argument. The native tiers refine an estimate of the
// reciprocal, and there infinity times zero is a NaN. The double default divides in any case, and uses that to move the
// argument next to the nearest quarter, where a short polynomial does.
#include "frame/description/families.hpp"
#include "inverse/arc_constants.hpp"
#include "inverse/arc_tables.hpp"
#include "inverse/arc_tangent_steps.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t quarter_shifter = 0x4318000000000000;  // 1688849860263936, 1.5 x 2^50: the last place is 1/4
constexpr std::uint64_t big_limit = 0x401f800000000000;        // 7.875, the end of the table
constexpr std::uint64_t two_128 = 0x47f0000000000000;          // 3.402823669209385e+38, 2^128

constexpr std::uint64_t quarter_polynomial[] = {
    0x3fb2e9b9f5c4fe97,  // 0.07387888193351909
    0xbfb74257c46790cc,  // -0.09085606141121899
    0x3fbc71bfeff916a0,  // 0.111110683524283
    0xbfc249248eef04da,  // -0.14285714129622457
    0x3fc999999998741e,  // 0.19999999999791468
    0xbfd555555555554d,  // -0.33333333333333287
};

/// What the polynomial is taken of, and what is added to it.
template <Type T>
struct Reduced {
    Value<T> s;  ///< x, or -1/x
    Value<T> K;  ///< a zero, or pi/2, with the sign of x
};
template <Type T>
Reduced<T> reduce(Value<T> x, Value<T> reciprocal) {
    const auto low = abs(x) <= Value<T>(1);
    return {select(low, x, reciprocal ^ minus_zero<T>()).as("s"), unless(low, half_pi<T>()) ^ sign_bit(x)};
}

F32 arc_tangent(F32 x) {
    const auto [s, K] = reduce(x, 1.0f / x);
    const F32 t = s * s;
    const auto [odd, even] = arc_tangent_chains(t * t);
    const F32 P = (t * odd + even) * t + 1.0f;
    return s * P + K;
}

F32 arc_tangent_native(F32 x) {
    rare_if(abs(x) == f32(0x7f800000));
    const auto [s, K] = reduce(x, refined_reciprocal(x));
    return s * short_arc_tangent(s * s) + K;
}

F64 arc_tangent_native(F64 x) {
    rare_if(abs(x) == f64(0x7ff0000000000000));
    // Beyond the range of float the estimate is zero, and then so is r.
    const F64 y0 = to_f64(reciprocal_approximation(to_f32(x))).as("y0");
    const F64 e = 1.0 - x * y0;
    const F64 r = y0 + y0 * (e + e * e);
    const auto [s, K] = reduce(x, r);
    return s * short_arc_tangent(s * s) + K;
}

F64 arc_tangent_by_quarters(F64 x) {
    const F64 a = abs(x);
    const F64 v = a + f64(quarter_shifter);
    const F64 c = (v - f64(quarter_shifter)).as("c");
    const M64 big = a >= f64(big_limit);
    // tan(atan a - atan c). The clamp keeps the quotient of an infinite a finite.
    const F64 numerator = select(big, F64(-1.0), a - c);
    const F64 denominator = select(big, min(a, f64(two_128)), a * c + 1.0);
    const F64 u = (numerator / denominator).as("u");
    const int quarters = table(atan_quarter_table(), "atan_quarter_table");
    const I32 index = low_word(v) & i32(31);
    const F64 T = select(big, half_pi<Type::f64>(), gather<Type::f64>(quarters, index << 3)).as("T");
    const auto pair = [](F64 u2, int k) { return u2 * f64(quarter_polynomial[k]) + f64(quarter_polynomial[k + 1]); };
    const F64 u2 = u * u, u4 = u2 * u2;
    const F64 Q = (pair(u2, 0) * u4 + pair(u2, 2)) * u4 + pair(u2, 4);
    return ((u + Q * (u * u2)) + T) ^ sign_bit(x);
}

constexpr std::uint64_t one = 0x3ff0000000000000;

const Describe families[] = {
    {{"atanf"}, describe(arc_tangent), {.ulp = 2.812, .worst = {0x3f80c70b}, .thresholds = {0x3f800000}}},
    {{"atanf_native"},
     describe<F32, F32>(arc_tangent_native),
     {.ulp = 3772, .worst = {0x00fffffc}, .stand_in = StandIn::exact, .thresholds = {0x3f800000, 0x7e800000}}},
    {{"atan"},
     describe(arc_tangent_by_quarters),
     {.ulp = 2.610, .worst = {0x3fc0021a0f981750}, .thresholds = {0x3fc0000000000000, big_limit}}},
    {{"atan_native"},
     describe<F64, F64>(arc_tangent_native),
     {.ulp = 21650000,
      .worst = {0xbecffffff3a02fdd},
      .stand_in = StandIn::exact,
      .thresholds = {one, 0x47d0000000000000, 0x47efffffe0000000}}},
};

}  // namespace
}  // namespace tuvo

// Arc sine and arc cosine, in radians and in half turns: asin, acos, asinpi, acospi.
//
// Below 1/2 a polynomial in z = x^2 gives the arc sine. From 1/2 on, asin(a) = pi/2 - 2 asin(sqrt(w)) with w = (1 -
// a)/2 goes by the same polynomial in z = w; the factor in front of it is then the head, 2 sqrt(w), instead of a. An
// arc cosine is the same with other signs and constants around it.
//
// Heads in radians start from the processor's 12-bit reciprocal square root, also in double, where that is much quicker
// than a true root. All of [-1, 1] is finished here, its ends by a guard that keeps the estimate of an infinite root
// out of the head; those in half turns send the ends to the rare routine instead, so that they come out exact.
#include "frame/description/families.hpp"
#include "inverse/arc_constants.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t asin_float[] = {
    0x3d2edc07,  // 0.042690303
    0x3cc32a6b,  // 0.023823937
    0x3d3a9ab4,  // 0.045557693
    0x3d997c12,  // 0.07494368
    0x3e2aaaff,  // 0.16666792
};
constexpr std::uint32_t asinpi_float[] = {
    0x3c5ea355,  // 0.013588746
    0x3bf87e20,  // 0.0075833946
    0x3c6d978c,  // 0.014501464
    0x3cc36c37,  // 0.023855312
};
constexpr std::uint64_t asin_double[] = {
    0x3fa07520c70eb909,  // 0.03214361600781685
    0xbf90fb17f7dbb0ed,  // -0.016582846167623556
    0x3f943f44bfbc3bae,  // 0.01977260036715805
    0x3f7a583395d45ed5,  // 0.006431771759956202
    0x3f88f8dc2afccad6,  // 0.012193412839768863
    0x3f8c6dbbcb88bd57,  // 0.013881175183171264
    0x3f91c6dcf538ad2e,  // 0.01736016508782006
    0x3f96e89cebdefadd,  // 0.022371723076271322
    0x3f9f1c72e13ad8be,  // 0.030381960865917483
    0x3fa6db6db3b445f8,  // 0.04464285677580543
    0x3fb333333337e0de,  // 0.07500000000425497
    0x3fc555555555529c,  // 0.1666666666666473
};
constexpr std::uint64_t asinpi_double[] = {
    0x3f84f4523bc020d8,  // 0.010231630752983653
    0xbf759ee439eee799,  // -0.0052784838762195635
    0x3f79c78ae09a5457,  // 0.006293814172427656
    0x3f60c57df579794a,  // 0.0020472965368717776
    0x3f6fcba466ea069b,  // 0.0038812838532187983
    0x3f7219262adc70a8,  // 0.004418515292652504
    0x3f76a256c108aaed,  // 0.00552591217323582
    0x3f7d2b0ea1978f74,  // 0.007121140626143208
    0x3f83ce53573ad4f4,  // 0.009670878505270576
    0x3f8d1a452b1c8f4e,  // 0.014210262659225894
    0x3f98723a1d5e7f21,  // 0.0238732414651387
    0x3fab2995e7b7b28b,  // 0.05305164769729228
};

// Heads: 2 sqrt(w), or minus that.

enum class Side { minus, plus };

/// 2 sqrt(w) = u - correction.
template <Type T>
Value<T> on(Side side, Value<T> u, Value<T> correction) {
    return side == Side::minus ? correction - u : u - correction;
}

F32 estimate(F32 w) { return reciprocal_sqrt_approximation(w); }
F64 estimate(F64 w) { return to_f64(reciprocal_sqrt_approximation(to_f32(w))); }

/// Zero where w is, since there the estimate is infinite. No other w is as small as the limit.
template <Type T>
Value<T> guarded_estimate(Value<T> w) {
    const auto vanishes = w < constant<T>(0x2f800000, 0x3000000000000000);  // 2^-32, 2^-255
    return unless(vanishes, estimate(w)).as("y0");
}

// With u = 2 w y0 and e = 2 w y0^2 - 2, 2 sqrt(w) = u / sqrt(1 + e / 2) = u - (1/4 - 3/32 e + ...) e u.

F32 head(F32 w, Side side) {
    const F32 y0 = guarded_estimate(w);
    const F32 w2 = w + w;
    const F32 t = y0 * y0, u = y0 * w2;
    const F32 e = w2 * t - 2.0f;
    const F32 c = e * f32(0xbdc00004) + f32(0x3e800001);  // -0.09375003, 0.25000003
    return on(side, u, c * (e * u));
}

F64 head(F64 w, Side side) {
    constexpr std::uint64_t series[] = {
        0xbf918000993b24c3,  // -0.017089852669219818
        0x3fa400006f70d42d,  // 0.039062512973409326
        0xbfb7fffffffffe97,  // -0.09374999999999499
        0x3fcfffffffffff9d,  // 0.24999999999999725
    };
    const F64 y0 = guarded_estimate(w);
    const F64 w2 = w + w;
    const F64 t = y0 * y0, u = y0 * w2;
    const F64 e = w2 * t - 2.0;
    return on(side, u, horner(e, series) * (e * u));
}

F32 short_head(F32 w, Side side) {
    const F32 y0 = guarded_estimate(w);
    const F32 w2 = w + w, u = w2 * y0;
    const F32 e = y0 * u - 2.0f;
    return on(side, u, (u * e) * f32(0x3e800001));  // 0.25000003
}

F64 short_head_from(F64 y0, F64 w, Side side) {
    const F64 w2 = w + w, u = w2 * y0;
    const F64 e = y0 * u - 2.0;
    const F64 c = e * f64(0xbfb7fffffffffe97) + f64(0x3fcfffffffffff9d);  // -0.09374999999999499, 0.24999999999999725
    return on(side, u, c * (u * e));
}
F64 short_head(F64 w, Side side) { return short_head_from(guarded_estimate(w), w, side); }
F64 short_head_unless_zero(F64 w, Side side) { return short_head_from(estimate(w), w, side); }

template <Type T>
Value<T> true_head(Value<T> w, Side side) {
    const auto s = sqrt(w);
    return side == Side::minus ? (s + s) | minus_zero<T>() : s + s;
}

// Polynomials in z.

/// asin(b) / b - 1.
F32 asin_series(F32 z) {
    const F32 p1 = z * f32(asin_float[0]) + f32(asin_float[1]);
    const F32 p2 = z * f32(asin_float[2]) + f32(asin_float[3]);
    const F32 p = p1 * (z * z) + p2;
    return z * (z * p + f32(asin_float[4]));
}

/// (asin(b) / b - 1) / pi.
F32 asin_series_in_turns(F32 z) {
    const F32 p =
        (z * f32(asinpi_float[0]) + f32(asinpi_float[1])) * (z * z) + (z * f32(asinpi_float[2]) + f32(asinpi_float[3]));
    return z * (z * p + f32(0x3d594d1b));  // 0.05305205
}

F64 pair_of(F64 z, const std::uint64_t* coefficients) { return z * f64(coefficients[0]) + f64(coefficients[1]); }

/// Pairs of neighbouring coefficients, joined by powers of z.
F64 series_by_pairs(F64 z, const std::uint64_t (&c)[12]) {
    const F64 z2 = z * z, z4 = z2 * z2;
    const F64 P1 = pair_of(z, c) * z2 + pair_of(z, c + 2);
    const F64 P2 = z2 * pair_of(z, c + 4) + pair_of(z, c + 6);
    const F64 P3 = P1 * z4 + P2;
    const F64 P4 = z2 * P3 + pair_of(z, c + 8);
    const F64 P5 = z2 * P4 + pair_of(z, c + 10);
    return z * P5;
}
F64 asin_series(F64 z) { return series_by_pairs(z, asin_double); }
F64 asin_series_in_turns(F64 z) { return series_by_pairs(z, asinpi_double); }

F64 short_series_by_pairs(F64 z, const std::uint64_t (&c)[6]) {
    const F64 z2 = z * z;
    return z * (((pair_of(z, c) * z2 + pair_of(z, c + 2)) * z2) + pair_of(z, c + 4));
}

F32 short_asin_series(F32 z) {
    constexpr std::uint32_t coefficients[] = {
        0x3dc4c6ae,  // 0.09608208
        0x3e2876b2,  // 0.16451529
        0x380561a3,  // 3.1800602e-05
    };
    return horner(z, coefficients);
}
F64 short_asin_series(F64 z) {
    constexpr std::uint64_t coefficients[] = {
        0x3fa36c5af645a11e,  // 0.03793606048822283
        0x3f8ce147ea9e9282,  // 0.014101564261929104
        0x3fa056b4151fa155,  // 0.031911494806822795
        0x3fa6c8ed2a4cce54,  // 0.04450169698102671
        0x3fb33399ebf85b6a,  // 0.07500612269391885
        0x3fc5555480c83a45,  // 0.16666656768980395
    };
    return short_series_by_pairs(z, coefficients);
}

/// asin(b) / (pi b).
F32 short_asin_in_turns(F32 z) {
    constexpr std::uint32_t coefficients[] = {
        0x3cfa8b09,  // 0.030583875
        0x3d567e9d,  // 0.05236684
        0x3ea2fad7,  // 0.31832
    };
    return horner(z, coefficients);
}
F64 short_asin_in_turns(F64 z) {
    constexpr std::uint64_t coefficients[] = {
        0x3f88baffda4549f0,  // 0.012075423096267607
        0x3f7262b57524fb3b,  // 0.004488667315228063
        0x3f84cd955bdded9f,  // 0.010157744279914392
        0x3f8d02b66c2ad236,  // 0.014165330101016154
        0x3f9872bce76efa44,  // 0.02387519037778875
        0x3fab2994d916cb05,  // 0.05305161619198454
    };
    return short_series_by_pairs(z, coefficients) + inv_pi<Type::f64>();
}

// Results, from z, the factor b, and K that is added to the arc.

template <Type T, Value<T> (*series)(Value<T>)>
Value<T> in_radians(Value<T> z, Value<T> b, Value<T> K) {
    return (b + series(z) * b) + K;
}
template <Type T>
Value<T> sine_in_turns(Value<T> z, Value<T> b, Value<T> K) {
    return b * asin_series_in_turns(z) + (b * inv_pi<T>() + K);
}
template <Type T>
Value<T> cosine_in_turns(Value<T> z, Value<T> b, Value<T> K) {
    return (asin_series_in_turns(z) + inv_pi<T>()) * b + K;
}
template <Type T>
Value<T> short_in_turns(Value<T> z, Value<T> b, Value<T> K) {
    return short_asin_in_turns(z) * b + K;
}

// The scheme.

template <Type T>
struct Method {
    Value<T> (*head)(Value<T> w, Side side);
    Value<T> (*result)(Value<T> z, Value<T> b, Value<T> K);
};
template <Type T>
Value<T> arc_sine(Value<T> x, Value<T> quarter_turn, const Method<T>& method) {
    const auto a = abs(x);
    const Value<T> half = 0.5f;
    const auto w = (half - a * half).as("w");
    const auto z = min(a * a, w).as("z");
    const auto upper = !(a < half);
    const auto b = select(upper, method.head(w, Side::minus), a);
    return method.result(z, b, where(upper, quarter_turn)) ^ sign_bit(x);
}

template <Type T>
Value<T> arc_cosine(Value<T> x, Value<T> n, Value<T> quarter_turn, Value<T> half_turn, const Method<T>& method) {
    const Value<T> half = 0.5f;
    const auto w = (n * half + half).as("w");
    const auto z = min(n * n, w).as("z");
    const auto upper = !(z < w);
    const auto b = select(upper, method.head(w, Side::plus), n);
    // In the upper part z = w is not negative, so that only a negative x is below it.
    const auto K = select(upper, where(x < z, half_turn), quarter_turn);
    return method.result(z, b ^ sign_bit(x), K);
}

template <Type T>
Value<T> minus_abs(Value<T> x) {
    return x | minus_zero<T>();
}

// A NaN comes through as one, but in the double arc cosine, whose test is such that it goes to the rare routine.

template <Type T>
Value<T> asin(Value<T> x, const Method<T>& method) {
    rare_if(abs(x) > Value<T>(1));
    return arc_sine(x, half_pi<T>(), method);
}
template <Type T>
Value<T> acos(Value<T> x, const Method<T>& method) {
    const auto n = minus_abs(x);
    rare_if(T == Type::f32 ? n < Value<T>(-1) : !(n >= Value<T>(-1)));
    return arc_cosine(x, n, half_pi<T>(), pi<T>(), method);
}
template <Type T>
Value<T> asinpi(Value<T> x, const Method<T>& method) {
    rare_if(abs(x) >= Value<T>(1));
    return arc_sine(x, Value<T>(0.5f), method);
}
template <Type T>
Value<T> acospi(Value<T> x, const Method<T>& method) {
    const auto n = minus_abs(x);
    rare_if(n <= Value<T>(-1));
    return arc_cosine(x, n, Value<T>(0.5f), Value<T>(1), method);
}

constexpr auto f = Type::f32, d = Type::f64;
const Method<f> float_radians{head, in_radians<f, asin_series>},
    float_short{short_head, in_radians<f, short_asin_series>};
const Method<d> double_radians{head, in_radians<d, asin_series>},
    double_short{short_head, in_radians<d, short_asin_series>};

template <Type T>
Description with(Value<T> (*function)(Value<T>, const Method<T>&), Method<T> method) {
    const auto lane = [=](Value<T> x) { return function(x, method); };
    return describe(std::function<Value<T>(Value<T>)>(lane));
}

const std::vector<std::uint64_t> float_limits{0x3f000000, 0x3f800000};
const std::vector<std::uint64_t> double_limits{0x3fe0000000000000, 0x3ff0000000000000};

const Describe families[] = {
    {{"asinf"},
     with(asin<f>, float_radians),
     {.ulp = 3.679, .worst = {0x3f0004e3}, .stand_in = StandIn::scattered, .thresholds = float_limits}},
    {{"asinf_native"},
     with(asin<f>, float_short),
     {.ulp = 538.6, .worst = {0x3f0002d2}, .stand_in = StandIn::low, .thresholds = float_limits}},
    // Estimates between the ends of what is allowed are the worst here, where roundings add up.
    {{"acosf"},
     with(acos<f>, float_radians),
     {.ulp = 2.568, .worst = {0x3f0b1c03}, .stand_in = StandIn::scattered, .thresholds = float_limits}},
    {{"acosf_native"},
     with(acos<f>, float_short),
     {.ulp = 532.5, .worst = {0x3f7ffe01}, .stand_in = StandIn::exact, .thresholds = float_limits}},
    {{"asinpif"},
     with(asinpi<f>, {true_head, sine_in_turns}),
     {.ulp = 3.208, .worst = {0x3f3338ae}, .thresholds = float_limits}},
    {{"asinpif_native"},
     with(asinpi<f>, {true_head, short_in_turns}),
     {.ulp = 681.1, .worst = {0x3f000007}, .thresholds = float_limits}},
    {{"acospif"},
     with(acospi<f>, {true_head, cosine_in_turns}),
     {.ulp = 2.458, .worst = {0x3f6d2b43}, .thresholds = float_limits}},
    {{"acospif_native"},
     with(acospi<f>, {true_head, short_in_turns}),
     {.ulp = 531.6, .worst = {0x3f7ffb18}, .thresholds = float_limits}},
    {{"asin"},
     with(asin<d>, double_radians),
     {.ulp = 3.398, .worst = {0xbfe002816ddd7c32}, .stand_in = StandIn::alternating, .thresholds = double_limits}},
    {{"asin_native"},
     with(asin<d>, double_short),
     {.ulp = 5856000, .worst = {0xbfe0000007fe87f7}, .stand_in = StandIn::alternating, .thresholds = double_limits}},
    {{"acos"},
     with(acos<d>, double_radians),
     {.ulp = 2.155, .worst = {0x3fe358b16a9097e0}, .stand_in = StandIn::exact, .thresholds = double_limits}},
    {{"acos_native"},
     with(acos<d>, double_short),
     {.ulp = 5663000, .worst = {0x3fef0154f67fff00}, .stand_in = StandIn::low, .thresholds = double_limits}},
    {{"asinpi"},
     with(asinpi<d>, {true_head, sine_in_turns}),
     {.ulp = 2.980, .worst = {0xbfe647fc243f5209}, .thresholds = double_limits}},
    {{"asinpi_native"},
     with(asinpi<d>, {short_head_unless_zero, short_in_turns}),
     {.ulp = 7455000, .worst = {0x3fe0000007fd77ca}, .stand_in = StandIn::low, .thresholds = double_limits}},
    {{"acospi"},
     with(acospi<d>, {true_head, cosine_in_turns}),
     {.ulp = 2.251, .worst = {0x3fe8c2fa222bfe3d}, .thresholds = double_limits}},
    {{"acospi_native"},
     with(acospi<d>, {short_head_unless_zero, short_in_turns}),
     {.ulp = 5590000, .worst = {0x3fef6297d77ff2d9}, .stand_in = StandIn::low, .thresholds = double_limits}},
};

}  // namespace
}  // namespace tuvo

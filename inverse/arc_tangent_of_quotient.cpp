// Arc tangent of a quotient: atan2(y, x), atan2pi(y, x), and atanpi(x), which is atan2pi(|x|, 1) with the sign of x.
//
// With the smaller magnitude above the larger, the quotient q is at most 1; where |y| is the larger one, q is negative
// and a quarter turn is added. The angle then takes the sign of x, half a turn is added if that is minus, and the whole
// takes the sign of y.
//
// Lanes with a zero, a very large or a very small magnitude can have quotients that underflow, and reciprocals do so
// more easily; the rare routine takes them, and NaNs. Of atan2, those with a zero are finished on the way there.
#include "frame/description/families.hpp"
#include "inverse/arc_constants.hpp"
#include "inverse/arc_tangent_steps.hpp"

namespace tuvo {
namespace {

// Magnitudes outside these limits are rare, the upper limit with them.
constexpr std::uint32_t float_least = 0x01000000, float_limit = 0x7d000000;                    // 2^-125, 2^123
constexpr std::uint64_t double_least = 0x0030000000000000, double_limit = 0x7e00000000000000;  // 2^-1020, 2^993

template <Type T>
Value<T> least() {
    return constant<T>(float_least, double_least);
}
template <Type T>
Value<T> limit() {
    return constant<T>(float_limit, double_limit);
}
// Polynomials: atan(q) / q, or that over pi, in t = q^2.

F32 arc_tangent(F32 t) {
    const F32 t2 = t * t;
    const auto [odd, even] = arc_tangent_chains(t2);
    return t * even + (t2 * odd + 1.0f);
}

constexpr std::uint32_t turns_float[] = {
    0x3a62dbf5,  // 0.0008653992
    0xbba26eda,  // -0.004957062
    0x3c5ab246,  // 0.013348168
    0xbcc21ebe,  // -0.0236963
    0x3d0a6574,  // 0.03378816
    0xbd391b64,  // -0.045192137
    0x3d8253ba,  // 0.06363626
    0xbdd94c33,  // -0.10610237
    0x3ea2f983,  // 0.31830987
};
constexpr std::uint32_t turns_float_short_odd[] = {
    0xbc62fed0,  // -0.013854697
    0xbdd4324d,  // -0.103611566
};
constexpr std::uint32_t turns_float_short_even[] = {
    0x3d4987cd,  // 0.049201775
    0x3ea2f023,  // 0.31823835
};
constexpr std::uint64_t turns_double[] = {
    0xbec435d571d7fb69,  // -2.4092540928938886e-06
    0x3efee969b7db1149,  // 2.9479760533816517e-05
    0xbf26798a20dc9977,  // -0.00017146884095460186
    0x3f44c3c0c907686f,  // 0.0006336871465990721
    0xbf5b8ddb0f1cd2c5,  // -0.0016817702530264472
    0x3f6c3a72776ac84d,  // 0.0034458385155966887
    0xbf778ac56b6fecf2,  // -0.005747576876270021
    0x3f80bad5cf20a9ed,  // 0.008168859847576615
    0xbf85278cbef8b02e,  // -0.010329341485963619
    0x3f88ca8ee19b9723,  // 0.012105098972323319
    0xbf8be48c140df0c8,  // -0.013619512903226286
    0x3f8eea5306d0465f,  // 0.015095375676568766
    0xbf9124120821ba9d,  // -0.016739160295794354
    0x3f932bc4f824f7c6,  // 0.018721654553921295
    0xbf95bac83a460e3e,  // -0.02122032981561816
    0x3f9912af904b4dd1,  // 0.024485343153015485
    0xbf9da1baa68634ec,  // -0.02893726006873447
    0x3fa21bb94433ed0a,  // 0.03536776502184054
    0xbfa7483758df91cf,  // -0.04547284088019731
    0x3fb04c26be3af8d5,  // 0.06366197723670848
    0xbfbb2995e7b7b5ed,  // -0.10610329539459658
    0x3fd45f306dc9c883,  // 0.3183098861837907
};
constexpr std::uint64_t turns_double_short_odd[] = {
    0xbf42329940f01541,  // -0.0005553482350257115
    0xbf84094eca14a044,  // -0.009783378164300534
    0xbf9b4b49880fa760,  // -0.026654385499490174
    0xbfa73e3559d3a6f6,  // -0.045396487441235964
    0xbfbb299337e33714,  // -0.10610313524668086
};
constexpr std::uint64_t turns_double_short_even[] = {
    0x3f6bde7db93e8b55,  // 0.003401990465094521
    0x3f92bcdb8589ee51,  // 0.018298559213219715
    0x3fa1d4b346c946cd,  // 0.03482589949693491
    0x3fb04bc92a8107f5,  // 0.06365639960952747
    0x3fd45f306cf77b05,  // 0.3183098854187139
};
// The four interleaved parts of a polynomial of degree 19, each in t^4.
constexpr std::uint64_t third_part[] = {
    0xbef4fdb537abc7a3,  // -2.001862183482302e-05
    0xbf82b2ec618e4bad,  // -0.009130331732910191
    0xbfa4efa2e563c1bc,  // -0.040890779973668384
    0xbfb11084009435e0,  // -0.06665825857290697
    0xbfc2492491ee55c7,  // -0.14285714269196445
};
constexpr std::uint64_t first_part[] = {
    0xbf52e67c93954c23,  // -0.0011535851065971401
    0xbf9a5e83b081f69c,  // -0.025751168869183702
    0xbfaad261eaa09954,  // -0.052386340991051356
    0xbfb745d009bada94,  // -0.09090900647684413
    0xbfd55555555553c5,  // -0.3333333333333111
};
constexpr std::uint64_t second_part[] = {
    0x3f2ced0a36665209,  // 0.00022068738617221664
    0x3f914f4c661116a5,  // 0.016904062013301985
    0x3fa7ec0fbc50683b,  // 0.04672288106685626
    0x3fb3b12a49295651,  // 0.076922076093376
    0x3fc999999997ee34,  // 0.19999999999696316
};
constexpr std::uint64_t zeroth_part[] = {
    0x3f6f5a1dae82afb3,  // 0.0038271503181785626
    0x3fa169980cb6ad4f,  // 0.03400874285883992
    0x3fae1749bd612dcf,  // 0.05877142369044074
    0x3fbc71c707f7d5b5,  // 0.11111110634359174
    0x3ff0000000000000,  // 1.0
};

F64 arc_tangent(F64 t) {
    const F64 t2 = t * t, t4 = t2 * t2;
    const F64 third = horner(t4, third_part) * t, first = horner(t4, first_part) * t;
    return t2 * (third + horner(t4, second_part)) + (first + horner(t4, zeroth_part));
}

F32 arc_tangent_in_turns(F32 t) { return horner(t, turns_float); }
F64 arc_tangent_in_turns(F64 t) { return horner(t, turns_double); }
F32 short_arc_tangent_in_turns(F32 t) {
    const F32 t2 = t * t;
    return t * horner(t2, turns_float_short_odd) + horner(t2, turns_float_short_even);
}
F64 short_arc_tangent_in_turns(F64 t) {
    const F64 t2 = t * t;
    return t * horner(t2, turns_double_short_odd) + horner(t2, turns_double_short_even);
}

// Quotients.

template <Type T>
Value<T> divide(Value<T> numerator, Value<T> denominator) {
    return numerator / denominator;
}

F32 divide_short(F32 numerator, F32 denominator) { return numerator * refined_reciprocal(denominator); }

/// 1 / x to 12 bits: the estimate of the top 20 fraction bits, in the layout of a double, with the exponent of x taken
/// off.
F64 reciprocal_estimate(F64 x) {
    const I32 high = high_word(x);
    const F32 f = as_float(((high << 3) & i32(0x007fffff)) | i32(0x3f800000)).as("top fraction bits, in [1, 2)");
    const I32 y_high = ((bits(reciprocal_approximation(f)) >> 3) + i32(0x77f00000)) - (high & i32(0xfff00000));
    const InBlock pool(InBlock::pool);
    return as_float(join_words(y_high, i32(0))).as("y0");
}

/// 1 / (1 + e) as a series, where e is exact but for its last sum: y0 has few bits, and so has the head of x.
F64 divide_by_series(F64 numerator, F64 x) {
    const F64 head = x & f64(0xffffffff00000000);
    const F64 tail = x - head;
    const F64 y0 = reciprocal_estimate(x);
    const F64 e = ((head * y0 - 1.0) + tail * y0).as("e");
    const F64 g = e * (e * ((e - 1.0) * e + 1.0) - 1.0);
    return numerator * (y0 + y0 * g);
}

F64 divide_short(F64 numerator, F64 x) {
    const F64 y0 = reciprocal_estimate(x);
    const F64 e = (x * y0 - 1.0).as("e");
    return numerator * (y0 + y0 * ((e - 1.0) * e));
}

// The scheme.

template <Type T>
struct Method {
    Value<T> (*quotient)(Value<T> numerator, Value<T> denominator);
    Value<T> (*polynomial)(Value<T> t);
};

/// The angle between the x axis and (|x|, |y|).
template <Type T>
struct FirstQuadrant {
    Value<T> denominator;  ///< the larger magnitude, or |y| if there is a NaN
    Value<T> angle;
};
/// `flat` tells where |y| is the smaller one.
template <Type T>
FirstQuadrant<T> first_quadrant(Value<T> ay, Value<T> ax, Value<T> minus_ax, Value<mask_of(T)> flat, Value<T> quarter,
                                const Method<T>& method) {
    const auto denominator = select(flat, ax, ay);
    const auto q = method.quotient(select(flat, ay, minus_ax), denominator).as("q");
    return {denominator, q * method.polynomial(q * q) + unless(flat, quarter)};
}

template <Type T>
Value<T> with_signs(Value<T> angle, Value<T> half, Value<T> y, Value<T> x) {
    return ((angle | sign_bit(x)) + half) | sign_bit(y);
}

/// The smaller magnitude by the processor's minimum, which is its second operand if there is a NaN: so a NaN stands
/// either there or in the denominator.
template <Type T>
Value<mask_of(T)> is_special(Value<T> ay, Value<T> ax, Value<T> denominator) {
    return (!(min(ay, ax) >= least<T>())) | (!(denominator < limit<T>()));
}

template <Type T>
Value<T> angle_of(Value<T> y, Value<T> x, const Method<T>& method) {
    const auto ay = abs(y), ax = abs(x);
    const auto upper = first_quadrant(ay, ax, x | minus_zero<T>(), ay < ax, half_pi<T>(), method);
    rare_if(is_special(ay, ax, upper.denominator));
    const auto result = with_signs(upper.angle, where(x <= Value<T>(0), pi<T>()), y, x);
    return repair(result, [&] {
        const Value<T> zero = 0;
        const auto quarter = where(y != zero, half_pi<T>());
        const auto half = select(as_mask(bits(x)), pi<T>(), zero);  // the sign of a zero counts, too
        return Repaired<T>{((x == zero) | (y == zero)) & compare(Predicate::ordered, x, y),
                           with_signs(quarter, half, y, x)};
    });
}

template <Type T>
Value<T> angle_in_turns_of(Value<T> y, Value<T> x, const Method<T>& method) {
    const auto ay = abs(y), ax = abs(x);
    const auto upper = first_quadrant(ay, ax, x | minus_zero<T>(), ay <= ax, Value<T>(0.5), method);
    rare_if(is_special(ay, ax, upper.denominator));
    return with_signs(upper.angle, where(x <= Value<T>(0), Value<T>(1)), y, x);
}

template <Type T>
Value<T> arc_tangent_in_turns_of(Value<T> x, const Method<T>& method) {
    const auto a = abs(x);
    rare_if((!(a >= least<T>())) | (!(a < limit<T>())));
    const Value<T> one = 1;
    return first_quadrant(a, one, Value<T>(-1), a <= one, Value<T>(0.5), method).angle | sign_bit(x);
}

template <Type T>
Description of_quotient(Value<T> (*scheme)(Value<T>, Value<T>, const Method<T>&), Method<T> method) {
    const auto lane = [=](Value<T> y, Value<T> x) { return scheme(y, x, method); };
    return describe(std::function<Value<T>(Value<T>, Value<T>)>(lane));
}
template <Type T>
Description of_argument(Method<T> method) {
    const auto lane = [=](Value<T> x) { return arc_tangent_in_turns_of(x, method); };
    return describe(std::function<Value<T>(Value<T>)>(lane));
}

constexpr auto f = Type::f32, d = Type::f64;
const Method<f> float_full{divide<f>, arc_tangent}, float_short{divide_short, short_arc_tangent};
const Method<d> double_full{divide<d>, arc_tangent}, double_short{divide_short, short_arc_tangent};
const Method<f> float_turns{divide_short, arc_tangent_in_turns},
    float_short_turns{divide_short, short_arc_tangent_in_turns};
const Method<d> double_turns{divide_by_series, arc_tangent_in_turns},
    double_short_turns{divide_short, short_arc_tangent_in_turns};

const std::vector<std::uint64_t> float_limits{float_least, float_limit}, double_limits{double_least, double_limit};

const Describe families[] = {
    {{"atan2f"},
     of_quotient(angle_of<f>, float_full),
     {.ulp = 3.648, .worst = {0x62aa2e5f, 0x62b24973}, .thresholds = float_limits}},
    {{"atan2f_native"},
     of_quotient(angle_of<f>, float_short),
     {.ulp = 3776, .worst = {0xc4fe7852, 0x6e7e79d6}, .stand_in = StandIn::high, .thresholds = float_limits}},
    {{"atan2"},
     of_quotient(angle_of<d>, double_full),
     {.ulp = 4.016, .worst = {0x71bb0a9e143058ea, 0x71baf4f4bca40e36}, .thresholds = double_limits}},
    {{"atan2_native"},
     of_quotient(angle_of<d>, double_short),
     {.ulp = 22100000,
      .worst = {0x06cb1053f733f61e, 0x0dcb105400178668},
      .stand_in = StandIn::low,
      .thresholds = double_limits}},
    // The estimate at the ends of what processors may give, after one step: 2.25 units of the last place and more,
    // where the quotient's are largest.
    {{"atan2pif"},
     of_quotient(angle_in_turns_of<f>, float_turns),
     {.ulp = 6.422,
      .worst = {0xbfbc7ab5, 0x43723fe6},
      .stand_in = StandIn::high,
      .thresholds = float_limits,
      .beyond_profile = true}},
    {{"atan2pif_native"},
     of_quotient(angle_in_turns_of<f>, float_short_turns),
     {.ulp = 3776, .worst = {0xa939f7fc, 0x436cc8c7}, .stand_in = StandIn::alternating, .thresholds = float_limits}},
    {{"atan2pi"},
     of_quotient(angle_in_turns_of<d>, double_turns),
     {.ulp = 3.966,
      .worst = {0x3faff4b8ddf3ca90, 0x3faff825d090a0bd},
      .stand_in = StandIn::exact,
      .thresholds = double_limits}},
    {{"atan2pi_native"},
     of_quotient(angle_in_turns_of<d>, double_short_turns),
     {.ulp = 22100000,
      .worst = {0x3fd91cc9a6273fa4, 0x540ff9630003a830},
      .stand_in = StandIn::alternating,
      .thresholds = double_limits}},
    {{"atanpif"},
     of_argument(float_turns),
     {.ulp = 4.485, .worst = {0xbc47d190}, .stand_in = StandIn::low, .thresholds = float_limits}},
    {{"atanpif_native"},
     of_argument(float_short_turns),
     {.ulp = 3775, .worst = {0x39c90fda}, .stand_in = StandIn::low, .thresholds = float_limits}},
    {{"atanpi"},
     of_argument(double_turns),
     {.ulp = 3.430, .worst = {0x3fefe8783c268c86}, .stand_in = StandIn::low, .thresholds = double_limits}},
    {{"atanpi_native"},
     of_argument(double_short_turns),
     {.ulp = 22100000, .worst = {0xa29921fb54439889}, .stand_in = StandIn::low, .thresholds = double_limits}},
};

}  // namespace
}  // namespace tuvo

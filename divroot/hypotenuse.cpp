// The hypotenuse sqrt(x^2 + y^2): hypot.
//
// The sum of squares is formed as it stands, without a scale, and its root taken from the processor's 12-bit reciprocal
// square root by a refinement. A test of the sum hands all lanes whose squares come near an end of the exponent range
// to the rare routine.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> sum_of_squares(Value<T> x, Value<T> y) {
    return (y * y + x * x).as("s");
}

/// One step each for the root h and half its reciprocal g, and a last correction of h by its residual.
F32 hypot_default(F32 x, F32 y) {
    const F32 s = sum_of_squares(x, y);
    // As integers: NaNs and infinities lie above the upper limit, or, with the sign set, below the lower.
    rare_if(i32(0x1e300000) > bits(s));
    rare_if(bits(s) > i32(0x60a00000));
    const F32 r = reciprocal_sqrt_approximation(s);
    const F32 h = s * r;
    const F32 g = r * 0.5f;
    const F32 e = (0.5f - h * g).as("e");
    const F32 g1 = g + g * e;
    const F32 h1 = h + h * e;
    const F32 d = (h1 * h1 - s).as("d");
    return h1 - g1 * d;
}

/// The estimate alone; that of zero is infinite and would make a NaN.
F32 hypot_estimate(F32 x, F32 y) {
    const F32 s = sum_of_squares(x, y);
    const F32 r = where(s != 0.0f, reciprocal_sqrt_approximation(s));
    return r * s;
}

/// `polynomial(e)` is the relative correction of the estimate, with e = s r^2 - 1.
template <typename Polynomial>
F64 hypot_refined(F64 x, F64 y, Polynomial polynomial) {
    const F64 s = sum_of_squares(x, y);
    const I32 high = high_word(s);
    rare_if(i32(0x3bc00000) > high);  // 2^-67
    rare_if(high > i32(0x44100000));  // 2^66
    const F64 r = to_f64(reciprocal_sqrt_approximation(to_f32(s))).as("r");
    const F64 e = (s * (r * r) - 1.0).as("e");
    const F64 c = r * polynomial(e);
    return r * s + s * c;
}

constexpr std::uint64_t hypot_polynomial[] = {
    0x3fd1800000000000,  // 0.2734375
    0xbfd4000000000000,  // -0.3125
    0x3fd8000000000000,  // 0.375
    0xbfe0000000000000,  // -0.5
};

F64 hypot_double(F64 x, F64 y) {
    return hypot_refined(x, y, [](F64 e) { return e * horner(e, hypot_polynomial); });
}

F64 hypot_native(F64 x, F64 y) {
    return hypot_refined(x, y, [](F64 e) { return e * (e * 0.375 + f64(0xbfe0000000000000)); });
}

// Thresholds: equal arguments whose sum of squares is at a limit of the vector path.
const Describe families[] = {
    {{"hypotf"},
     describe(hypot_default),
     {.ulp = 1.491,
      .worst = {0xc235802a, 0xbe8a379c},
      .stand_in = StandIn::high,
      .thresholds = {0x2e9617e3, 0x4fca62c2}}},
    // Squares and their sum stay normal from 2^-62 to 2^62.
    {{"hypotf_native"},
     describe(hypot_estimate),
     {.ulp = 6145, .worst = {0x417c2b5b, 0x403064e9}, .stand_in = StandIn::low, .domain = {0x20800000, 0x5e800000}}},
    {{"hypot"},
     describe(hypot_double),
     {.ulp = 2.993,
      .worst = {0xbfb6a0e28fd102a4, 0xbfb69f10c76e656b},
      .stand_in = StandIn::high,
      .thresholds = {0x3dd0000000000000, 0x41f6a09f1b842c2c}}},
    {{"hypot_native"},
     describe(hypot_native),
     {.ulp = 1.107e6,
      .worst = {0x414fffffc7fff24a, 0xbffb894d8dc15830},
      .stand_in = StandIn::high,
      .thresholds = {0x3dd0000000000000, 0x41f6a09f1b842c2c}}},
};

}  // namespace
}  // namespace tuvo

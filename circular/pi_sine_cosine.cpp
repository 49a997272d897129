// Sine and cosine of pi times x: sinpif, cospif, sinpi, cospi.
//
// The reduction subtracts an integer and is exact; one product with pi stands between it and the polynomial. Zeros come
// out exact because the reduced argument is exactly zero. The parity of the integer, moved to the sign's place, is the
// sign.
#include <span>

#include "circular/double_sine_polynomial.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
using Pattern = std::conditional_t<T == Type::f32, std::uint32_t, std::uint64_t>;

F32 constant(std::uint32_t pattern) { return f32(pattern); }
F64 constant(std::uint64_t pattern) { return f64(pattern); }

/// What the operations and tiers differ in.
template <Type T>
struct Steps {
    Pattern<T> pi;
    Pattern<T> big_limit;                    ///< above, a multiple of 512 or 256 is taken off first
    std::span<const Pattern<T>> polynomial;  ///< (sin y - y) / y^3, highest degree first
};

template <Type T>
struct Common;
template <>
struct Common<Type::f32> {
    static constexpr std::uint32_t round_shifter = 0x4b400000;  // 12582912, 1.5 x 2^23
    static constexpr std::uint32_t mod_limit = 0x4f000000;      // 2147483648, 2^31: above, all are multiples of 256
    static constexpr std::uint32_t mod_shifter = 0x4fc00000;    // 6442450944, 1.5 x 2^32: last place 512
    static constexpr std::uint32_t half = 0x3f000000;
    static constexpr std::uint32_t infinity = 0x7f800000;
};
template <>
struct Common<Type::f64> {
    static constexpr std::uint64_t round_shifter = 0x4338000000000000;  // 6755399441055744, 1.5 x 2^52
    static constexpr std::uint64_t mod_limit = 0x43a0000000000000;      // 5.764607523034235e+17, 2^59
    static constexpr std::uint64_t mod_shifter = 0x43b8000000000000;    // 1.7293822569102705e+18, last place 256
    static constexpr std::uint64_t half = 0x3fe0000000000000;
    static constexpr std::uint64_t infinity = 0x7ff0000000000000;
};

constexpr std::uint32_t float_pi = 0x40490fdb;           // 3.1415927410125732
constexpr std::uint64_t sine_pi = 0x400921fb54442d18;    // 3.141592653589793
constexpr std::uint64_t cosine_pi = 0x400921fb54442d19;  // 3.1415926535897936; with it the cosine of 0 is exactly 1
constexpr std::uint32_t float_big_limit = 0x4a800000;    // 4194304
constexpr std::uint64_t sine_big_limit = 0x4320000000000000;    // 2251799813685248
constexpr std::uint64_t cosine_big_limit = 0x42a0000000000000;  // 8796093022208

constexpr std::uint32_t float_polynomial[] = {
    0x362ede96,  // 2.6057582545035984e-06
    0xb94fb7eb,  // -0.00019809573132079095
    0x3c088769,  // 0.008333065547049046
    0xbe2aaaa6,  // -0.16666659712791443
};
constexpr std::uint32_t short_float_polynomial[] = {
    0x3bf831a5,  // 0.007574277464300394
    0xbe29f1be,  // -0.16596123576164246
};
constexpr std::uint64_t short_double_polynomial[] = {
    0x3ec5dbdf0e4c7dee,  // 2.605780638722852e-06
    0xbf29f6ffeea73463,  // -0.00019809602902257352
    0x3f8110ed3804ca96,  // 0.00833306624608569
    0xbfc55554bc836587,  // -0.1666665955042783
};

/// a less a multiple of a large power of two, so that a last place of 1 or less is left; 0 from mod_limit on, where all
/// numbers are even. Infinities become NaN.
template <Type T>
Value<T> without_large_multiple(Value<T> a) {
    const Value<T> shifter = where(a < constant(Common<T>::mod_limit), constant(Common<T>::mod_shifter));
    return a - ((shifter + a) - shifter);
}

template <Type T>
struct Quotient {
    Value<T> odd;  ///< its low bit, in the sign's place
    Value<T> n;
};
template <Type T>
Quotient<T> nearest_integer(Value<T> a) {
    const Value<T> t = a + constant(Common<T>::round_shifter);
    return {as_float(bits(t) << (8 * type_size(T) - 1)), (t - constant(Common<T>::round_shifter)).as("n")};
}

/// The sine of f pi for |f| up to 1/2, its sign changed where `odd`.
template <Type T>
Value<T> sine_of_part(Value<T> f, Value<T> odd, const Steps<T>& steps) {
    const Value<T> y = f * constant(steps.pi), z = y * y, u = y ^ odd;
    Value<T> p = constant(steps.polynomial[0]);
    for (Pattern<T> coefficient : steps.polynomial.subspan(1)) p = p * z + constant(coefficient);
    return u + (z * p) * u;
}

template <Type T>
Value<T> sine(Value<T> x, const Steps<T>& steps) {
    const Value<T> magnitude = abs(x);
    const auto [a, s] = if_any(magnitude > constant(steps.big_limit), std::tuple(magnitude, sign_bit(x)), [&] {
        const auto infinite = magnitude == constant(Common<T>::infinity);
        Value<T> sign = sign_bit(x);
        if constexpr (T == Type::f32)
            rare_if(infinite);
        else
            sign = where(!infinite, sign);  // there is no rare routine to make the NaN, and it gets no sign either
        return std::tuple(without_large_multiple(magnitude), sign);
    });
    const auto [odd, n] = nearest_integer(a);
    return sine_of_part((a - n).as("f"), odd, steps) ^ s;
}

template <Type T>
Value<T> cosine(Value<T> x, const Steps<T>& steps) {
    const Value<T> magnitude = abs(x);
    const Value<T> a = if_any(magnitude > constant(steps.big_limit), magnitude, [&] {
        if constexpr (T == Type::f32) rare_if(magnitude == constant(Common<T>::infinity));
        return without_large_multiple(magnitude);
    });
    const Value<T> half = constant(Common<T>::half);
    const auto [odd, n] = nearest_integer(a + half);
    return sine_of_part((a - (n - half)).as("f"), odd, steps);
}

constexpr Steps<Type::f32> float_steps{float_pi, float_big_limit, float_polynomial};
constexpr Steps<Type::f32> short_float_steps{float_pi, float_big_limit, short_float_polynomial};
constexpr Steps<Type::f64> sine_steps{sine_pi, sine_big_limit, double_sine_polynomial};
constexpr Steps<Type::f64> short_sine_steps{sine_pi, sine_big_limit, short_double_polynomial};
constexpr Steps<Type::f64> cosine_steps{cosine_pi, cosine_big_limit, double_sine_polynomial};
constexpr Steps<Type::f64> short_cosine_steps{cosine_pi, cosine_big_limit, short_double_polynomial};

template <Type T>
Description describe_with(Value<T> (*function)(Value<T>, const Steps<T>&), const Steps<T>& steps) {
    return describe(std::function<Value<T>(Value<T>)>([function, steps](Value<T> x) { return function(x, steps); }));
}

const Describe families[] = {
    {{"sinpif"},
     describe_with(sine<Type::f32>, float_steps),
     {.ulp = 2.132,
      .worst = {0x3b22f9f0},
      .thresholds = {0x3f000000, 0x3f800000, float_big_limit, Common<Type::f32>::mod_limit}}},
    {{"cospif"},
     describe_with(cosine<Type::f32>, float_steps),
     {.ulp = 2.129,
      .worst = {0x3d05829c},
      .thresholds = {0x3f000000, 0x3f800000, float_big_limit, Common<Type::f32>::mod_limit}}},
    {{"sinpi"},
     describe_with(sine<Type::f64>, sine_steps),
     {.ulp = 3.398,
      .worst = {0x3ff7dbcac919d3e8},
      .thresholds = {0x3fe0000000000000, sine_big_limit, Common<Type::f64>::mod_limit}}},
    {{"cospi"},
     describe_with(cosine<Type::f64>, cosine_steps),
     {.ulp = 3.760,
      .worst = {0x3ff6b6d314ff5bfc},
      .thresholds = {0x3fe0000000000000, cosine_big_limit, Common<Type::f64>::mod_limit}}},
    // The shorter polynomials lose accuracy by design.
    {{"sinpif_native"},
     describe_with(sine<Type::f32>, short_float_steps),
     {.ulp = 2693, .worst = {0xc0c8f4cc}, .thresholds = {0x3f000000, float_big_limit, Common<Type::f32>::mod_limit}}},
    {{"cospif_native"},
     describe_with(cosine<Type::f32>, short_float_steps),
     {.ulp = 2694, .worst = {0x3e60d49d}, .thresholds = {0x3f000000, float_big_limit, Common<Type::f32>::mod_limit}}},
    {{"sinpi_native"},
     describe_with(sine<Type::f64>, short_sine_steps),
     {.ulp = 5.454e7,
      .worst = {0x3fdffffffffffffc},
      .thresholds = {0x3fe0000000000000, sine_big_limit, Common<Type::f64>::mod_limit}}},
    {{"cospi_native"},
     describe_with(cosine<Type::f64>, short_cosine_steps),
     {.ulp = 5.454e7,
      .worst = {0x3d85280000000000},
      .thresholds = {0x3fe0000000000000, cosine_big_limit, Common<Type::f64>::mod_limit}}},
};

}  // namespace
}  // namespace tuvo

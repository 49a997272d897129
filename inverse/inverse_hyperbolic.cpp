// Inverse hyperbolic functions: asinh, acosh, atanh. All of them are log(1 + V), with the argument in two parts:
//     asinh a = log(1 + (a + (sqrt(1 + a^2) - 1)))
//     acosh x = log(1 + ((x - 1) + sqrt(x^2 - 1)))
//     atanh a = log(1 + 2 a / (1 - a)) / 2
//
// Roots and quotients start from the processor's 12-bit estimate, cut to so few bits that its products with the heads
// of split operands are exact, and go on with a polynomial in the residual e. Processors differ in their estimates, and
// with them the results do, in their last bits.
//
// Float and double run the same steps, up to the logarithm. Only constants differ, and the length of the series.
#include <bit>
#include <optional>

#include "frame/description/families.hpp"
#include "powers/reciprocal_logarithms.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> constant(std::uint64_t pattern) {
    return Value<T>(record_constant(T, pattern), nullptr);
}

template <Type T>
struct Format;

template <>
struct Format<Type::f32> {
    static constexpr std::uint64_t largest_finite = 0x7f7fffff;
    static constexpr std::uint64_t large = 0x4e800000, large_scale = 0x30800000;  // 2^30, 2^-30
    // Masks: what is left has 11, 8, 8, 12 and 12 bits.
    static constexpr std::uint64_t head_of_x = 0xffffe000, head_of_radicand = 0xffff0000, root_estimate = 0xffff0000;
    static constexpr std::uint64_t head_of_divisor = 0xfffff000, reciprocal_estimate = 0xfffff000;
    static constexpr std::uint64_t asinh_small = 0x3d800000;  // 0.0625
    static constexpr std::uint64_t atanh_tiny = 0x0c000000;   // 2^-103, 9.860761e-32
};

template <>
struct Format<Type::f64> {
    static constexpr std::uint64_t largest_finite = 0x7fefffffffffffff;
    static constexpr std::uint64_t large = 0x41d0000000000000, large_scale = 0x3e10000000000000;
    // Masks: what is left has 26, 29, 12, 41 and 12 bits.
    static constexpr std::uint64_t head_of_x = 0xfffffffff8000000, head_of_radicand = 0xffffffffff000000;
    static constexpr std::uint64_t root_estimate = 0xfffffe0000000000;
    static constexpr std::uint64_t head_of_divisor = 0xfffffffffffff000, reciprocal_estimate = 0xfffffe0000000000;
    static constexpr std::uint64_t asinh_small = 0x3f60000000000000;  // 2^-9
    static constexpr std::uint64_t atanh_tiny = 0x0350000000000000;   // 2^-970, 1.0020841800044864e-292
};

/// How many bits of a significand a mask leaves.
template <Type T>
constexpr int bits_left(std::uint64_t mask) {
    return (T == Type::f32 ? 24 : 53) - std::countr_zero(mask);
}
/// The squares of heads, and the products of heads with estimates and their squares, have no more bits than a
/// significand.
template <Type T>
constexpr bool products_are_exact() {
    using F = Format<T>;
    constexpr int all = bits_left<T>(1), root = bits_left<T>(F::root_estimate);
    return 2 * bits_left<T>(F::head_of_x) <= all && bits_left<T>(F::head_of_radicand) + 2 * root <= all &&
           bits_left<T>(F::head_of_divisor) + bits_left<T>(F::reciprocal_estimate) <= all;
}
static_assert(products_are_exact<Type::f32>() && products_are_exact<Type::f64>());

/// A number in two parts.
template <Type T>
struct Pair {
    Value<T> head, tail;
};

// Logarithms.

constexpr std::uint32_t two_thirds = 0x3f2aaaab;
constexpr std::uint32_t fraction_mask = 0x007fffff;

constexpr std::uint32_t log_default_polynomial[] = {
    0x3e0d84ed,  // 0.13820238
    0xbe1ad9e3,  // -0.1512218
    0x3e0fcb12,  // 0.14042309
    0xbe28ad37,  // -0.16472326
    0x3e4ce190,  // 0.2000792
    0xbe80058e,  // -0.25004238
    0x3eaaaa94,  // 0.33333266
    0xbf000000,  // -0.5
};
constexpr std::uint32_t log_native_polynomial[] = {
    0x3e612933,  // 0.21988373
    0xbe88e8fe,  // -0.26740259
    0x3eaa7160,  // 0.33289623
    0xbf000000,  // -0.5
};

enum class Length { full, native };

/// log(1 + t) in float.
template <Length length>
F32 log_of_one_plus(F32 t) {
    const F32 p = length == Length::full ? horner(t, log_default_polynomial) : horner(t, log_native_polynomial);
    return t + t * (t * p);
}

/// log(1 + t) in double, for t below 2^-10.
template <Length length>
F64 log_of_one_plus(F64 t) {
    const F64 t2 = (t * t).as("t^2");
    const F64 p2 = t * f64(0x3fd55555555543c5) + f64(0xbfdffffffffff81f);  // 0.33333333333308374, -0.49999999999988803
    if (length == Length::native) return t + t2 * p2;
    const F64 p1 = t * f64(0x3fc9999cacdb4d0a) + f64(0xbfd0000148058ee1);  // 0.2000003665949424, -0.2500003054940248
    return t + t2 * (p1 * t2 + p2);
}

/// The logarithm of B.head + B.tail; the head is positive. Where `large` is set, 31 ln 2 more.
template <Length length>
F32 logarithm(Pair<Type::f32> B, std::optional<M32> large = {}) {
    const I32 u = bits(B.head) - i32(two_thirds);
    const I32 e = shift_right_signed(u, 23);
    const F32 scale = as_float(i32(0x3f800000) - (e << 23)).as("2^-e");
    // m in [2/3, 4/3). In wide parts the product spares taking it through halves.
    const F32 m = by_part_size(as_float((u & i32(fraction_mask)) + i32(two_thirds)), B.head * scale);
    const F32 t = ((m - 1.0f) + B.tail * scale).as("t");
    F32 exponent = to_f32(e);
    if (large) exponent = exponent + where(*large, F32(31.0f));
    return exponent * f32(0x3f317218) + log_of_one_plus<length>(t);  // ln 2, 0.6931472
}

/// The same in double. The integer r, next to 1024 divided by the significand, comes from an estimate: whatever it is,
/// t belongs to it and its logarithm stands in the table. The factor 2 that is left for r up to 724 counts as an
/// exponent.
template <Length length>
F64 logarithm(Pair<Type::f64> B, std::optional<M64> large = {}) {
    const F64 m = ((B.head & f64(0x000fffffffffffff)) | f64(0x3f50000000000000)).as("m");
    const F64 r = round(to_f64(reciprocal_approximation(to_f32(m))), RoundTo::nearest_even).as("r");
    // The inverted exponent field stands for 2^(1 - e), where B.head is 2^e to 2^(e + 1): m / B.head is 2^-11 of that.
    const F64 scale = (and_not(B.head, f64(0x7ff0000000000000)) * f64(0x3f40000000000000)).as("m / B");
    const F64 t = ((m * r - 1.0) + B.tail * (scale * r)).as("t");
    F64 exponent = to_f64(high_word(B.head) >> 20);
    if (large) exponent = exponent + where(*large, F64(31.0));
    const F64 bias = where(r > 724.0, f64(0x408ff80000000000)) | f64(0x408ff00000000000);  // 1023.0, or 1022.0 alone
    const F64 k = (exponent - bias) * f64(0x3fe62e42fefa39ef);                             // ln 2, 0.6931471805599453
    // The pattern of r has zeros below its upper 12 fraction bits.
    const std::int64_t first = 0x40800000 >> 8, last = 0x40900000 >> 8;  // 512 and 1024
    const I32 offset = claim_range(high_word(r) >> 8, first, last).as("table offset");
    const F64 Tb = gather<Type::f64>(table(reciprocal_logarithms(), "-ln(r / 1024) or -ln(r / 512)"), offset, first);
    return (log_of_one_plus<length>(t) + Tb) + k;
}

/// 1 + V for V >= 0, without loss.
Pair<Type::f32> one_plus(F32 V) {
    const F32 one = 1.0f, larger = max(one, V), smaller = min(one, V);
    const F32 B = one + V;
    return {B, smaller + (larger - B)};
}
/// In double the head is cut, where that leaves the logarithm its bits: its product with an integer r is exact.
Pair<Type::f64> one_plus(F64 V) {
    const F64 one = 1.0, larger = max(one, V), smaller = min(one, V);
    const I64 mask = bits(V < f64(0x3e00000000000000)) | i64(0xfffffffffffffc00);  // below 2^-31
    const F64 B = ((one + V) & as_float(mask)).as("B");
    return {B, smaller + (larger - B)};
}

// Roots.

F32 root_estimate(F32 x) { return reciprocal_sqrt_approximation(x); }
F64 root_estimate(F64 x) { return to_f64(reciprocal_sqrt_approximation(to_f32(x))); }
F32 reciprocal_estimate(F32 x) { return reciprocal_approximation(x); }
F64 reciprocal_estimate(F64 x) { return to_f64(reciprocal_approximation(to_f32(x))); }

template <Type T>
Pair<T> split(Value<T> x, std::uint64_t mask) {
    const Value<T> head = x & constant<T>(mask);
    return {head, x - head};
}

/// The square root is s + tt + st ((1 - e)^(-1/2) - 1): s, exact, is the large part.
template <Type T>
struct Root {
    Value<T> s, tt, st, e;
};
template <Type T>
Root<T> root(Value<T> head, Value<T> tail) {
    const Value<T> y0 = (root_estimate(head) & constant<T>(Format<T>::root_estimate)).as("estimate");
    const Value<T> s = head * y0, tt = y0 * tail;
    const Value<T> e = ((1.0f - y0 * s) - y0 * tt).as("e");
    return {s, tt, s + tt, e};
}

// (1 - e)^(-1/2) - 1, by the first terms of its series; the coefficients are exact.
F32 cubic_series(F32 e) { return e * ((e * 0.3125f + 0.375f) * e + 0.5f); }
F64 quartic_series(F64 e) {
    // 0.2734375, 0.3125, 0.375
    return e * (((e * f64(0x3fd1800000000000) + f64(0x3fd4000000000000)) * e + f64(0x3fd8000000000000)) * e + 0.5);
}
F64 quintic_series(F64 e) {
    // 0.24609375, 0.2734375, 0.3125, 0.375
    const F64 p = e * f64(0x3fcf800000000000) + f64(0x3fd1800000000000);
    return e * (((p * e + f64(0x3fd4000000000000)) * e + f64(0x3fd8000000000000)) * e + 0.5);
}
F32 asinh_series(F32 e) { return cubic_series(e); }
F64 asinh_series(F64 e) { return quintic_series(e); }
template <Length length>
F32 acosh_series(F32 e) {
    return length == Length::full ? cubic_series(e) : e * 0.5f;
}
template <Length length>
F64 acosh_series(F64 e) {
    return length == Length::full ? quartic_series(e) : e * (e * f64(0x3fd8000000000000) + 0.5);
}

/// Beyond 2^30 the logarithm is that of 2 a. Half of it would do as well as all; 2^-31 keeps it far from overflow.
template <Type T>
Value<mask_of(T)> take_large(Value<T> a, Pair<T>& B) {
    const Value<mask_of(T)> large = !(a < constant<T>(Format<T>::large));
    B.head = select(large, a * constant<T>(Format<T>::large_scale), B.head);
    B.tail = as_float(and_not(bits(large), bits(B.tail)));
    return large;
}

template <Type T, Length length>
Value<T> asinh(Value<T> x) {
    const Value<T> a = abs(x);
    rare_if(!(a <= constant<T>(Format<T>::largest_finite)));
    // x^2 = X2 + d, U + its rounding error = 1 + X2.
    const Value<T> xh = x & constant<T>(Format<T>::head_of_x);
    const Value<T> d = (xh + x) * (x - xh);
    const Value<T> X2 = xh * xh;
    const Value<T> U = X2 + 1.0f;
    const auto [Uh, rest] = split(U, Format<T>::head_of_radicand);
    const Value<T> ul = rest + ((X2 + (1.0f - U)) + d);

    // H and its tail: the root less 1.
    const auto [s, tt, st, e] = root(Uh, ul);
    const Value<T> lo = tt + asinh_series(e) * st, hi = s - 1.0f;
    const Value<T> sum = lo + hi;
    const Value<T> sum_tail = lo + (hi - sum);
    // Small arguments: w - w^2 / 2 + w^3 / 2 with w = x^2 / 2.
    const Value<mask_of(T)> small = a <= constant<T>(Format<T>::asinh_small);
    const Value<T> w = ((X2 + d) * 0.5f).as("w");
    const Value<T> w2 = w * w;
    const Value<T> c = (w2 * w - w2) * 0.5f;
    const Value<T> series = w + c;
    const Value<T> H = select(small, series, sum).as("H");
    const Value<T> Ht = select(small, c + (w - series), sum_tail);

    const Value<T> V = (a + H).as("V");
    const Value<T> Vt = H + (a - V);
    Pair<T> B = one_plus(V);
    B.tail = (B.tail + Ht) + Vt;
    const std::optional large = take_large(a, B);
    return logarithm<length>(B, large) ^ sign_bit(x);
}

template <Type T, Length length>
Value<T> acosh(Value<T> x) {
    rare_if((!(x <= constant<T>(Format<T>::largest_finite))) | !(x > 1.0f));
    const Value<T> less_one = x - 1.0f;
    const auto [Wh, Wl] = split(less_one * (x + 1.0f), Format<T>::head_of_radicand);
    const auto [s, tt, st, e] = root(Wh, Wl);
    const Value<T> V = (less_one + (st + st * acosh_series<length>(e))).as("V");
    Pair<T> B = one_plus(V);
    const std::optional large = take_large(x, B);
    return logarithm<length>(B, large);
}

// 1 / (1 - e) - 1.
F32 reciprocal_series(F32 e) { return e + e * e; }
F64 reciprocal_series(F64 e) {
    const F64 e2 = e * e;
    return e + (e + e2 * e) * (e + e2);
}

template <Type T, Length length>
Value<T> atanh(Value<T> x) {
    const Value<T> a = abs(x);
    rare_if(!(a < 1.0f));
    const Value<T> d = 1.0f - a;
    const auto [dh, rest] = split(d, Format<T>::head_of_divisor);
    const Value<T> low = rest + ((1.0f - d) - a);
    const Value<T> y0 = (reciprocal_estimate(dh) & constant<T>(Format<T>::reciprocal_estimate)).as("estimate");
    const Value<T> e = ((1.0f - y0 * dh) - y0 * low).as("e");
    const auto [nh, nl] = split(a + a, Format<T>::head_of_divisor);
    const Value<T> qh = y0 * nh, ql = y0 * nl;
    const Value<T> g = reciprocal_series(e);
    const Value<T> low2 = g * qh + (ql + g * ql);
    const Value<T> Q = (qh + low2).as("2 a / (1 - a)");
    const Value<T> Qt = low2 + (qh - Q);
    Pair<T> B = one_plus(Q);
    B.tail = B.tail + Qt;
    const Value<T> half = sign_bit(x) ^ constant<T>(T == Type::f32 ? 0x3f000000 : 0x3fe0000000000000);
    const Value<T> result = half * logarithm<length>(B);
    // x + x^2, where nothing is left of the square. -0 gives +0.
    return select(a < constant<T>(Format<T>::atanh_tiny), x + 0.0f, result);
}

// Small, large or tiny arguments, the ends of the domains, and in double where the head of 1 + V begins to be cut.
const std::vector<std::uint64_t> asinhf_thresholds{0x3d800000, 0x4e800000, 0x7f7fffff};
const std::vector<std::uint64_t> acoshf_thresholds{0x3f800000, 0x4e800000, 0x7f7fffff};
const std::vector<std::uint64_t> atanhf_thresholds{0x0c000000, 0x3f800000};
const std::vector<std::uint64_t> asinh_thresholds{0x3e00000000000000, 0x3f60000000000000, 0x41d0000000000000,
                                                  0x7fefffffffffffff};
const std::vector<std::uint64_t> acosh_thresholds{0x3ff0000000000000, 0x41d0000000000000, 0x7fefffffffffffff};
const std::vector<std::uint64_t> atanh_thresholds{0x0350000000000000, 0x3df0000000000000, 0x3ff0000000000000};

constexpr const char* near_zero =
    "An estimate that is off by nearly all that is allowed picks the entry of the logarithms beside that of 1 for "
    "arguments of the logarithm next to 1. The result is then the small difference of this entry and the logarithm of "
    "the "
    "residual, which magnifies their rounding errors beyond the limit";
constexpr const char* short_series =
    "The series for the root ends at the fourth power of the estimate's residual, which is too early for an estimate "
    "that "
    "is low by all that is allowed";

constexpr auto full = Length::full, native = Length::native;
const Describe families[] = {
    {{"asinhf"},
     describe(asinh<Type::f32, full>),
     {.ulp = 2.221, .worst = {0xbe0019a6}, .stand_in = StandIn::alternating, .thresholds = asinhf_thresholds}},
    {{"asinhf_native"},
     describe(asinh<Type::f32, native>),
     {.ulp = 1469, .worst = {0x3e66d005}, .stand_in = StandIn::exact, .thresholds = asinhf_thresholds}},
    {{"acoshf"},
     describe(acosh<Type::f32, full>),
     {.ulp = 3.201, .worst = {0x3f80e3a9}, .stand_in = StandIn::exact, .thresholds = acoshf_thresholds}},
    {{"acoshf_native"},
     describe(acosh<Type::f32, native>),
     {.ulp = 2525, .worst = {0x3f838b70}, .stand_in = StandIn::low, .thresholds = acoshf_thresholds}},
    {{"atanhf"},
     describe(atanh<Type::f32, full>),
     {.ulp = 2.093, .worst = {0x3d7c2ea2}, .stand_in = StandIn::exact, .thresholds = atanhf_thresholds}},
    {{"atanhf_native"},
     describe(atanh<Type::f32, native>),
     {.ulp = 1469, .worst = {0xbde3a5f7}, .stand_in = StandIn::low, .thresholds = atanhf_thresholds}},
    {{"asinh"},
     describe(asinh<Type::f64, full>),
     {.ulp = 6.128,
      .worst = {0xbf2229cfcb138cbb},
      .stand_in = StandIn::low,
      .thresholds = asinh_thresholds,
      .beyond_profile = true,
      .remark = near_zero}},
    {{"asinh_native"},
     describe(asinh<Type::f64, native>),
     {.ulp = 4.92e6, .worst = {0x3f2005bfd35f93c7}, .stand_in = StandIn::alternating, .thresholds = asinh_thresholds}},
    {{"acosh"},
     describe(acosh<Type::f64, full>),
     {.ulp = 35.02,
      .worst = {0x3ff00007fa825589},
      .stand_in = StandIn::low,
      .thresholds = acosh_thresholds,
      .beyond_profile = true,
      .remark = short_series}},
    {{"acosh_native"},
     describe(acosh<Type::f64, native>),
     {.ulp = 1.394e7, .worst = {0x3ff000000001fda2}, .stand_in = StandIn::low, .thresholds = acosh_thresholds}},
    {{"atanh"},
     describe(atanh<Type::f64, full>),
     {.ulp = 6.107,
      .worst = {0xbf11b3c2023f35de},
      .stand_in = StandIn::low,
      .thresholds = atanh_thresholds,
      .beyond_profile = true,
      .remark = near_zero}},
    {{"atanh_native"},
     describe(atanh<Type::f64, native>),
     {.ulp = 4.92e6, .worst = {0xbf1005bfd7a029d0}, .stand_in = StandIn::low, .thresholds = atanh_thresholds}},
};

}  // namespace
}  // namespace tuvo

// Rare routines of the arc tangents, in double for both types. Nothing is an error to them.
//
// Of one argument, only what kernels send is served: to atan infinities, to atanpi tiny and huge numbers as well. Of a
// quotient, every pair is.
#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
extern const double atan2_big_table[114][2];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

/// A number in two parts: the tail is small beside the head.
struct Pair {
    double head, tail;
};

constexpr Pair pi{f64(0x400921fb54442d18, 3.141592653589793), f64(0x3ca1a62633145c07, 1.2246467991473532e-16)};
constexpr Pair three_quarters_pi{f64(0x4002d97c7f3321d2, 2.356194490192345),
                                 f64(0x3c9a79394c9e8a0a, 9.184850993605148e-17)};
constexpr Pair half_pi{f64(0x3ff921fb54442d18, 1.5707963267948966), f64(0x3c91a62633145c07, 6.123233995736766e-17)};
constexpr Pair quarter_pi{f64(0x3fe921fb54442d18, 0.7853981633974483), f64(0x3c81a62633145c07, 3.061616997868383e-17)};
constexpr double inv_pi = f64(0x3fd45f306dc9c883, 0.3183098861837907);

/// The head, by a sum that is inexact.
inline double rounded(Pair value) { return value.head + runtime(value.tail); }
inline double with_sign(double magnitude, double sign) { return __builtin_copysign(magnitude, sign); }

/// The upper 26 bits of the head, and the rest.
inline Pair split(double x, double tail = 0.0) {
    const double t = x * f64(0x41a0000002000000, 134217729.0);  // 2^27 + 1
    const double head = t - (t - x);
    return {head, (x - head) + tail};
}
/// The sum and what it rounds off, whichever is larger.
inline Pair exact_sum(double a, double b) {
    const double sum = a + b, of_b = sum - a;
    return {sum, (a - (sum - of_b)) + (b - of_b)};
}

/// (atan(u) / u - 1) in w = u^2, for |u| up to 1/8.
inline double polynomial(double w) {
    return w * horner(w, -0.06313688776899645, 0.07683539769703819, -0.0909079559611586, 0.11111110301985087,
                      -0.1428571428262597, 0.19999999999994408, -0.3333333333333333);
}

/// n / d of numbers that are split: the head is the product of two heads, and so exact.
inline Pair quotient(Pair n, Pair d) {
    const double rh = split(1.0 / d.head).head;
    const double e = (1.0 - d.head * rh) - d.tail * rh;
    const double rl = (e + 1.0) * e * rh;
    return {rh * n.head, (rl * n.tail + n.head * rl) + rh * n.tail};
}

/// u + u (atan(u) / u - 1), in the form of a head and a tail.
inline Pair arc_tangent_near_zero(Pair u) {
    const double U = u.head + u.tail, rest = (u.head - U) + u.tail;
    const Pair W = split(polynomial(U * U)), V = split(U);
    const auto [head, rounding] = exact_sum(U, V.head * W.head);
    return {head, rounding + (rest + (V.tail * W.head + V.head * W.tail + V.tail * W.tail))};
}

/// atan(y / x) of positive finite numbers whose quotient is neither tiny nor huge.
inline Pair arc_tangent_of_quotient(double y, double x) {
    const double q = y / x;
    if (q < 0.125) return arc_tangent_near_zero(quotient(split(y), split(x)));

    // atan(c) + atan((y - x c) / (x + y c)) with c in the middle of the half binade of q. c has three bits, and y - x c
    // so few that its head is exact, too.
    const std::uint32_t high = static_cast<std::uint32_t>(bits(q) >> 32);
    const double c = f64(static_cast<std::uint64_t>((high & 0xfff80000) | 0x00040000) << 32);
    const std::uint32_t field = (high - 0x3fc00000) >> 19;
    const double(&point)[2] = atan2_big_table[field < 113 ? field : 113];
    const auto [xh, xl] = split(x);
    const auto [yh, yl] = split(y);
    const auto [n, nl] = exact_sum(y - xh * c, -(xl * c));
    const auto [d, dl] = exact_sum(x, yh * c);
    const auto [u, ul] = arc_tangent_near_zero(quotient(split(n, nl), split(d, dl + yl * c)));
    const auto [head, rounding] = exact_sum(point[0], u);
    return {head, rounding + (ul + point[1])};
}

/// The general case: y and x finite and other than zero, quotient near enough to 1 for both ends to count.
inline double angle(double y, double x) {
    // The scale takes y to [1, 2), or near it; x follows, and stays a normal number.
    const int field = exponent_field(y);
    const double scale = field == 0                                     ? 0x1p1022
                         : field == exponent_field_all_ones<double> - 1 ? 0x1p-1022
                                                                        : f64(std::uint64_t(0x7fe - field) << 52);
    const auto [H, L] = arc_tangent_of_quotient(__builtin_fabs(y) * scale, __builtin_fabs(x) * scale);
    if (x > 0) return with_sign(H + L, y);
    const auto [head, rounding] = exact_sum(pi.head, -H);
    return with_sign(head + (rounding + (pi.tail - L)), y);
}

/// |q| where the angle is the quotient itself but for its rounding. `T` is the type of the result.
template <class T>
inline double tiny_angle(double q) {
    const T narrow = static_cast<T>(q);
    if (exponent_field(narrow) == 0) return q + static_cast<double>(narrow * narrow);  // raises underflow
    return q * (1.0 + q);
}

template <class T>
inline double finite_or_infinite_angle(double y, double x) {
    constexpr double infinity = __builtin_huge_val();
    const double ay = __builtin_fabs(y), ax = __builtin_fabs(x);
    if (ax == infinity && ay == infinity) return with_sign(rounded(x < 0 ? three_quarters_pi : quarter_pi), y);
    if (ay == infinity) return with_sign(rounded(half_pi), y);
    if (ax == infinity || ay == 0) return __builtin_signbit(x) ? with_sign(rounded(pi), y) : with_sign(0.0, y);
    if (ax == 0) return with_sign(rounded(half_pi), y);

    const int difference = exponent_field(y) - exponent_field(x);
    if (difference < -53) return with_sign(x < 0 ? rounded(pi) : tiny_angle<T>(ay / ax), y);
    if (difference >= 74) return with_sign(rounded(half_pi), y);
    if (difference >= 54) return with_sign((half_pi.tail - x / ay) + half_pi.head, y);
    return angle(y, x);
}

/// `factor` turns radians into the unit of the result.
template <class T>
inline RareStatus store_angle(const T* y, const T* x, double factor, T* out) {
    // The product quiets a signalling NaN, and says so.
    const double wy = *y * runtime(T(1)), wx = *x * runtime(T(1));
    *out = static_cast<T>(wy != wy || wx != wx ? add(wy, wx) : finite_or_infinite_angle<T>(wy, wx) * factor);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus atan2f_rare(const float* y, const float* x, float* out) { return store_angle(y, x, 1.0, out); }
RareStatus atan2pif_rare(const float* y, const float* x, float* out) { return store_angle(y, x, inv_pi, out); }
RareStatus atan2_rare(const double* y, const double* x, double* out) { return store_angle(y, x, 1.0, out); }
RareStatus atan2pi_rare(const double* y, const double* x, double* out) { return store_angle(y, x, inv_pi, out); }

RareStatus atanf_rare(const float* x, float* out) {
    *out = *x != *x ? *x + *x : static_cast<float>(with_sign(rounded(half_pi), *x));
    return RareStatus::ordinary;
}
RareStatus atan_rare(const double* x, double* out) {
    *out = *x != *x ? *x + *x : with_sign(rounded(half_pi), *x);
    return RareStatus::ordinary;
}

RareStatus atanpif_rare(const float* x, float* out) {
    if (*x != *x) {
        *out = *x + *x;
        return RareStatus::ordinary;
    }
    const float a = __builtin_fabsf(*x);
    const double wide = a;
    const double result = wide >= 0x1p54           ? rounded(half_pi)
                          : exponent_field(a) == 0 ? static_cast<double>(a * a) + wide  // raises underflow
                                                   : (1.0 + wide) * wide;
    *out = static_cast<float>(with_sign(result * inv_pi, *x));
    return RareStatus::ordinary;
}

RareStatus atanpi_rare(const double* x, double* out) {
    const double a = __builtin_fabs(*x);
    if (*x != *x) {
        *out = *x + *x;
    } else if (a >= 0x1p54) {
        *out = with_sign(0.5, *x);
    } else {
        // a / pi, where a is scaled to have all its bits behind the point; all but the rest of one head is exact, so
        // that a subnormal result is rounded once.
        constexpr double head = 0.31830988824367523, tail = -2.0598845603958264e-09;
        const auto [vh, vl] = split((1.0 + a) * a * 0x1p82);
        const double rest = (tail * vl + vh * tail) + head * vl;
        const auto [upper, lower] = split(head * vh);
        *out = with_sign(upper * 0x1p-82 + (lower + rest) * 0x1p-82, *x);
    }
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

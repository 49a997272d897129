// Rare routines of the hypotenuse: any arguments, scaled so that neither the squares nor their sum leave the range.
// They report nothing: overflow and underflow come with the last multiplication.
//
// Largest errors seen: hypotf_rare 0.5000 ulp; hypot_rare 0.883 where both heads count, whose squares are exact and
// their sum is not, and 0.5001 elsewhere.
#include "divroot/root_steps.hpp"
#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
extern const double hypotf_seed_table[512];
extern const double hypot_seed_table[512];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

/// sqrt(a^2 + b^2) of finite a >= b >= 0, not both zero.
inline double length(double a, double b, const double (&table)[512]) {
    // a goes to [4, 8); from the lowest binades, where the factor would leave the range, 23 binades less far.
    const int exponent = exponent_field(a);
    const int scale_field = (-exponent - (exponent < 25 ? 23 : 0)) & 0x7ff;
    a = a * power_of_field(scale_field);
    b = b * power_of_field(scale_field);

    // The sum of squares as ah^2 + bh^2, products of few bits, and a rest t. A b far below a needs no head.
    const auto [ah, al] = split(a, split_26);
    const bool near = exponent_field(a) - exponent_field(b) < 7;
    const auto [bh, bl] = near ? split(b, split_26) : Halves{0.0, b};
    const double t = al * (a + ah) + b * bl + bh * bl;
    const double s = ah * ah + bh * bh + t;

    static constexpr double factor[] = {1.0, 2.0};
    const int e = exponent_field(s) - exponent_bias<double>;
    const int parity = e & 1, even = e - parity, half = even / 2;
    const auto [q, h] = coupled_root(significand(s) * factor[parity], table[seed_index(s, parity)]);
    // One more step, with the residual from the unrounded sum.
    const auto [qa, qb] = split(q, split_26);
    const double f = power_of_field(exponent_bias<double> - even);
    const double c = h * ((ah * ah + bh * bh) * f - qa * qa - (2.0 * qa) * qb - qb * qb + t * f);
    return (q + c) * power_of_field(exponent_bias<double> + half) *
           power_of_field(2 * exponent_bias<double> - scale_field);
}

template <class T>
inline RareStatus hypotenuse(T x, T y, T* out, const double (&table)[512]) {
    constexpr T infinity = __builtin_huge_val();
    constexpr int all_ones = exponent_field_all_ones<T>;
    if (exponent_field(x) == all_ones) {
        // An infinity outweighs a NaN.
        if (exponent_field(y) == all_ones && x != x)
            *out = y == infinity || y == -infinity ? y * y : multiply(x, y);
        else
            *out = x * x;
    } else if (exponent_field(y) == all_ones) {
        *out = y * y;
    } else if (x == 0 && y == 0) {
        *out = 0;
    } else {
        const double a = __builtin_fabs(static_cast<double>(x)), b = __builtin_fabs(static_cast<double>(y));
        *out = static_cast<T>(a < b ? length(b, a, table) : length(a, b, table));
    }
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus hypotf_rare(const float* x, const float* y, float* out) {
    return hypotenuse(*x, *y, out, hypotf_seed_table);
}
RareStatus hypot_rare(const double* x, const double* y, double* out) {
    return hypotenuse(*x, *y, out, hypot_seed_table);
}

}  // extern "C"

}  // namespace tuvo

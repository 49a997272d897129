// The routine of double gamma. All lanes come here.
//
// All is done in extended precision. From 2 on, gamma(base + u) for u in [0, 1) is a polynomial, one for each segment of
// sixteen units, and the other units of a segment follow by the recurrence. Below 2 there are four polynomials. Negative
// arguments are reflected.
#include "special/extended.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Coefficients of rising powers, the first five apart: of u, for segments that begin at 2, 16, 32 ... 176; for the
// quarters of [1, 2), of the distance to the middle, or to the least value in the second; and of sin(pi z) / (pi z) in z^2.
extern const long double tgamma_segments_wide[12][5];
extern const double tgamma_segments[12][19];
extern const long double tgamma_small_wide[4][5];
extern const double tgamma_small[4][11];
extern const long double tgamma_sine_wide[5];
extern const double tgamma_sine[7];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr double overflow_above = f64(0x406573fae561f647, 171.6243769563027);
constexpr double zero_below = -184;  // the last result other than zero lies just below -183
constexpr double least_at = 0x1.762d86356be3fp+0;  // 1.4616321449683623, where gamma is least
constexpr double huge = 0x1p1000, tiny = 0x1p-1000;

/// For y from 2 on, with i and u its whole part and the rest.
inline long double large(double y, int i, double u) {
    long double product = polynomial(tgamma_segments_wide[i >> 4], tgamma_segments[i >> 4], u);
    if (i >= 176) product *= 0x1p120f;  // that its row lacks, whose numbers would be beyond double
    for (int j = (i & 15) - (i < 16 ? 2 : 0); j > 0; --j) product *= y - static_cast<long double>(j);
    return product;
}

/// For v from 1 to 2.
inline long double small(long double v) {
    static constexpr double origins[] = {1.125, least_at, 1.625, 1.875};
    const int quarter = quarter_of(v);
    return quick_polynomial(tgamma_small_wide[quarter], tgamma_small[quarter], v - origins[quarter]);
}

inline RareStatus domain_error(double* out) {
    const double zero = runtime(0.0);
    *out = zero / zero;
    return RareStatus::domain;
}

/// In a function of its own, for the sake of the x87 unit's mode.
[[gnu::noinline]] RareStatus gamma(double x, double* out) {
    const std::uint64_t magnitude = bits(x) & 0x7fffffffffffffff;
    const bool negative = bits(x) != magnitude;
    const double one = negative ? -1 : 1;
    if (magnitude >= 0x7ff0000000000000) {
        if (bits(x) == 0xfff0000000000000) return domain_error(out);
        *out = x + x;
        return RareStatus::ordinary;
    }
    if (magnitude == 0) {
        *out = one / runtime(0.0);
        return RareStatus::pole;
    }
    if (magnitude < 0x0004000000000000) {  // 2^-1024
        *out = one * huge * runtime(huge);
        return RareStatus::overflow;
    }
    if (x > overflow_above) {
        *out = huge * runtime(huge);
        return RareStatus::overflow;
    }
    if (x <= -0x1p52) return domain_error(out);  // a whole number
    const double y = negative ? -x : x;
    const long long whole = static_cast<long long>(y);
    const double u = y - static_cast<double>(whole);
    const int i = static_cast<int>(whole);
    if (!negative) {
        *out = static_cast<double>(y >= 2 ? large(y, i, u) : y >= 1 ? small(y) : small(y + 1.0L) / y);
        return RareStatus::ordinary;
    }
    if (u == 0) return domain_error(out);
    const bool odd = whole & 1;
    if (x < zero_below) {
        *out = (odd ? tiny : -tiny) * runtime(tiny);
        return RareStatus::underflow;
    }
    const long double z = u > 0.5 ? 1 - u : u;
    const long double s = z * quick_polynomial(tgamma_sine_wide, tgamma_sine, z * z);
    const long double g = 1 / (y >= 2 ? y * s * large(y, i, u) : y >= 1 ? s * y * small(y) : s * small(y + 1.0L));
    *out = static_cast<double>(odd ? g : -g);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" RareStatus tgamma_rare(const double* x, double* out) {
    const ExtendedPrecision mode;
    return gamma(*x, out);
}

}  // namespace tuvo

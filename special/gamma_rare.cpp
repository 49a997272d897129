// The routine of double gamma. All lanes come here.
//
// Gamma of base + u, for u in [0, 1), is a series for each of sixteen cells. Up to 16 every unit has its cells, and
// what they give is the result. From there on one unit in sixteen has, and the others follow by the recurrence, in
// extended precision. Negative arguments are reflected, in extended precision, too.
#include "special/extended.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// sin(pi z) / (pi z) in z^2, coefficients of rising powers, the first five apart.
extern const long double tgamma_sine_wide[5];
extern const double tgamma_sine[7];
// gamma(base + u) for u in [0, 1), from base 1, 2, 3 ... 15, 16, 32, 48 ... 176.
extern const tuvo::Cell tgamma_cells[26][16];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr double overflow_above = f64(0x406573fae561f647, 171.6243769563027);
constexpr double zero_below = -184;  // the last result other than zero lies just below -183
constexpr double huge = 0x1p1000, tiny = 0x1p-1000;

inline const Cell& cell_of(int number, double u) { return tgamma_cells[number][static_cast<int>(u * 16)]; }

/// For y from 1 on, with i and u its whole part and the rest.
inline long double large(double y, int i, double u) {
    long double product = cell_of(i < 16 ? i - 1 : 14 + (i >> 4), u).at(static_cast<long double>(u));
    if (i < 16) return product;
    if (i >= 176) product *= 0x1p120f;  // that its row lacks, whose numbers would be beyond double
    long double factor = y;
    for (int j = i & 15; j > 0; --j) product *= factor -= 1.0f;
    return product;
}

/// gamma(1 + u) for u in (0, 1).
inline long double small(double u) { return cell_of(0, u).at(static_cast<long double>(u)); }

inline RareStatus domain_error(double* out) {
    const double zero = runtime(0.0);
    *out = zero / zero;
    return RareStatus::domain;
}

/// In a function of its own, for the sake of the x87 unit's mode.
[[gnu::noinline]] RareStatus in_extended(double x, double* out) {
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
        *out = static_cast<double>(y >= 1 ? large(y, i, u) : small(y) / y);
        return RareStatus::ordinary;
    }
    if (u == 0) return domain_error(out);
    const bool odd = whole & 1;
    if (x < zero_below) {
        *out = (odd ? tiny : -tiny) * runtime(tiny);
        return RareStatus::underflow;
    }
    const long double z = u > 0.5 ? 1 - u : u;
    const long double s = z * polynomial(tgamma_sine_wide, tgamma_sine, z * z);
    const long double g = 1 / (y >= 1 ? y * s * large(y, i, u) : s * small(y));
    *out = static_cast<double>(odd ? g : -g);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" RareStatus tgamma_rare(const double* x, double* out) {
    if (is_from(1, 16, *x)) {
        const int i = static_cast<int>(*x);
        const double u = *x - i;
        *out = cell_of(i - 1, u).at(u);
        return RareStatus::ordinary;
    }
    const ExtendedPrecision mode;
    return in_extended(*x, out);
}

}  // namespace tuvo

// The routine of float gamma. All lanes come here.
//
// It works in double, without logarithm and exponential. From 2 on, gamma(base + u) for u in [0, 1) is a product of
// quadratic factors, one set for each segment of eight units, and the other units of a segment follow by the recurrence.
// Below 2 there are polynomials. Negative arguments are reflected, with another product for the sine.
#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Rows (a1 ... a6, b1 ... b6, lead) for segments that begin at 2, 8, 16 ... 40: the factors are u^2 + a u + b.
extern const double tgammaf_segments[6][13];
// Coefficients of rising powers for each quarter of [1, 2): of v - 1, or of the distance to the least value in the second.
extern const double tgammaf_small[4][8];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

constexpr float overflow_from = f32(0x420c2910, 35.04010009765625f);
constexpr double least_at = 0x1.762d86356be3fp+0;  // 1.4616321449683623, where gamma is least
/// The leading factor of the last segment, inverse. Its row has 1 in that place.
constexpr double last_lead_inverse = 5.546450927971236e-46;

constexpr float huge = f32(0x71800000, 1.2676506e30f), tiny = f32(0x0d800000, 7.888609e-31f);  // 2^(+-100)

/// sin(pi z) / pi, z up to 1/2.
inline double sine(double z) {
    const double w = z * z;
    return z + z * (2.5312174041370274e-07 * w - 2.058547508625216e-06) * w *
                   ((w - 11.490335210033116) * w + 85.02878854883525) *
                   ((w + 1.9808040471127208) * w + 231.17374146315635) *
                   (w * (w - 9.917192693332629) + 40.65211141238636);
}

/// For y from 2 on, with i and u its whole part and the rest; in units of the last segment's leading factor there.
inline double large(double y, int i, double u) {
    const double v = u * u;
    const double(&c)[13] = tgammaf_segments[i >> 3];
    double product = c[12];
    for (int k = 0; k < 6; ++k) product *= c[k] * u + v + c[6 + k];
    double rest = 1;
    for (int j = (i & 7) - (i < 8 ? 2 : 0); j > 0; --j) rest *= y - j;
    return product * rest;
}

/// For v from 1 to 2.
inline double small(double v) {
    const int quarter = static_cast<int>(v * 4) - 4;
    const double t = v - (quarter == 1 ? least_at : 1);
    const double(&c)[8] = tgammaf_small[quarter];
    return c[0] + t * horner(t, c[7], c[6], c[5], c[4], c[3], c[2], c[1]);
}

inline RareStatus domain_error(float* out) {
    const float zero = runtime(0.0f);
    *out = zero / zero;
    return RareStatus::domain;
}

inline RareStatus gamma(float x, float* out) {
    const std::uint32_t magnitude = bits(x) & 0x7fffffff;
    const bool negative = bits(x) != magnitude;
    const float one = negative ? -1 : 1;
    if (magnitude >= 0x7f800000) {
        if (bits(x) == 0xff800000) return domain_error(out);
        *out = x + x;
        return RareStatus::ordinary;
    }
    if (magnitude == 0) {
        *out = one / runtime(0.0f);
        return RareStatus::pole;
    }
    if (magnitude <= 0x200000) {  // up to 2^-128
        *out = one * huge * runtime(huge);
        return RareStatus::overflow;
    }
    if (x >= overflow_from) {
        *out = huge * runtime(huge);
        return RareStatus::overflow;
    }
    if (x <= -8388608.0f) return domain_error(out);  // a whole number
    const double y = negative ? -x : x;
    const int i = static_cast<int>(y);
    const double u = y - i;
    if (!negative) {
        *out = static_cast<float>(y >= 2 ? large(y, i, u) : y >= 1 ? small(y) : small(y + 1) / y);
        return RareStatus::ordinary;
    }
    if (u == 0) return domain_error(out);
    const bool odd = i & 1;
    if (x < -43) {
        *out = (odd ? tiny : -tiny) * runtime(tiny);
        return RareStatus::underflow;
    }
    const double s = sine(u > 0.5 ? 1 - u : u);
    double g = 1 / (y >= 2 ? y * s * large(y, i, u) : y >= 1 ? s * y * small(y) : s * small(y + 1));
    if (x < -40) g *= last_lead_inverse;
    *out = static_cast<float>(odd ? g : -g);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" RareStatus tgammaf_rare(const float* x, float* out) { return gamma(*x, out); }

}  // namespace tuvo

// Rare routines of the double circular functions: infinities and NaN, and of sine and cosine every finite argument. The
// kernels of the default tier, and all of the tangent's, finish those themselves, however large; the short tier sends
// what lies above its limits here.
//
// The evaluation is one of its own. Arguments from 2^17 on are reduced by multiples of pi/2: up to 2^30 with pi/4 in
// parts, beyond with slices of 4/pi. What remains is within pi/4 or a little more, with a second double behind it, and
// a table of 64 points of the turn carries quadrant and sign.
#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (cosTail, sinHead, sinTail, cosHead) for the points 2 pi i / 64.
extern const double circle_points[64][4];
// 4/pi 2^200 in slices of 25 bits, from the second on; a zero at either end.
extern const double four_over_pi_slices[51];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

/// The result for an infinity or NaN, and its status.
inline RareStatus not_finite(double x, double* r) {
    if (bits(x) << 1 == 0xffe0000000000000) {
        *r = x * 0.0;  // an invalid operation
        return RareStatus::domain;
    }
    *r = x * x;  // quiet
    return RareStatus::ordinary;
}

inline RareStatus not_finite(double x, double* sine, double* cosine) {
    const RareStatus status = not_finite(x, sine);
    *cosine = *sine;
    return status;
}

inline double magnitude(double x) { return f64(bits(x) & 0x7fffffffffffffff); }

/// x less a multiple of pi/2: x = quarters pi/2 + w + wl.
struct Remainder {
    double w, wl;
    int quarters;
};

/// The remainder of |x| with the sign of x.
inline Remainder with_sign_of(double x, double w, double wl, int quarters) {
    return bits(x) >> 63 ? Remainder{-w, -wl, -quarters} : Remainder{w, wl, quarters};
}

/// 2^17 <= |x| < 2^30.
inline Remainder minus_parts(double x) {
    const double a = magnitude(x);
    const double y = a * f64(0x3ff45f306dc9c883, 1.2732395447351628);  // 4/pi
    const auto top_bits = static_cast<std::uint32_t>(((bits(y) & 0x000fffffffffffff) | 0x0010000000000000) >> 21);
    const auto q = static_cast<int>(top_bits >> (1054 - exponent_field(y)));
    const double k = q + (q & 1);  // an even number of eighths of a turn
    double w = 0, wl = 0;
    if (exponent_field(a) > 1045) {
        // Heads of pi/4 with fewer bits, for exact products with a longer k.
        const double a1 = a - f64(0x3fe921fa00000000, 0.7853975296020508) * k;
        const double b = f64(0x3ea5444300000000, 6.337954800983425e-07) * k, a2 = a1 - b;
        const double c = f64(0xbd373dca00000000, -8.256991011063031e-14) * k, a3 = a2 - c;
        const double lost = ((a1 - a2) - b) + ((a2 - a3) - c);
        const double a4 = a3 + lost;
        const double d = f64(0xbbf3b39a00000000, -6.675151087907452e-20) * k;
        w = a4 - d;
        wl = ((a3 - a4) + lost) + ((a4 - w) - d);
        wl = wl - f64(0x3a845c06e0e68948, 8.223128468162129e-27) * k;
    } else {
        const double a1 = a - f64(0x3fe921fb54000000, 0.7853981629014015) * k;
        const double b = f64(0x3e010b4612000000, 4.960467904491228e-10) * k, a2 = a1 - b;
        const double c = f64(0xbc2676733c000000, -6.088525906594782e-19) * k;
        w = a2 - c;
        wl = ((a1 - a2) - b) + ((a2 - w) - c);
        wl = wl - f64(0x3a61701b839a2520, 1.7607799325916e-27) * k;
    }
    const double sign = bits(x) >> 63 ? -1.0 : 1.0;
    const double l = wl * sign, sum = w * sign + l;
    const int quarters = (q + 1) >> 1;
    return {sum, l + (w * sign - sum), sign < 0 ? -quarters : quarters};
}

/// A sum and what its roundings lost.
struct Sum {
    double sum, lost;
    /// For |t| up to |sum|.
    void add_smaller(double t) {
        const double s = sum + t;
        lost += t + (sum - s);
        sum = s;
    }
    void add(double t) {
        const double s = sum + t, of_t = s - sum;
        lost += (sum - (s - of_t)) + (t - of_t);
        sum = s;
    }
};

/// |x| >= 2^30.
inline Remainder minus_slices(double x) {
    const int e = exponent_field(x);
    // 2^-200 |x| in two halves, of which the upper has 26 bits: its products with slices are exact.
    const double X = f64((bits(x) & 0x7fffffffffffffff) - (std::uint64_t{200} << 52));
    const double Xh = f64(bits(X) & 0xfffffffff8000000), Xl = X - Xh;
    // Slices that make multiples of the period only are left out: 25 bits each. The factor is 1/25, a bit low.
    const int j = ((e - 1052) * 83886) >> 21;
    const double* const T = four_over_pi_slices + j;

    const double p = T[0] * Xl, q = Xh * T[1];
    Sum s{p + q, 0};
    s.lost = q + (p - s.sum);
    const int cleared = 1090 - (e - 25 * j);  // leaves a multiple of 2^15 or so
    const double whole = f64(bits(s.sum + s.lost) >> cleared << cleared);
    s.sum = s.sum - whole;
    s.add_smaller(T[1] * Xl);
    s.add_smaller(Xh * T[2]);

    // The count of eighths of a turn: the integer part of the sum so far. From an odd one the remainder is taken below.
    const double S = ((s.sum + s.lost) + T[2] * Xl) + Xh * T[3];
    const int fraction_bits = 1075 - exponent_field(S);
    const std::uint64_t significand = (bits(S) & 0x000fffffffffffff) | 0x0010000000000000;
    const std::uint64_t count = fraction_bits < 53 ? significand >> fraction_bits : 0;
    s.sum = s.sum - static_cast<double>(static_cast<std::int64_t>(count));
    if (count & 1) s.sum = s.sum + -1.0;
    const auto quarters = static_cast<int>((count + 1) >> 1);

    for (int k = 2; k <= 4; ++k) {
        s.add(T[k] * Xl);
        s.add(Xh * T[k + 1]);
    }
    s.add(T[5] * Xl + Xh * T[6]);
    s.add(T[6] * Xl + Xh * T[7]);
    const double last = T[7] * Xl + Xh * T[8];

    // To radians, with the product of the heads exact.
    const double v = s.sum * f64(0x4198000000000000, 100663296.0);
    const double H = (s.sum + v) - v;
    const double L = (last + (s.sum - H)) + s.lost;
    const double head = f64(0x3fe921fb40000000, 0.7853981256484985),
                 tail = f64(0x3e64442d18469899, 3.774894977445941e-08);
    const double g = head * L + (L + H) * tail;
    const double P = H * head;
    const double w = P + g;
    return with_sign_of(x, w, (P - w) + g, quarters);
}

inline Remainder reduce(double x) {
    const int e = exponent_field(x);
    if (e < 1040) return {x, 0, 0};
    return e <= 1052 ? minus_parts(x) : minus_slices(x);
}

/// An argument by its point on the turn and the distance r + rl from it.
struct Place {
    double r, rl;
    int point;  ///< 0 to 63
};

inline Place place_of(double x) {
    const auto [w, wl, quarters] = reduce(x);
    const double shifter = 6755399441055744.0;
    const double t = w * f64(0x40245f306dc9c883, 10.185916357881302) + shifter;  // 32/pi
    const double n = t - shifter;
    const double u = w - f64(0x3fb921fb54400000, 0.09817477042088285) * n;
    const double middle = f64(0x3d90b4611a600000, 3.798187816439979e-12) * n;
    const double r = u - middle;
    const double rl = (((u - r) - middle) - n * f64(0x3b63198a2e037073, 1.2639164054974691e-22)) + wl;
    return {r, rl,
            static_cast<int>((static_cast<std::uint32_t>(quarters) * 16 + static_cast<std::uint32_t>(bits(t))) & 63)};
}

/// sin(t + r + rl) at that point t; 16 points on, the cosine.
inline double sine_around(Place place, int points_on) {
    const double* const entry = circle_points[(place.point + points_on) & 63];
    const double cos_tail = entry[0], sin_head = entry[1], sin_tail = entry[2], cos_head = entry[3];
    const double r = place.r, z = r * r;
    const double a1 = cos_tail * r, a2 = cos_head * r;
    const double u = sin_head + a2, v = u + a1;
    const double sine =
        horner(z, 2.7557319223985893e-06, -0.0001984126984126984, 0.008333333333333333, -0.16666666666666666) * z * r;
    const double cosine =
        horner(z, 2.48015873015873e-05, -0.001388888888888889, 0.041666666666666664, -0.5) * z * sin_head;
    return v + (place.rl * ((cos_tail + cos_head) - r * sin_head) + sin_tail + ((sin_head - u) + a2) + (a1 + (u - v)) +
                sine * (cos_tail + cos_head) + cosine);
}

/// Below 2^-252, where the results differ from x and 1 by less than any rounding: inexact all the same.
inline bool is_tiny(double x) { return exponent_field(x) < 771; }
inline double tiny_sine(double x) { return x == 0 ? x : (0x1p55 * x - x) * 0x1p-55; }
inline double tiny_cosine(double x) { return 1.0 - magnitude(x); }

inline bool is_finite(double x) { return exponent_field(x) != exponent_field_all_ones<double>; }

inline RareStatus sine_and_cosine(double x, double* sine, double* cosine) {
    if (!is_finite(x)) return not_finite(x, sine, cosine);
    if (is_tiny(x)) {
        *sine = tiny_sine(x);
        *cosine = tiny_cosine(x);
    } else {
        const Place place = place_of(x);
        *sine = sine_around(place, 0);
        *cosine = sine_around(place, 16);
    }
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus sin_rare(const double* x, double* r) {
    if (!is_finite(*x)) return not_finite(*x, r);
    *r = is_tiny(*x) ? tiny_sine(*x) : sine_around(place_of(*x), 0);
    return RareStatus::ordinary;
}
RareStatus cos_rare(const double* x, double* r) {
    if (!is_finite(*x)) return not_finite(*x, r);
    *r = is_tiny(*x) ? tiny_cosine(*x) : sine_around(place_of(*x), 16);
    return RareStatus::ordinary;
}
RareStatus tan_rare(const double* x, double* r) { return not_finite(*x, r); }
RareStatus sincos_rare(const double* x, double* sine, double* cosine) { return sine_and_cosine(*x, sine, cosine); }
RareStatus sincosreg_rare(const double* x, double* sine, double* cosine) { return sine_and_cosine(*x, sine, cosine); }

}  // extern "C"

}  // namespace tuvo

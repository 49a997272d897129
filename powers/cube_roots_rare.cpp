// Rare routines of the cube roots. Kernels send them zeros, subnormals, infinities and NaN; they give the root of every
// other argument too. Largest errors seen, in ulp: cbrtf_rare 0.514, rcbrtf_rare 0.5, cbrt_rare 0.501, rcbrt_rare
// 0.5031.
#include "frame/description/rare.hpp"

#pragma GCC visibility push(hidden)
extern "C" {
// Entries (hi, lo, -1/c, 0), those of remainder 0 from entry 32 on.
extern const float cbrtf_table[128][4];
// (1 + i / 32)^(-1/3), short.
extern const double cbrt_seed_table[32];
// 2^(rem / 3) as (hi, lo).
extern const double cbrt_rem_pairs[3][2];
// v^(-1/3), short, at v = (1 + (j mod 32) / 32) 2^(j div 32).
extern const double rcbrt_seed_table[97];
extern const double rcbrtf_seed_table[97];
}
#pragma GCC visibility pop

namespace tuvo {
namespace {

/// The double with that exponent field and sign: 2^(field - 1023).
constexpr double power_of_field(int field, std::uint64_t sign = 0) {
    return f64(static_cast<std::uint64_t>(field) << 52 | sign);
}

/// A number in two parts, `high` of few bits.
struct Halves {
    double high, low;
};
inline Halves split(double x, double multiplier) {
    const double t = multiplier * x;
    const double high = t - (t - x);
    return {high, x - high};
}
constexpr double split_26 = f64(0x41a0000002000000, 134217729.0);      // 2^27 + 1
constexpr double split_10 = f64(0x42a0000000000200, 8796093022209.0);  // 2^43 + 1
/// 2^37 alone leaves 16 bits.
inline double head_16(double x) {
    const double t = f64(0x4240000000000000, 137438953472.0) * x;
    return t - (t - x);
}

/// |x|^(-1/3) for finite x other than zero, with its sign.
inline double reciprocal_cube_root(double x, const double (&seeds)[97]) {
    const std::uint64_t sign = bits(x) & 0x8000000000000000;
    double a = __builtin_fabs(x);
    int offset = 0;
    if (exponent_field(a) == 0) {
        a = a * f64(0x4590000000000000, 0x1p90);
        offset = -30;
    }
    const int exponent = exponent_field(a) - exponent_bias<double>;
    int k = exponent / 3, rem = exponent - 3 * k;
    if (rem < 0) rem += 3, k -= 1;

    const double m = significand(a);
    static constexpr double doubled[] = {1.0, 2.0, 4.0};
    const double v = m * doubled[rem];
    const int i = static_cast<int>(bits(m + 140737488355329.0) & 63);  // 2^47 + 1: 32 (m - 1), rounded
    const double G = seeds[i + 32 * rem];

    // e = 1 - v G^3, and v^(-1/3) = G (1 - e)^(-1/3). G has 12 bits, the heads 16: these products are exact.
    const double vh = head_16(v);
    const double vl = v - vh;
    const double g3 = G * G * G;
    const double e0 = 1.0 - vh * g3;
    const double e = e0 - g3 * vl;
    const double eh = head_16(e0);
    const double c3 = f64(0x3fd5556000000000, 0.33333587646484375);  // 1/3 in 16 bits; the polynomial has the rest
    const double h = eh * G * c3;
    const double p = horner(e, 0.09152383574483905, 0.10047703844314275, 0.11095911313417617, 0.1248285050618767,
                            0.14403292171950535, 0.17283950617560911, 0.22222222222222693) *
                         e * e +
                     (-2.5431315104610494e-06 * e - g3 * vl * c3);
    const double tail = (p + (e0 - eh) * c3) * G + ((G - (G + h)) + h);
    return ((G + h) + tail) * power_of_field(exponent_bias<double> - (offset + k), sign);
}

template <class T>
inline RareStatus reciprocal_cube_root_of_any(T x, T* r, const double (&seeds)[97]) {
    constexpr T infinity = __builtin_huge_val();
    if (x != x) {
        *r = x / x;
        return RareStatus::ordinary;
    }
    if (x == infinity || x == -infinity) {
        *r = T(0) / x;
        return RareStatus::ordinary;
    }
    if (x == 0) {
        *r = T(1) / runtime(x);
        return RareStatus::pole;
    }
    *r = static_cast<T>(reciprocal_cube_root(x, seeds));
    return RareStatus::ordinary;
}

/// The steps of the float kernel.
inline float cube_root(float x) {
    const std::uint32_t b = bits(x);
    const int e = exponent_field(x);
    const int q = e * 1365 >> 12;
    const int rem = (e - 1) - 3 * q;
    const auto [Th, Tl, R, unused] = cbrtf_table[32 + 32 * rem + static_cast<int>(b >> 18 & 31)];
    const float t = (f32((b & 0x007fffff) | 0xbf800000) - f32((b & 0x007e0000) | 0xbf820000)) * R;
    const float S = f32(static_cast<std::uint32_t>(q + 85) << 23 | (b & 0x80000000));
    const float H = Th * S, L = Tl * S;
    const float p = horner(t, f32(0xbd288f47, -0.041152265f), f32(0x3d7cd6ea, 0.061728396f),
                           f32(0xbde38e39, -0.11111111f), f32(0x3eaaaaab, 0.33333334f));
    return H + (p * (t * H) + L);
}

/// a^(1/3), a normal.
inline double cube_root(double a, int scaled_by) {
    const int field = exponent_field(a);
    const int whole = static_cast<int>(std::uint64_t{0x55555556} * static_cast<std::uint64_t>(field) >> 32);
    const auto [rh, rl] = cbrt_rem_pairs[field - 3 * whole];
    const double m = significand(a);
    const double G = cbrt_seed_table[bits(m) >> 47 & 31];

    // e = 1 - m G^3, and m^(1/3) = G^2 m (1 - e)^(-2/3) = W (1 + e P(e)), W = w + v. G has 8 bits and the head of m 10.
    const double mh = split(m, split_10).high;
    const double w = mh * (G * G);  // exact
    const double e0 = 1.0 - G * w;  // exact
    const double v = G * G * (m - mh);
    const double eh = split(e0, split_26).high;
    const double el = (e0 - eh) - G * v;
    const double e = eh + el;

    // P in two parts: the constant term 2/3 has a tail.
    const double q = horner(e, 0.3196059153185365, 0.3287375128990661, 0.3390105601771619, 0.35070057949361577,
                            0.3641890633202933, 0.3800233704211756, 0.39902453894223444, 0.4224965706447188,
                            0.45267489711934156, 0.49382716049382713, 0.5555555555555556) *
                     e;
    const double two_thirds = f64(0x3fe5555555555555, 0.6666666666666666);
    const double P = two_thirds + q;
    const double Pl = ((two_thirds - P) + q) + 3.700743415417188e-17;

    // W + W e P as head + tail. The head of W P has 26 bits, as eh has.
    const double W = w + v;
    const auto [zh, zl] = split(W * P, split_26);
    const double rest = ((w - W) + v) * P;  // what the product W P misses of its first factor
    const auto [Wh, Wl] = split(W, split_26);
    const auto [Ph, Pm] = split(P, split_26);
    const double zr = ((((Wh * Ph - W * P) + Wh * Pm) + Wl * Ph) + Wl * Pm) + (rest + W * Pl);
    const double product = eh * zh;  // exact
    const double low = eh * (zl + zr) + el * (zh + zl);
    const double head = w + product;
    const double tail = ((w - head) + product) + (low + v);

    // Times 2^(rem / 3), by parts.
    const double sum = head + tail;
    const double sum_low = (head - sum) + tail;
    const auto [sh, sl] = split(sum, split_26);
    const double result = sh * rh + ((sl * rh + sum * rl) + sum_low * rh);
    return result * power_of_field(whole - 341 + exponent_bias<double> - scaled_by);
}

}  // namespace

extern "C" {

RareStatus cbrtf_rare(const float* x, float* r) {
    const float y = 1.0f * runtime(*x);
    if (exponent_field(y) == exponent_field_all_ones<float>)
        *r = y + y;
    else if (y == 0.0f)
        *r = y;
    else if (exponent_field(y) == 0)
        *r = cube_root(y * f32(0x7e800000, 0x1p126f)) * f32(0x2a800000, 0x1p-42f);
    else
        *r = cube_root(y);
    return RareStatus::ordinary;
}

RareStatus rcbrtf_rare(const float* x, float* r) { return reciprocal_cube_root_of_any(*x, r, rcbrtf_seed_table); }
RareStatus rcbrt_rare(const double* x, double* r) { return reciprocal_cube_root_of_any(*x, r, rcbrt_seed_table); }

RareStatus cbrt_rare(const double* argument, double* r) {
    const double x = *argument;
    if (exponent_field(x) == exponent_field_all_ones<double>) {
        *r = x + x;
    } else if (x == 0.0) {
        *r = runtime(x) * 1.0;
    } else {
        const double a = __builtin_fabs(x);
        const double root =
            exponent_field(a) == 0 ? cube_root(a * f64(0x52b0000000000000, 0x1p300), 100) : cube_root(a, 0);
        *r = x < 0.0 ? -root : root;
    }
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

// Cube roots and their reciprocals: cbrt, rcbrt.
//
// x = 2^(3 k) 2^rem m, with rem 0 to 2 and m in [1, 2). m lies in one of 32 intervals with middles c, so that with
// t = m / c - 1, of 1/65 at most,
//     x^(1/3) = 2^k (c 2^rem)^(1/3) (1 + t)^(1/3).
// The second factor comes from a table, in default tiers with a tail; the third is the start of its binomial series.
// The reciprocal root is the same with -1/3. The exponent is divided by three as an integer, by a product with 1/3 in
// fixed point; the two bits below its whole part tell the remainder.
#include "frame/description/families.hpp"
#include "powers/cube_root_tables.hpp"

namespace tuvo {
namespace {

// Float.

/// 1365 e, that is e / 3 with 12 fraction bits. For an exponent field e other than 0, the bits from 12 up are
/// floor((e - 1) / 3), and the two below them are 1 to 3 for a remainder of 0 to 2.
I32 third(I32 field) {
    const I32 by_5 = field + (field << 2);
    const I32 by_85 = by_5 + (by_5 << 4);
    return by_5 + (by_85 << 4);
}

void rare_unless_normal(F32 x) { rare_if((bits(abs(x)) - i32(0x80800000)) > i32(0xfeffffff)); }

/// The significand over the middle of its interval, less 1. `R` is -1 over the middle.
F32 relative_distance(F32 x, F32 R) {
    const F32 minus_m = (x & f32(0x007fffff)) | f32(0xbf800000);
    const F32 minus_c = (x & f32(0x007e0000)) | f32(0xbf820000);  // the bit below the five that are kept
    return ((minus_m - minus_c) * R).as("t");
}

/// 2^k or 2^-k, with the sign of x. `power` is 2^23 (k + 42).
F32 scale(CubeRoot which, F32 x, I32 power) {
    const I32 field = which == CubeRoot::direct ? power + i32(0x2a800000) : i32(0x54800000) - power;  // 85, 169
    return (as_float(field) | sign_bit(x)).as("scale");
}

template <CubeRoot which, std::size_t N>
F32 float_default(F32 x, const std::uint32_t (&polynomial)[N]) {
    const I32 quotient = third((bits(x) >> 23) & i32(0xff));
    rare_unless_normal(x);
    const I32 offset = ((quotient >> 1) & i32(0x600)) + ((bits(x) >> 14) & i32(0x1f0));
    const int roots = table(float_cube_root_pairs(which), "root (hi, lo), -1/c");
    const auto [Th, Tl, R, unused] = gather_quad<Type::f32>(roots, offset);
    const F32 t = relative_distance(x, R);
    const F32 S = scale(which, x, (quotient << 11) & i32(0x7f800000));
    const F32 H = (Th * S).as("H");
    const F32 L = (Tl * S).as("L");
    return H + (horner(t, polynomial) * (t * H) + L);
}

template <CubeRoot which>
F32 float_native(F32 x, std::uint32_t slope) {
    const I32 quotient = third((bits(x) >> 23) & i32(0xff));
    rare_unless_normal(x);
    const I32 offset = ((quotient >> 2) & i32(0x300)) + ((bits(x) >> 15) & i32(0xf8));
    const auto [T, R] = gather_pair<Type::f32>(table(float_cube_root_values(which), "root, -1/c"), offset);
    const F32 t = relative_distance(x, R);
    const F32 H = (T * scale(which, x, (quotient << 11) & i32(0x7f800000))).as("H");
    return H + (H * t) * f32(slope);
}

constexpr std::uint32_t third_power[] = {
    0xbd288f47,  // -0.041152265
    0x3d7cd6ea,  // 0.061728396
    0xbde38e39,  // -0.11111111
    0x3eaaaaab,  // 0.33333334
};
constexpr std::uint32_t minus_third_power[] = {
    0x3e137d5e,  // 0.14403293
    0xbe30fcd7,  // -0.17283951
    0x3e638e39,  // 0.22222222
    0xbeaaaaab,  // -0.33333334
};

F32 cbrtf_default(F32 x) { return float_default<CubeRoot::direct>(x, third_power); }
F32 rcbrtf_default(F32 x) { return float_default<CubeRoot::reciprocal>(x, minus_third_power); }
F32 cbrtf_native(F32 x) { return float_native<CubeRoot::direct>(x, third_power[3]); }
F32 rcbrtf_native(F32 x) { return float_native<CubeRoot::reciprocal>(x, minus_third_power[3]); }

// Double. The field's steps are in words of 32 bits, four lanes to a register.

/// 5462 e, that is e / 3 with 14 fraction bits. The bits from 14 up are floor(e / 3), and the two below them e mod 3.
I32 double_third(I32 high) { return ((high >> 20) & i32(0x7ff)) * i32(0x1556); }

void rare_unless_normal(I32 high) { rare_if(((high & i32(0x7fffffff)) - i32(0x80100000)) > i32(0xffdfffff)); }

F64 relative_distance(F64 x, F64 R) {
    const F64 minus_m = (x & f64(0x000fffffffffffff)) | f64(0xbff0000000000000);
    const F64 minus_c = (x & f64(0x000fc00000000000)) | f64(0xbff0400000000000);
    return ((minus_m - minus_c) * R).as("t");
}

/// 2^k or 2^-k, with the sign of x. `power` is 2^20 (k + 341).
F64 scale(CubeRoot which, I32 high, I32 power) {
    const I32 field = which == CubeRoot::direct ? power + i32(0x2aa00000) : i32(0x55400000) - power;  // 682, 1364
    return as_float(join_words(field | (high & i32(0x80000000)), i32(0))).as("scale");
}

struct DoubleParts {
    I32 row;  ///< of a table of 96 entries
    F64 S;
};
DoubleParts double_parts(CubeRoot which, F64 x) {
    const I32 high = high_word(x), quotient = double_third(high);
    rare_unless_normal(high);
    const I32 row = ((quotient >> 7) & i32(0x60)) + ((high >> 15) & i32(0x1f));
    return {claim_range(row, 0, 95), scale(which, high, (quotient << 6) & i32(0x7ff00000))};
}

template <CubeRoot which, const auto& polynomial>
F64 double_by_value(F64 x) {
    const auto [row, S] = double_parts(which, x);
    const auto [T, R] = gather_pair<Type::f64>(table(double_cube_root_values(which), "root, -1/c"), row << 4);
    const F64 t = relative_distance(x, R);
    const F64 H = (T * S).as("H");
    return H + horner(t, polynomial) * (t * H);
}

template <CubeRoot which, const auto& polynomial>
F64 double_by_pair(F64 x) {
    const auto [row, S] = double_parts(which, x);
    const int roots = table(double_cube_root_pairs(which), "root (hi, lo), -1/c");
    const auto [Th, Tl, R, unused] = gather_quad<Type::f64>(roots, row << 5);
    const F64 t = relative_distance(x, R);
    const F64 H = (Th * S).as("H");
    const F64 L = (Tl * S).as("L");
    return H + (horner(t, polynomial) * (t * H) + L);
}

constexpr std::uint64_t double_third_power[] = {
    0x3f93750ad588f115,  // 0.019001168521058782
    0xbf98090d6221a247,  // -0.023472031702484377
    0x3f9ee7113506ac12,  // 0.03017832647462277
    0xbfa511e8d2b3183b,  // -0.0411522633744856
    0x3faf9add3c0ca458,  // 0.06172839506172839
    0xbfbc71c71c71c71c,  // -0.1111111111111111
    0x3fd5555555555555,  // 0.3333333333333333
};
constexpr std::uint64_t double_third_power_native[] = {
    0x3faf9add3c0ca458,  // 0.06172839506172839
    0xbfbc71c71c71c71c,  // -0.1111111111111111
    0x3fd5555555555555,  // 0.3333333333333333
};
constexpr std::uint64_t double_minus_third_power[] = {
    0x3fb791d4f50a7b47,  // 0.0920689676517955
    0xbfb9b33ca7a65562,  // -0.10039118855487097
    0x3fbc67c9dd3d11bb,  // 0.11095868731815177
    0xbfbff4c33f90ef5f,  // -0.1248285322371294
    0x3fc26fabb85d0196,  // 0.14403292181124233
    0xbfc61f9add3c0ca3,  // -0.17283950617283947
    0x3fcc71c71c71c71c,  // 0.2222222222222222
    0xbfd5555555555555,  // -0.3333333333333333
};
constexpr std::uint64_t double_minus_third_power_native[] = {
    0x3fc26fabb85d0196,  // 0.14403292181124233
    0xbfc61f9add3c0ca3,  // -0.17283950617283947
    0x3fcc71c71c71c71c,  // 0.2222222222222222
    0xbfd5555555555555,  // -0.3333333333333333
};

const std::vector<std::uint64_t> float_thresholds{0x00800000, 0x7f7fffff};
const std::vector<std::uint64_t> thresholds{0x0010000000000000, 0x7fefffffffffffff};

// Errors repeat with every third power of two.
const Describe families[] = {
    {{"cbrtf"}, describe(cbrtf_default), {.ulp = 0.5140, .worst = {0x409424b7}, .thresholds = float_thresholds}},
    {{"cbrtf_native"}, describe(cbrtf_native), {.ulp = 355.9, .worst = {0x40800000}, .thresholds = float_thresholds}},
    {{"rcbrtf"}, describe(rcbrtf_default), {.ulp = 0.5143, .worst = {0x3f8ff693}, .thresholds = float_thresholds}},
    {{"rcbrtf_native"}, describe(rcbrtf_native), {.ulp = 888.7, .worst = {0x3f800017}, .thresholds = float_thresholds}},
    {{"cbrt"},
     describe(double_by_value<CubeRoot::direct, double_third_power>),
     {.ulp = 1.124, .worst = {0x3fe20002dcc2ce14}, .thresholds = thresholds}},
    {{"cbrt_native"},
     describe(double_by_value<CubeRoot::direct, double_third_power_native>),
     {.ulp = 1.676e7, .worst = {0x3fe0000001d1493f}, .thresholds = thresholds}},
    {{"rcbrt"},
     describe(double_by_pair<CubeRoot::reciprocal, double_minus_third_power>),
     {.ulp = 0.5460, .worst = {0x3ff0003020b283a0}, .thresholds = thresholds}},
    {{"rcbrt_native"},
     describe(double_by_value<CubeRoot::reciprocal, double_minus_third_power_native>),
     {.ulp = 977500, .worst = {0x3ff00000000c62be}, .thresholds = thresholds}},
};

}  // namespace
}  // namespace tuvo

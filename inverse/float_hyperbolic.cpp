// Float hyperbolic functions: sinhf, coshf, tanhf.
//
// For the sine and the cosine, a = |x| = n ln 2 + r. With sh = (2^n - 2^-n) / 2 and ch = (2^n + 2^-n) / 2, the addition
// formulas give
//     sinh a = sh cosh r + ch sinh r,    cosh a = ch cosh r + sh sinh r,
// where only cosh r - 1 and sinh r are polynomials: sh and ch, the large terms, are added last and rounded once. There
// is no exponential and no reciprocal of one, and for small arguments, where n = 0 and sh = 0, nothing cancels.
//
// The tangent is a table of cubics, in double.
#include "frame/description/families.hpp"
#include "inverse/hyperbolic_tables.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t shifter = 0x4b400000;  // 12582912 = 1.5 2^23
constexpr std::uint32_t log2_e = 0x3fb8aa3b;   // 1.442695
constexpr std::uint32_t half = 0x3f000000;
constexpr std::uint32_t limit = 0x42aeac4e;  // 87.33653: n is 126 at most, and 2^(-n-1) normal

/// |x| in n steps of ln 2 and a rest of half a step at most.
struct Reduction {
    F32 r;
    F32 sh, ch;  ///< the hyperbolic sine and cosine of n ln 2
};
Reduction reduce(F32 a) {
    const F32 W = (a * f32(log2_e) + f32(shifter)).as("W");
    const F32 n = (W - f32(shifter)).as("n");
    const F32 r = ((a - n * f32(0x3f317000)) - n * f32(0x3805fdf4)).as("r");  // 0.69311523, 3.1946183e-05
    const I32 E = bits(W) << 23;
    const F32 p = as_float(i32(half) + E).as("2^n / 2");
    const F32 q = as_float(i32(half) - E).as("2^-n / 2");
    return {r, (p - q).as("sh"), (p + q).as("ch")};
}

/// The polynomials of the default tier.
struct OfRest {
    F32 sinh;
    F32 cosh_less_one;
};
OfRest of_rest(F32 r) {
    const F32 r2 = (r * r).as("r^2");
    const F32 S = r + r * (r2 * (r2 * f32(0x3c091461) + f32(0x3e2aaa57)));           // 0.008366675, 0.16666542
    const F32 C = r2 * (r2 * (r2 * f32(0x3ab6a8a3) + f32(0x3d2aaa72)) + f32(half));  // 0.0013935756, 0.041666456
    return {S.as("sinh r"), C.as("cosh r - 1")};
}

F32 sinh_default(F32 x) {
    const F32 a = abs(x);
    rare_if(!(a <= f32(limit)));
    const auto [r, sh, ch] = reduce(a);
    const auto [S, C] = of_rest(r);
    return (sh + (ch * S + C * sh)) | sign_bit(x);
}

// The limit itself is the cosine's rare lane.
F32 cosh_default(F32 x) {
    const F32 a = abs(x);
    rare_if(!(a < f32(limit)));
    const auto [r, sh, ch] = reduce(a);
    const auto [S, C] = of_rest(r);
    return ch + (sh * S + C * ch);
}

/// The polynomials of the native tier: sinh r = r C1 and cosh r = 1 + r^2 C2.
struct Short {
    F32 C1, C2;
};
Short short_of_rest(F32 r) {
    const F32 r2 = r * r;
    return {r2 * f32(0x3e2ccd2e) + f32(0x3f7ffbc9),   // 0.16875145, 0.9999356
            r2 * f32(0x3d2ca395) + f32(0x3efffb2f)};  // 0.04214819, 0.4999632
}

F32 sinh_native(F32 x) {
    const F32 a = abs(x);
    rare_if(!(a <= f32(limit)));
    const auto [r, sh, ch] = reduce(a);
    const auto [C1, C2] = short_of_rest(r);
    return (sh + r * (r * (C2 * sh) + C1 * ch)) | sign_bit(x);
}

F32 cosh_native(F32 x) {
    const F32 a = abs(x);
    rare_if(!(a < f32(limit)));
    const auto [r, sh, ch] = reduce(a);
    const auto [C1, C2] = short_of_rest(r);
    return ch + r * (r * (C2 * ch) + C1 * sh);
}

F32 tanh_default(F32 x) {
    const F32 a = abs(x);
    rare_if(!(a < f32(0x7f080000)));  // 1.80775007e+38
    // The row is the exponent and four bits of the fraction, of arguments held between the first row and the last.
    const std::uint32_t first = 0x3cf80000, last = 0x41200000;  // 0.030273438, 10
    const F32 held = max(min(a, f32(last)), f32(first));
    const I32 offset = claim_range((bits(held) >> 19) << 5, first >> 14, last >> 14).as("table offset");
    const auto [c0, c1, c2, c3] =
        gather_quad<Type::f64>(table(tanhf_kernel_table(), "cubics of tanh"), offset, first >> 14);
    const F64 ad = to_f64(a);
    const F64 P = ((c3 * ad + c2) * ad + c1) * ad + c0;
    return to_f32(P) | sign_bit(x);
}

// Half a step, where n starts to be 1; the limit; the last finite results, and where the rare routine ends.
const std::vector<std::uint64_t> thresholds{0x3eb17218, limit, 0x42b2d4fc, 0x42b2d4fd};

/// The end of the vector path, and the first arguments of the rows.
std::vector<std::uint64_t> rows() {
    std::vector<std::uint64_t> patterns{0x7f080000};
    for (std::uint32_t pattern = 0x3d000000; pattern <= 0x41200000; pattern += 0x00080000) patterns.push_back(pattern);
    return patterns;
}

const Describe families[] = {
    {{"sinhf"}, describe(sinh_default), {.ulp = 2.024, .worst = {0x3ec465e2}, .thresholds = thresholds}},
    {{"coshf"}, describe(cosh_default), {.ulp = 1.842, .worst = {0x4100219b}, .thresholds = thresholds}},
    {{"sinhf_native"}, describe(sinh_native), {.ulp = 1080, .worst = {0x397fffff}, .thresholds = thresholds}},
    {{"coshf_native"}, describe(cosh_native), {.ulp = 380.7, .worst = {0x40ff1498}, .thresholds = thresholds}},
    // The rows from 2 on are the widest for what the tangent bends there: 0.53 is the cubic's.
    {{"tanhf", "tanhf_native"}, describe(tanh_default), {.ulp = 1.027, .worst = {0xc006d5d2}, .thresholds = rows()}},
};

}  // namespace
}  // namespace tuvo

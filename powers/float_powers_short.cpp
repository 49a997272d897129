// The short float powers: a polynomial logarithm and exponential in plain floats, without a table.
//
//     ln x = e ln 2 + ln(1 + t),  with x = 2^e (1 + t) and 1 + t in [2/3, 4/3).
//
// The product with y has one float's bits, so the error grows with it, by some 64 ulp for each unit of the exponent.
#include "frame/description/families.hpp"
#include "powers/float_power_sign.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t limit = 0x42ae9a00;  // 87.30078: the result is normal up to there

constexpr std::uint32_t logarithm_polynomial[] = {
    0x3e2b350c,  // 0.16719455
    0xbe424b46,  // -0.18974027
    0x3e4b62c0,  // 0.19861889
    0xbe7f0f0f,  // -0.24908088
    0x3eaaad03,  // 0.33335122
    0xbf000000,  // -0.5
};
constexpr std::uint32_t exponential_polynomial[] = {
    0x3e2963ac,  // 0.16541928
    0x3f00f2d6,  // 0.5037054
    0x3f8003de,  // 1.000118
    0x3f800000,  // 1
};
constexpr std::uint32_t integer_exponential_polynomial[] = {
    0x3e2c359f,  // 0.1681733
    0x3f014935,  // 0.5050233
    0x3f7ffc0b,  // 0.9999396
    0x3f7ffb0d,  // 0.9999245: 0 doesn't give 1
};

/// ln a for normal a > 0.
F32 logarithm(F32 a) {
    const I32 u = bits(a) - i32(0x3f2aaaab);
    const F32 e = to_f32(shift_right_signed(u, 23)).as("e");
    const F32 m = as_float((u & i32(0x007fffff)) + i32(0x3f2aaaab));
    const F32 t = (m - 1.0f).as("t");
    const F32 q = horner(t, logarithm_polynomial);
    return (e * f32(0x3f317200) + (e * f32(0x35bfbe8e) + (t + t * (t * q)))).as("L");  // 0.69314575, 1.4286068e-06
}

F32 exponential(F32 z, const std::uint32_t (&polynomial)[4]) {
    rare_if(!(abs(z) <= f32(limit)));
    const F32 shifter = f32(0x4b400000);                          // 12582912
    const F32 v = (z * f32(0x3fb8aa3b) + shifter).as("n");        // 1 / ln 2, 1.442695
    const F32 f = (z - (v - shifter) * f32(0x3f317218)).as("f");  // ln 2, 0.6931472
    return scaled_power_of_two(horner(f, polynomial), v);
}

F32 power(F32 x, F32 y) {
    rare_unless_power_base(x);
    rare_unless_finite(y);
    return exponential(logarithm(x) * y, exponential_polynomial);
}

F32 pownf_native(F32 x, I32 n) {
    const F32 a = abs(x);
    rare_unless_power_base(a);
    return exponential(logarithm(a) * to_f32(n), integer_exponential_polynomial) | sign_of_odd_power(x, n);
}

F32 rootnf_native(F32 x, I32 n) {
    const F32 a = abs(x);
    rare_unless_power_base(a);
    rare_if(as_mask(even_power_of_negative(x, n)));
    const F32 y = (1.0f / to_f32(n)).as("1 / n");
    rare_unless_finite(y);
    return exponential(logarithm(a) * y, integer_exponential_polynomial) | sign_of_odd_power(x, n);
}

// 4/3 starts an interval of the logarithm.
const std::vector<std::uint64_t> thresholds{0x00800000, 0x7f7ffffe, 0x3f2aaaab, 0x3faaaaab};

const Describe families[] = {
    {{"powf_native", "powf_rm", "powrf_native", "powrf_half"},
     describe(power),
     {.ulp = 4471, .worst = {0x3faaabfd, 0xc3972cc4}, .thresholds = thresholds}},
    {{"pownf_native"},
     describe(pownf_native),
     {.ulp = 4984, .worst = {0x3faab236, 0xfffffed3}, .thresholds = thresholds}},
    {{"rootnf_native"},
     describe(rootnf_native),
     {.ulp = 1399, .worst = {0x0b800b7f, 0xffffffff}, .thresholds = thresholds}},
};

}  // namespace
}  // namespace tuvo

// Float exponentials: expf, exp2f, exp10f, expm1f.
//
// x = n s + r with a small remainder r, where s is the exponent's step: the logarithm, in the base at hand, of 2^(1/N).
// Then b^x = 2^(n/N) b^r. The low part of n picks 2^(j/N) from a table (N = 1 needs none), the rest goes to the
// exponent field by integer steps, and b^r is a polynomial. All but the shortest forms take n s off in two parts, the
// head with so few bits that its product with any n is exact.
//
// n is found by a shifter: added to a number, it rounds it to an integer, which stands in the low bits of the sum's
// pattern. From there it is shifted to the exponent field, and all above it falls off.
#include "explog/exponential_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t infinity = 0x7f800000;
constexpr std::uint32_t exponent_mask = 0x7f800000;
constexpr std::uint32_t integer_shifter = 0x4b400000;  // 12582912 = 1.5 2^23
constexpr std::uint32_t one = 0x3f800000;
constexpr std::uint32_t log2_e = 0x3fb8aa3b;         // 1.442695
constexpr std::uint32_t exp_limit = 0x42aeac4f;      // 87.33654: e^-x is normal up to here
constexpr std::uint32_t exp_overflow = 0x42b17217;   // 88.722832
constexpr std::uint32_t exp_underflow = 0xc2cff1b4;  // -103.97208
constexpr std::uint32_t exp2_limit = 0x42fc0000;     // 126
constexpr std::uint32_t exp10_limit = 0x4217b818;    // 37.929779
constexpr std::uint32_t expm1_limit = 0x42ad496b;    // 86.643394

constexpr std::uint32_t exp_rm_polynomial[] = {
    0x3c07d9fe,  // 0.0082917195
    0x3d2b8392,  // 0.041873522
    0x3e2aacac,  // 0.16667432
    0x3effff34,  // 0.49999392
    0x3f7ffffe,  // 0.99999988
    0x3f800000,  // 1
};
constexpr std::uint32_t exp_native_polynomial[] = {
    0x3d63582b,  // 0.055504005
    0x3e77d66a,  // 0.24202886
    0x3f317422,  // 0.6931783
    0x3f800000,  // 1
};
constexpr std::uint32_t exp2_polynomial[] = {
    0x39213c8c,  // 0.00015376712
    0x3aaf7a51,  // 0.0013387894
    0x3c1d962c,  // 0.0096183233
    0x3d6357cf,  // 0.055503663
    0x3e75fdef,  // 0.24022649
    0x3f317218,  // 0.6931472
    0x3f800000,  // 1
};
// Of least error over the whole interval, at 0 too: powers of integers come out as 0.99992806 times the exact one.
constexpr std::uint32_t exp2_native_polynomial[] = {
    0x3d61fbcc,  // 0.055171773
    0x3e786f13,  // 0.24261121
    0x3f31798d,  // 0.69326097
    0x3f7ffb49,  // 0.99992806
};

struct Rounded {
    F32 S;  ///< the sum with the shifter; its pattern holds the integer in the low bits
    F32 n;  ///< the integer as a float
};

Rounded round_to_integer(F32 y) {
    const F32 S = (y + f32(integer_shifter)).as("S");
    return {S, (S - f32(integer_shifter)).as("n")};
}

/// 2^n times a value near 1, by adding n to its exponent field.
F32 times_power_of_two(F32 value, F32 S) { return as_float((bits(S) << 23) + bits(value)); }

/// The same where the result is a normal number. In wide parts the product spares taking the value apart for an integer
/// step and joining it again: 6 to 10 % of a call at widths 8 and 16, as much as it would cost at the narrow ones.
F32 times_power_of_two_if_normal(F32 value, F32 S) {
    const F32 power = as_float((bits(S) + i32(0x7f)) << 23);
    return by_part_size(times_power_of_two(value, S), power * value);
}

void rare_beyond(F32 x, std::uint32_t limit) { rare_if(!(abs(x) <= f32(limit))); }

/// The same lanes by an integer compare, which finds a NaN above every limit.
void rare_beyond_pattern(F32 x, std::uint32_t limit) { rare_if(bits(abs(x)) > i32(limit)); }

/// Rare lanes whose result is infinity or zero for sure get it without the rare routine, and raise no flag.
F32 saturated_exp(F32 x, F32 result) {
    return repair(result, [&]() -> Repaired<Type::f32> {
        const M32 over = x > f32(exp_overflow), under = x < f32(exp_underflow);
        const InBlock pool(InBlock::pool);
        return {over | under, where(over, f32(infinity))};
    });
}

F32 exp_default(F32 x) {
    // n counts quarters of a binade: N = 4. The shifter carries 508 = 4 * 127, the bias of the exponent, besides.
    const F32 t = round(x * f32(0x40b8aa3b), RoundTo::nearest_even).as("n");  // 4 log2(e), 5.7707801
    const F32 S = (t + f32(0x4b4001fc)).as("S");                              // 12583420
    const F32 r = ((x - t * f32(0x3e317000)) - t * f32(0x3705fdf4)).as("r");  // 0.17327881, 7.9865458e-06
    rare_beyond(x, exp_limit);
    // 2^(j/4) = b (1 + a), with a the relative remainder beyond the float b.
    const F32 a = lookup4(quad_f32({0, 0x33092801, 0x329302ae, 0xb27ce182}), bits(S)).as("a");
    const F32 b = lookup4(quad_f32({one, 0x3f9837f0, 0x3fb504f3, 0x3fd744fd}), bits(S)).as("b");
    const F32 p = (r * f32(0x3d2abb12) + f32(0x3e2abb12)) * r + f32(0x3effffff);  // 0.04168231, 0.16672924, 0.49999997
    const F32 u = r + (p * (r * r) + a);
    const F32 v = b + u * b;
    const F32 scale = as_float((bits(S) << 21) & i32(exponent_mask)).as("2^(n/4)");
    return saturated_exp(x, v * scale);
}

F32 exp_rm(F32 x) {
    const auto [S, n] = round_to_integer(x * f32(log2_e));
    rare_beyond_pattern(x, exp_limit);
    const F32 r = ((x - n * f32(0x3f317200)) - n * f32(0x35bfbe8e)).as("r");  // 0.69314575, 1.4286068e-06
    return saturated_exp(x, times_power_of_two_if_normal(horner(r, exp_rm_polynomial), S));
}

F32 exp_native(F32 x) {
    const F32 y = x * f32(log2_e);
    const auto [S, n] = round_to_integer(y);
    rare_beyond_pattern(x, exp_limit);
    return saturated_exp(x, times_power_of_two_if_normal(horner(y - n, exp_native_polynomial), S));
}

template <std::size_t N>
F32 power_of_two(F32 y, const std::uint32_t (&polynomial)[N]) {
    const auto [S, n] = round_to_integer(y);
    return times_power_of_two(horner((y - n).as("f"), polynomial), S);
}

F32 exp2_default(F32 x) {
    rare_beyond_pattern(x, exp2_limit);
    return power_of_two(x, exp2_polynomial);
}

F32 exp2_native(F32 x) {
    rare_beyond_pattern(x, exp2_limit);
    return power_of_two(x, exp2_native_polynomial);
}

F32 exp10_native(F32 x) {
    rare_beyond_pattern(x, exp10_limit);
    return power_of_two(x * f32(0x40549a78), exp2_native_polynomial);  // log2(10), 3.321928
}

F32 exp10_default(F32 x) {
    const auto [S, n] = round_to_integer(x * f32(0x43d49a78));  // 128 log2(10), 425.20679
    rare_beyond_pattern(x, exp10_limit);
    const I32 j = bits(S) & i32(0x7f);
    const I32 high = and_not(i32(0x7f), bits(S));
    const auto [hi, lo] = gather_pair<Type::f32>(table(exp10f_kernel_table(), "2^(j/128)"), j << 3);
    const F32 r = ((x - n * f32(0x3b1a4000)) - n * f32(0xb5fb2bd8)).as("r");  // 0.0023536682, -1.8713717e-06
    const F32 q = r * (r * f32(0x4029a929) + f32(0x40135d97));                // 2.6509497, 2.3025873
    const F32 w = hi + (q * hi + lo);
    return as_float(bits(w) + (high << 16));
}

// In both forms of expm1 the shifter's sum has an ulp below 1, so that its pattern holds n as a byte offset: the low
// bits index the table as they are, those above are the biased exponent. The table holds fraction fields, which take
// their exponent by an or. The 1 is taken off the table's value, ahead of the small terms; the sign of x comes in last,
// for -0 and for what rounds to it.

F32 expm1_default(F32 x) {
    const F32 t = round(x * f32(0x42b8aa3b), RoundTo::nearest_even).as("n");  // 64 log2(e), 92.332481
    const F32 r = ((x - t * f32(0x3c318000)) - t * f32(0xb65e8083)).as("r");  // 0.010833740, -3.3155382e-06
    const I32 S = bits(t + f32(0x49f0fe00)).as("8 n");                        // 1974208
    rare_beyond(x, expm1_limit);
    const F32 scale = as_float((S & i32(0x1fe00)) << 14).as("2^(n/64)");
    const auto [hi, lo] = gather_pair<Type::f32>(table(expm1f_kernel_table(), "2^(j/64)"), S & i32(0x1f8));
    const F32 T = (hi | scale).as("T");
    const F32 Tl = (lo * scale).as("T's tail");
    const F32 q = r + (r * f32(0x3e2aaabf) + f32(0x3f00000f)) * (r * r);  // 0.16666697, 0.50000089
    const F32 g = Tl + (T + f32(0xbf800000));                             // -1
    const F32 h = g - f32(0xbf800000);
    return (h * q + g) | sign_bit(x);
}

F32 expm1_native(F32 x) {
    const F32 t = round(x * f32(0x4238aa3b), RoundTo::nearest_even).as("n");  // 32 log2(e), 46.166241
    const F32 r = (x - t * f32(0x3cb17218)).as("r");                          // ln 2 / 32, 0.021660849
    const I32 S = bits(t + f32(0x4a403f80)).as("4 n");                        // 3149792
    rare_beyond(x, expm1_limit);
    const F32 scale = as_float((S & i32(0x7f80)) << 16).as("2^(n/32)");
    const F32 T = gather<Type::f32>(table(expm1f_native_kernel_table(), "2^(j/32)"), S & i32(0x7c)) | scale;
    const F32 q = r + (r * r) * f32(0x3f00000f);  // 0.50000089
    return (T * q + (T + f32(0xbf800000))) | sign_bit(x);
}

const Describe families[] = {
    {{"expf"},
     describe(exp_default),
     {.ulp = 0.7865, .worst = {0x42128ac8}, .thresholds = {exp_limit, exp_overflow, exp_underflow}}},
    {{"expf_rm"},
     describe(exp_rm),
     {.ulp = 2.933, .worst = {0xc0bc884d}, .thresholds = {exp_limit, exp_overflow, exp_underflow}}},
    {{"expf_native", "expf_half"},
     describe(exp_native),
     {.ulp = 2169, .worst = {0x429ebb12}, .thresholds = {exp_limit, exp_overflow, exp_underflow}}},
    {{"exp2f", "exp2f_rm"}, describe(exp2_default), {.ulp = 1.102, .worst = {0xbefffacf}, .thresholds = {exp2_limit}}},
    {{"exp2f_native", "exp2f_half"},
     describe(exp2_native),
     {.ulp = 1231, .worst = {0xbcc27b90}, .thresholds = {exp2_limit}}},
    {{"exp10f"}, describe(exp10_default), {.ulp = 0.5565, .worst = {0x42107df2}, .thresholds = {exp10_limit}}},
    {{"exp10f_native", "exp10f_half", "exp10f_rm"},
     describe(exp10_native),
     {.ulp = 1305, .worst = {0x4217b13a}, .thresholds = {exp10_limit}}},
    {{"expm1f"}, describe(expm1_default), {.ulp = 1.802, .worst = {0x3cdf30e3}, .thresholds = {expm1_limit}}},
    {{"expm1f_native"}, describe(expm1_native), {.ulp = 283.7, .worst = {0x3c31723d}, .thresholds = {expm1_limit}}},
};

}  // namespace
}  // namespace tuvo

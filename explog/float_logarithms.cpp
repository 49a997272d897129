// Float logarithms: logf, log2f, log10f, log1pf.
//
// Except for the table-driven tiers of log10f and log1pf, x = 2^e y with y in [2/3, 4/3), so that r = y - 1 is small on
// both sides of 1 and log x near 1 suffers no cancellation between e ln 2 and ln y. ln(1 + r) is a minimax polynomial.
// Without a fused multiply-add, e ln 2 is kept exact by a ln 2 in two parts, the head with trailing zero bits.
#include "explog/float_logarithm_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t two_thirds = 0x3f2aaaab;
constexpr std::uint32_t four_thirds = 0x3faaaaab;
constexpr std::uint32_t fraction_mask = 0x007fffff;
constexpr std::uint32_t smallest_normal = 0x00800000;
constexpr std::uint32_t largest_finite = 0x7f7fffff;
constexpr std::uint32_t ln2 = 0x3f317218;       // 0.693147182
constexpr std::uint32_t ln2_head = 0x3f317200;  // 0.693145752, 15 bits: its product with any exponent is exact
constexpr std::uint32_t ln2_tail = 0x35bfbe8e;  // 1.42860677e-06

constexpr std::uint32_t log_default_polynomial[] = {
    0xbe0402c8,  // -0.12891686
    0x3e0f335d,  // 0.13984437
    0xbdf9889e,  // -0.12184261
    0x3e0f6b8c,  // 0.1400587
    0xbe2acee6,  // -0.16680488
    0x3e4ce814,  // 0.20010406
    0xbe7fff78,  // -0.24999797
    0x3eaaaa83,  // 0.33333215
    0xbf000000,  // -0.5
};
constexpr std::uint32_t log_half_polynomial[] = {
    0xbe1b6a22,  // -0.15177205
    0x3e2db86b,  // 0.16964881
    0xbe289358,  // -0.16462457
    0x3e4afb81,  // 0.19822504
    0xbe80061d,  // -0.25004664
    0x3eaaaee7,  // 0.33336565
    0xbf000000,  // -0.5
};
constexpr std::uint32_t log_native_polynomial[] = {
    0x3e612933,  // 0.21988373
    0xbe88e8fe,  // -0.26740259
    0x3eaa7160,  // 0.33289623
    0xbf000000,  // -0.5
};
constexpr std::uint32_t log2_native_polynomial[] = {
    0x3eaae01b,  // 0.33374104
    0xbecb686c,  // -0.39728105
    0x3ef4fa41,  // 0.47847179
    0xbf38658a,  // -0.72029936
    0x3fb8aaed,  // 1.4427162
};
constexpr std::uint32_t log10_native_polynomial[] = {
    0x3dcdc127,  // 0.10046607
    0xbdf4ed71,  // -0.11959351
    0x3e137dbe,  // 0.14403436
    0xbe5e0922,  // -0.21683171
    0x3ede5cae,  // 0.43430084
};

struct Split {
    I32 exponent;
    F32 e;  ///< the exponent as a float
    F32 r;  ///< y - 1
};

/// x = 2^e y with y in [2/3, 4/3). Subtracting the pattern of 2/3 lets the exponent field change at 2/3 and 4/3.
Split split_at_two_thirds(F32 x) {
    const I32 offset = bits(x) - i32(two_thirds);
    const I32 exponent = shift_right_signed(offset, 23);
    const F32 e = to_f32(exponent).as("e");
    const F32 y = as_float((offset & i32(fraction_mask)) + i32(two_thirds));
    const F32 r = (y - 1.0f).as("r = y - 1");
    return {exponent, e, r};
}

/// One integer compare for zero, subnormals, negative numbers (sign set) and infinity and NaN (the sum wraps).
void rare_unless_positive_normal(F32 x) {
    rare_if(i32(0x01000000) > bits(x) + i32(smallest_normal));
}

/// The same lanes by two floating-point compares; a NaN is caught by the negated one.
void rare_outside_positive_normal(F32 x) {
    rare_if((x < f32(smallest_normal)) | !(x <= f32(largest_finite)));
}

/// ln(1 + r), with r added last so that its rounding is the only one of its size.
template <std::size_t N>
F32 log_of_one_plus(F32 r, const std::uint32_t (&polynomial)[N]) {
    return (r + r * (r * horner(r, polynomial))).as("ln y");
}

F32 log_default(F32 x) {
    const auto [exponent, e, r] = split_at_two_thirds(x);
    rare_unless_positive_normal(x);
    const F32 s = log_of_one_plus(r, log_default_polynomial);
    return e * f32(ln2_head) + (e * f32(ln2_tail) + s);
}

template <std::size_t N>
F32 log_short(F32 x, const std::uint32_t (&polynomial)[N]) {
    const auto [exponent, e, r] = split_at_two_thirds(x);
    rare_unless_positive_normal(x);
    return e * f32(ln2) + log_of_one_plus(r, polynomial);
}
F32 log_half(F32 x) { return log_short(x, log_half_polynomial); }
F32 log_native(F32 x) { return log_short(x, log_native_polynomial); }

F32 log2_default(F32 x) {
    const auto [exponent, e, r] = split_at_two_thirds(x);
    rare_outside_positive_normal(x);
    // Four chains in r^2 shorten the latency of Horner's scheme.
    const F32 z = (r * r).as("z = r^2");
    const F32 a = r * f32(0x3e554012) + f32(0xbe638e14);  // 0.20825222, -0.22222167
    const F32 b = r * f32(0x3e4d660b) + f32(0xbe727824);  // 0.20058458, -0.23678643
    const F32 d = r * f32(0x3e93dd07) + f32(0xbeb8b969);  // 0.28879568, -0.36078957
    const F32 g = r * f32(0x3ef637c0) + f32(0xbf38aa2b);  // 0.48089409, -0.72134656
    F32 t = a * z + b;
    t = t * z + d;
    t = t * z + g;
    const F32 u = r * t + f32(0x3fb8aa3b);  // 1.442695
    return r * u + e;
}

F32 log2_native(F32 x) {
    const auto [exponent, e, r] = split_at_two_thirds(x);
    rare_outside_positive_normal(x);
    return r * horner(r, log2_native_polynomial) + e;
}

F32 log10_native(F32 x) {
    const auto [exponent, e, r] = split_at_two_thirds(x);
    rare_outside_positive_normal(x);
    const F32 q = horner(r, log10_native_polynomial);
    return r * q + e * f32(0x3e9a209b);  // log10(2), 0.30103001
}

// Reciprocal-table forms. R, a small integer near C / m, takes m to R m near C with products of few bits, so that the
// offset s = R m - C is found without a rounding; log(C / R) comes from a table, with the exponent's bias folded in.

/// The exponent field of a positive number, as a float.
F32 exponent_field(I32 pattern) { return to_f32(pattern >> 23).as("exponent field"); }

/// Byte offset into a table of 8-byte entries that is indexed by the integer R: its pattern without the low bits that
/// stay zero. `bias` is the offset that the pattern of the first R gives.
std::pair<F32, F32> entry_of(int entries, F32 R, std::uint32_t first, std::uint32_t last) {
    const I32 offset = claim_range(bits(R) >> 13, first, last).as("table offset");
    return gather_pair<Type::f32>(entries, offset, first);
}

struct FastSum {
    F32 sum, error;
};
/// a + b and the rounding error, exact if |a| <= |b|.
FastSum fast_two_sum(F32 a, F32 b) {
    const F32 sum = a + b;
    return {sum, a - (sum - b)};
}

F32 log10_default(F32 x) {
    const F32 C = f32(0x3ede0000);  // 0.43359375, near log10(e) in few bits
    const F32 f = exponent_field(bits(x));
    const F32 m = as_float((bits(x) & i32(fraction_mask)) | i32(0x3b000000)).as("m");  // in [2^-9, 2^-8)
    rare_outside_positive_normal(x);
    const F32 R = round(reciprocal_approximation(m) * C, RoundTo::nearest_even).as("R");
    const F32 mh = as_float(bits(m) & i32(0xffffff00)).as("m head");  // R has 8 bits, so R * mh is exact
    const F32 ml = (m - mh).as("m tail");
    const F32 s = ((mh * R - C) + R * ml).as("s");
    // bits(R) >> 13 is 0x216f0 for R = 111 and 0x21af0 for R = 222.
    const auto [hi, lo] = entry_of(table(log10f_kernel_table(), "log10(C / R)"), R, 0x216f0, 0x21af0);
    const F32 A = f * f32(0x3e9a2100) + hi;  // log10(2) head, 0.30103302
    const F32 B = f * f32(0xb64af600) + lo;  // log10(2) tail, -3.0247e-06
    const F32 g = s * f32(0x3fe35103) + f32(0xbf93d7e4);  // 1.7759098, -1.155026
    const F32 p = s * g + f32(0x3ad3d366);                // 0.0016161024: C is not exactly log10(e)
    const F32 q = s * p;
    const auto [w, v] = fast_two_sum(s, A);
    return ((q + B) + v) + w;
}

struct OnePlus {
    F32 hi, lo;  ///< the larger and the smaller of 1 and x
    F32 u;       ///< their rounded sum
};
OnePlus one_plus(F32 x) {
    const F32 one = f32(0x3f800000);
    const F32 hi = max(one, x), lo = min(one, x);
    return {hi, lo, (hi + lo).as("u = 1 + x")};
}

F32 log1p_default(F32 x) {
    const auto [hi, lo, u] = one_plus(x);
    const F32 sign = sign_bit(x);
    rare_if((x < f32(0xbf7fffff)) | !(x <= f32(0x7a800000)));  // -0.99999994, 3.3230699e35
    // For all but tiny arguments the head of u has 16 bits, so that R * uh is exact.
    const F32 uh = (u & select(abs(x) < f32(0x39800000), f32(0xffffffff), f32(0xffffff00))).as("u head");
    const F32 rest = (lo + (hi - uh)).as("rest");
    const F32 f = exponent_field(bits(uh));
    const F32 m = as_float((bits(uh) & i32(fraction_mask)) | i32(0x3b800000)).as("m");  // in [2^-8, 2^-7)
    const F32 R = round(reciprocal_approximation(m), RoundTo::nearest_even).as("R");
    const F32 scale = as_float(i32(0x7b000000) - (bits(uh) & i32(0x7f800000)));  // R * uh * scale is near 1
    const F32 Rs = (scale * R).as("R scaled");
    const F32 y = uh * Rs - 1.0f;
    const F32 w = Rs * rest;
    const F32 v = (y + w).as("v");
    const F32 c = (w - (v - y)).as("v's error");
    // bits(R) >> 13 is 0x21800 for R = 128 and 0x21c00 for R = 256.
    const auto [table_hi, table_lo] = entry_of(table(log1pf_kernel_table(), "ln(256 / R)"), R, 0x21800, 0x21c00);
    const F32 A = f * f32(ln2_head) + table_hi;
    const F32 B = f * f32(0x35bfbe00) + table_lo;  // ln 2 tail, 1.42859e-06
    const F32 p = v * f32(0x3eaaab39) + f32(0xbf000036);  // 0.33333758, -0.50000322
    const F32 Q = p * (v * v) + c;
    const auto [W, V] = fast_two_sum(v, A);
    const F32 t = ((B + V) + Q) + W;
    return t | sign;  // -0 stays -0; any other negative x has a negative logarithm already
}

F32 log1p_native(F32 x) {
    const auto [hi, lo, u] = one_plus(x);
    const F32 sign = sign_bit(x);
    // Below the normal range, negative, or an exponent field of 254 or more, where the sum wraps.
    rare_if(i32(0x01800000) > bits(u) + i32(0x01000000));
    const F32 low = lo + (hi - u);
    const auto [exponent, e, r0] = split_at_two_thirds(u);
    const F32 scale = as_float(i32(0x3f800000) - (exponent << 23));  // 2^-e
    const F32 r = r0 + low * scale;
    const F32 s = log_of_one_plus(r, log_native_polynomial);
    return (e * f32(ln2) + s) | sign;
}

const Describe families[] = {
    {{"logf", "logf_rm"}, describe(log_default),
     {.ulp = 1.034, .worst = {0x00003b60}, .thresholds = {smallest_normal, two_thirds, four_thirds, largest_finite}}},
    {{"logf_half"}, describe(log_half),
     {.ulp = 3.965, .worst = {0x3f61feba}, .thresholds = {smallest_normal, two_thirds, four_thirds, largest_finite}}},
    {{"logf_native"}, describe(log_native),
     {.ulp = 1568, .worst = {0x3f475fc3}, .thresholds = {smallest_normal, two_thirds, four_thirds, largest_finite}}},
    {{"log2f", "log2f_rm"}, describe(log2_default),
     {.ulp = 2.612, .worst = {0x3faab675}, .thresholds = {smallest_normal, two_thirds, four_thirds, largest_finite}}},
    {{"log2f_native", "log2f_half"}, describe(log2_native),
     {.ulp = 893.6, .worst = {0x3f8b9599}, .thresholds = {smallest_normal, two_thirds, four_thirds, largest_finite}}},
    {{"log10f"}, describe(log10_default),
     {.ulp = 0.7757,
      .worst = {0x3f804026},
      .stand_in = StandIn::low,
      .thresholds = {smallest_normal, largest_finite}}},
    {{"log10f_native", "log10f_half"}, describe(log10_native),
     {.ulp = 995.8, .worst = {0x3faaaaee}, .thresholds = {smallest_normal, two_thirds, four_thirds, largest_finite}}},
    // 2^-12, where the head of u is cut, and the ends of the vector path.
    {{"log1pf"}, describe(log1p_default),
     {.ulp = 0.6703,
      .worst = {0xbb673d0c},
      .stand_in = StandIn::high,
      .thresholds = {0x39800000, 0xbf7fffff, 0x7a800000}}},
    // 1 + x at 2/3, 4/3 and 2^127, and the last x above -1.
    {{"log1pf_native"}, describe(log1p_native),
     {.ulp = 1568, .worst = {0xbe6280f4}, .thresholds = {0xbeaaaaab, 0x3eaaaaab, 0x7f000000, 0xbf7fffff}}},
};

}  // namespace
}  // namespace tuvo

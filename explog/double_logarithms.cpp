// Double logarithms: log, log2, log10, log1p.
//
// x = 2^(E - 1023) m, and R, the integer nearest to 1024 / m, makes the residual s = R m / 1024 - 1 so small that a
// short polynomial finishes:
//     log x = (E - 1023) log 2 + log(1024 / R) + log(1 + s).
// The processor's narrow reciprocal tells R, so that processors differ where 1024 / m is close to a half. Either R will
// do: whatever it is, s is the residual that belongs to it, and log(1024 / R) comes from a table of all 513.
#include "explog/double_logarithm_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t fraction_mask = 0x000fffffffffffff;
constexpr std::uint64_t smallest_normal = 0x0010000000000000;
constexpr std::uint64_t largest_finite = 0x7fefffffffffffff;
constexpr std::uint64_t one = 0x3ff0000000000000;

/// The base of a logarithm. With s reduced, log(1 + s) = scale s + s^2 (b + s^2 a), where a and b are linear in s: the
/// coefficient of s, then the constant.
struct Base {
    std::uint64_t a[2];
    std::uint64_t b[2];
    std::uint64_t scale;  ///< log e
    std::uint64_t log_2;
    RawTable (*table)();
};

constexpr Base natural{
    {0x3fc9999cacdb4d0a, 0xbfd0000148058ee1},  // 0.2000003665949424, -0.2500003054940248
    {0x3fd55555555543c5, 0xbfdffffffffff81f},  // 0.33333333333308374, -0.49999999999988803
    one,
    0x3fe62e42fefa39ef,  // 0.6931471805599453
    log_kernel_table,
};
constexpr Base binary{
    {0x3fd2776e996da1d2, 0xbfd715494c3e7c9b},  // 0.2885395525286444, -0.3606742138453655
    {0x3fdec709dc39e926, 0xbfe71547652b7cf8},  // 0.48089834696260636, -0.7213475204443105
    0x3ff71547652b82fe,                        // 1.4426950408889634
    one,
    log2_kernel_table,
};
constexpr Base decimal{
    {0x3fb63c65231fbd16, 0xbfbbcb7d4efbe80b},  // 0.08685905559081095, -0.10857375315018218
    {0x3fc287a7636f341e, 0xbfcbcb7b1526de36},  // 0.14476482730097556, -0.21714724095157728
    0x3fdbcb7b1526e50e,                        // 0.4342944819032518
    0x3fd34413509f79ff,                        // 0.3010299956639812
    log10_kernel_table,
};

F64 linear(F64 s, const std::uint64_t (&coefficients)[2]) { return s * f64(coefficients[0]) + f64(coefficients[1]); }

/// s^2 (b + s^2 a).
F64 tail(F64 s, const Base& base) {
    const F64 z = s * s;
    return z * (linear(s, base.a) * z + linear(s, base.b));
}

F64 times(F64 v, std::uint64_t factor) { return factor == one ? v : v * f64(factor); }

/// Below the first pattern, above the second, or a NaN.
void rare_outside(F64 x, std::uint64_t least, std::uint64_t greatest) {
    rare_if((x < f64(least)) | !(x <= f64(greatest)));
}

struct Reduction {
    F64 m;  ///< the significand, scaled to [2^-10, 2^-9)
    F64 R;  ///< the integer next to the estimate of 1 / m: 512 to 1024
};
Reduction reduce(F64 x) {
    const F64 m = ((x & f64(fraction_mask)) | f64(0x3f50000000000000)).as("m");
    const F64 R = round(to_f64(reciprocal_approximation(to_f32(m))), RoundTo::nearest_even).as("R");
    return {m, R};
}

F64 exponent_field(F64 x) { return to_f64(high_word(x) >> 20).as("exponent field"); }

/// The entry for R of a table of 2^`log2_size` bytes an entry. The offset is the pattern of R, whose low bits are zeros
/// for integers, with the pattern of R = 512 as its bias.
struct Entry {
    I32 offset;
    std::int64_t bias;
};
Entry entry_of(F64 R, int log2_size) {
    const int shift = 11 - log2_size;
    const std::int64_t first = 0x40800000 >> shift, last = 0x40900000 >> shift;  // 512 and 1024
    return {claim_range(high_word(R) >> shift, first, last).as("table offset"), first};
}

/// k log 2 + T is the logarithm of 2^(E - 1023) 1024 / R. A factor of 2 goes from T to k for R up to 724, next to
/// 512 sqrt(2). So both are zero for x near 1, on either side, where they would drown a small result.
struct Exponent {
    F64 k;
    F64 T;
};
Exponent split_exponent(F64 x, F64 R, const Base& base) {
    const F64 bias = where(R > 724.0, f64(0x408ff80000000000)) | f64(0x408ff00000000000);  // 1023.0, or 1022.0 alone
    const F64 k = (exponent_field(x) - bias).as("k");
    const auto [offset, table_bias] = entry_of(R, 3);
    const F64 T = gather<Type::f64>(table(base.table(), "log(1024 / R) or log(512 / R)"), offset, table_bias).as("T");
    return {k, T};
}

template <const Base& base>
F64 log_default(F64 x) {
    const auto [m, R] = reduce(x);
    rare_outside(x, smallest_normal, largest_finite);
    const F64 mh = (m & f64(0xfffffffffc000000)).as("m head");  // 27 bits beside the 10 of R
    const F64 ml = (m - mh).as("m tail");
    const F64 u = mh * R - 1.0;  // exact
    const F64 v = R * ml;
    const F64 s = (u + v).as("s");
    const auto [k, T] = split_exponent(x, R, base);
    return ((tail(s, base) + times(s, base.scale)) + T) + times(k, base.log_2);
}

template <const Base& base>
F64 log_native(F64 x) {
    const auto [m, R] = reduce(x);
    rare_outside(x, smallest_normal, largest_finite);
    const F64 s = (m * R - 1.0).as("s");
    const auto [k, T] = split_exponent(x, R, base);
    return ((linear(s, base.b) * (s * s) + times(s, base.scale)) + T) + times(k, base.log_2);
}

constexpr std::uint64_t above_minus_one = 0xbfefffffffffffff;  // -0.9999999999999999
constexpr std::uint64_t log1p_greatest = 0x7f3ffffffffff000;   // 8.77779851006591e+304; m / u is normal up to there

struct OnePlus {
    F64 hi, lo;  ///< the larger and the smaller of 1 and x
    F64 u;       ///< their rounded sum
};
OnePlus one_plus(F64 x) {
    const F64 one = 1.0;
    return {max(one, x), min(one, x), (one + x).as("u = 1 + x")};
}

/// R m - 1 for u and for the rest of 1 + x behind it.
struct Residual {
    F64 y;  ///< that of u
    F64 w;  ///< what the rest adds
};
Residual residual(F64 u, F64 rest, const Reduction& reduction) {
    const auto [m, R] = reduction;
    const F64 scale = as_float(i64(0x7f40000000000000) - (bits(u) & i64(0x7ff0000000000000)));  // m / u
    return {m * R - 1.0, (rest * (R * scale)).as("w")};
}

F64 log1p_default(F64 x) {
    const auto [hi, lo, u] = one_plus(x);
    rare_outside(x, above_minus_one, log1p_greatest);
    // For all but tiny arguments the head of u has 43 bits, so that R times it is exact.
    const I64 head_mask = bits(abs(x) < f64(0x3e00000000000000)) | i64(0xfffffffffffffc00);  // below 2^-31
    const F64 uh = (u & as_float(head_mask)).as("u head");
    const F64 rest = ((hi - uh) + lo).as("rest");
    const F64 sign = sign_bit(x);
    const Reduction reduction = reduce(uh);
    const auto [y, w] = residual(uh, rest, reduction);
    const F64 v = (y + w).as("v");
    const F64 c = (w - (v - y)).as("v's error");

    // The exponent's bias is in the table. ln 2 has a head and a tail, whose products with the exponent are exact, and
    // so are A and its sum with v in two parts.
    const F64 E = exponent_field(uh);
    const auto [offset, table_bias] = entry_of(reduction.R, 4);
    const int entries = table(log1p_kernel_table(), "ln(1024 / R) - 1023 ln 2");
    const auto [table_hi, table_lo] = gather_pair<Type::f64>(entries, offset, table_bias);
    const F64 A = E * f64(0x3fe62e42fefa0000) + table_hi;  // 0.6931471805582987
    const F64 B = E * f64(0x3d7cf79abc9e0000) + table_lo;  // 1.6465949582866463e-12
    const F64 W = v + A;
    const F64 V = v - (W - A);
    const F64 t = (V + (tail(v, natural) + (B + c))) + W;
    return t | sign;  // -0 stays -0; any other negative x has a negative logarithm already
}

F64 log1p_native(F64 x) {
    const auto [hi, lo, u] = one_plus(x);
    rare_outside(x, above_minus_one, log1p_greatest);
    const F64 rest = ((hi - u) + lo).as("rest");
    const Reduction reduction = reduce(u);
    const auto [y, w] = residual(u, rest, reduction);
    const F64 v = (w + y).as("v");
    const auto [k, T] = split_exponent(u, reduction.R, natural);
    return linear(v, natural.b) * (v * v) + ((v + T) + times(k, natural.log_2));
}

// R passes 724 at these.
constexpr std::uint64_t break_above_one = 0x3ff69d3d4e44322d;  // 1024 / 724.5
constexpr std::uint64_t break_below_one = 0x3fe69d3d4e44322d;

const std::vector<std::uint64_t> thresholds{smallest_normal, largest_finite, break_below_one, break_above_one};
// Both ends of the vector path, and where the head of u is cut.
const std::vector<std::uint64_t> log1p_thresholds{above_minus_one, log1p_greatest, 0x3e00000000000000};

constexpr const char* near_one =
    "Next to 1, an estimate that is off by nearly all that is allowed picks the entry of the table beside that of 1 "
    "itself. The result is then the small difference of this entry and the logarithm of the residual, which magnifies "
    "their rounding errors beyond the limit";

Accuracy line(double ulp, std::uint64_t worst, StandIn stand_in, const char* beyond_profile = nullptr) {
    return {.ulp = ulp,
            .worst = {worst},
            .stand_in = stand_in,
            .thresholds = thresholds,
            .beyond_profile = beyond_profile != nullptr,
            .remark = beyond_profile};
}

const Describe families[] = {
    {{"log"}, describe(log_default<natural>), line(4.189, 0x3ff00083898f7601, StandIn::low, near_one)},
    {{"log_native"}, describe(log_native<natural>), line(7.473e6, 0x3feffb00efff9e00, StandIn::high)},
    {{"log2"}, describe(log_default<binary>), line(11.34, 0x3ff000af4e5a8766, StandIn::low, near_one)},
    {{"log2_native"}, describe(log_native<binary>), line(1.079e7, 0x3feffb00efff4600, StandIn::high)},
    {{"log10"}, describe(log_default<decimal>), line(11.2, 0x3ff0008fb806bfe0, StandIn::low, near_one)},
    {{"log10_native"}, describe(log_native<decimal>), line(8.55e6, 0x3ff0008030002d00, StandIn::low)},
    {{"log1p"},
     describe(log1p_default),
     {.ulp = 2.201,
      .worst = {0xbf43fcac023d05f3},
      .stand_in = StandIn::high,
      .thresholds = log1p_thresholds,
      .beyond_profile = true,
      .remark = near_one}},
    {{"log1p_native"},
     describe(log1p_native),
     {.ulp = 7.473e6, .worst = {0xbf43fc400047ffff}, .stand_in = StandIn::high, .thresholds = log1p_thresholds}},
};

}  // namespace
}  // namespace tuvo

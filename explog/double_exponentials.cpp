// Double exponentials: exp, exp2, exp10, expm1.
//
// x is n steps of log(2) / N and a rest of half a step at most, in the unit of the base. The exponential of the rest is
// a short polynomial; 2^(n / N) is entry n mod N of a table times a power of two. Where the polynomial is long enough,
// N is 1 and there is no table.
//
// Adding a shifter, whose ulp is the size of a step, leaves n in the low bits of the sum's pattern: the lowest bits are
// the index, and those above it are moved to the exponent field. There they are added to the pattern of the rest of the
// result, or, in expm1, or-ed to the fraction from the table. All lanes that the vector path finishes have normal
// results, so that this never leaves the exponent field.
//
// Without a fused multiply-add, the rest stays accurate by a step in two parts: the head has trailing zero bits enough
// for its product with any n to be exact. The native tiers make do with one part.
#include "explog/double_exponential_tables.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t shifter = 0x4338000000000000;          // 6755399441055744, 1.5 2^52
constexpr std::uint64_t decimal_shifter = 0x4338800000000000;  // 6896136929411072; its further bit is shifted out
constexpr std::uint64_t infinity = 0x7ff0000000000000;
constexpr std::uint64_t exponent_mask = 0xfff0000000000000;

constexpr std::uint64_t steps_128 = 0x40671547652b82fe;  // 184.6649652337873, 128 log2(e)
constexpr std::uint64_t step_128 = 0x3f762e42fefa39ef;   // 0.0054152123481245725, ln(2) / 128

// The last high words of |x| that the vector path finishes: results are normal up to there, and a little beyond.
constexpr std::uint32_t last_natural = 0x4086232a;  // |x| < 708.39599609375
constexpr std::uint32_t last_binary = 0x408fefff;   // |x| < 1022
constexpr std::uint32_t last_decimal = 0x40733a70;  // |x| < 307.652587890625

constexpr std::uint64_t expm1_limit = 0x40861da04cbafe43;  // 707.7032713517041

constexpr std::uint64_t exp_polynomial[] = {
    0x3fc5555555555556,  // 0.16666666666666669
    0x3fe0000001ebfbe0,  // 0.5000000035796539
    0x3ff0000000000000,  // 1
    0x3ff0000000000000,  // 1
};
constexpr std::uint64_t exp_native_polynomial[] = {
    0x3fdffffc2808f7e8,  // 0.49999908361121337
    0x3ff0000000000000,  // 1
    0x3ff0000000000000,  // 1
};
constexpr std::uint64_t exp2_polynomial[] = {
    0x3f83b2ab5bb1268f,  // 0.009618128524510964
    0x3fac6b09b180f045,  // 0.05550413409989167
    0x3fcebfbdff82ca48,  // 0.24022650695913428
    0x3fe62e42fefa3685,  // 0.6931471805598483
};
constexpr std::uint64_t exp10_polynomial[] = {
    0x3fe144c03efafb54,  // 0.5396424512945068
    0x3ff2bd767584db59,  // 1.1712555494866221
    0x4000470591ccea8b,  // 2.0346785917911965
    0x40053524c73ce8e3,  // 2.650949055239026
    0x40026bb1bbb55516,  // 2.302585092994046
};
// The polynomials without a table spread their error over the whole interval, so that 0 doesn't give 1.
constexpr std::uint64_t exp2_native_polynomial[] = {
    0x3f241d3336b2ae61,  // 0.0001534581200294148
    0x3f55f456a8adf058,  // 0.0013399931219444574
    0x3f83b2dbbc0fe08e,  // 0.009618488957116502
    0x3fac6aed4b950ae1,  // 0.0555032877696442
    0x3fcebfbdadcb0ba8,  // 0.24022646890634047
    0x3fe62e430c7e923c,  // 0.6931472057372683
    0x3ff0000000261500,  // 1.0000000005541665
};
constexpr std::uint64_t exp10_native_polynomial[] = {
    0x3f241d33368291c7,  // 0.0001534581199439512
    0x3f55f456a8c99bd5,  // 0.00133999312233767
    0x3f83b2dbbc1073af,  // 0.00961848895718184
    0x3fac6aed4b94d44a,  // 0.05550328776954723
    0x3fcebfbdadcb0a4d,  // 0.24022646890633084
    0x3fe62e430c7e9264,  // 0.6931472057372727
    0x3ff0000000261501,  // 1.0000000005541667
};

/// One integer compare for arguments that are too large, infinite or NaN.
void rare_beyond(F64 x, std::uint32_t last_high_word) {
    rare_if((high_word(x) & i32(0x7fffffff)) > i32(last_high_word));
}

/// The table's 2^(j / 2^index_bits), by the lowest bits of the shifted sum.
F64 power_of(F64 S, int index_bits, const char* name) {
    const int powers = table(powers_table(1 << index_bits), name);
    const I32 j = low_word(S) & i32((1u << index_bits) - 1);
    return gather<Type::f64>(powers, j << 3).as("T");
}

/// Moves the integer above the index to the exponent field and adds it to w's pattern.
F64 scaled(F64 w, F64 S, int index_bits) {
    const I64 high = bits(S) & i64(~std::uint64_t{0} << index_bits);
    return as_float(bits(w) + (high << (52 - index_bits)));
}
/// The same without a table: everything above the integer falls off.
F64 scaled(F64 w, F64 S) { return as_float(bits(w) + (bits(S) << 52)); }

/// Results that are plainly infinite or zero need no rare routine. It is left with those near the ends of the range,
/// and with NaNs.
F64 repaired_ends(F64 x, F64 result) {
    return repair(result, [&] {
        const M64 over = x > f64(0x40862e42fefa39ef);   // 709.782712893384
        const M64 under = x < f64(0xc0874910d52d3051);  // -745.1332191019411
        InBlock pool(InBlock::pool);
        return Repaired<Type::f64>{over | under, where(over, f64(infinity))};
    });
}

F64 exp_default(F64 x) {
    const F64 t = x * f64(0x40971547652b82fe);  // 1477.3197218702985, 1024 log2(e)
    const F64 S = (t + f64(shifter)).as("S");
    const F64 n = round(t, RoundTo::nearest_even).as("n");
    rare_beyond(x, last_natural);
    // ln(2) / 1024: 0.0006769015431018488 and 4.137227896298129e-13.
    const F64 r = ((x - n * f64(0x3f462e42fec00000)) - n * f64(0x3d5d1cf79abc9e3b)).as("r");
    const F64 p = horner(r, exp_polynomial);
    return repaired_ends(x, scaled(power_of(S, 10, "2^(j / 1024)") * p, S, 10));
}

F64 exp_native(F64 x) {
    const F64 S = (x * f64(steps_128) + f64(shifter)).as("S");
    const F64 n = (S - f64(shifter)).as("n");
    rare_beyond(x, last_natural);
    const F64 r = (x - n * f64(step_128)).as("r");
    const F64 p = horner(r, exp_native_polynomial);
    return repaired_ends(x, scaled(power_of(S, 7, "2^(j / 128)") * p, S, 7));
}

F64 exp2_default(F64 x) {
    const F64 binary_shifter = f64(0x42c8000000000000);  // 52776558133248, 1.5 2^45: seven fraction bits stay
    const F64 S = (x + binary_shifter).as("S");
    const F64 n = (S - binary_shifter).as("n");
    const F64 f = (x - n).as("f");
    rare_beyond(x, last_binary);
    const F64 g = horner(f, exp2_polynomial);
    const F64 T = power_of(S, 7, "2^(j / 128)");
    return scaled(T + g * (f * T), S, 7);
}

F64 exp2_native(F64 x) {
    const F64 S = (x + f64(shifter)).as("S");
    const F64 n = (S - f64(shifter)).as("n");
    const F64 f = (x - n).as("f");
    rare_beyond(x, last_binary);
    return scaled(horner(f, exp2_native_polynomial), S);
}

F64 exp10_default(F64 x) {
    const F64 S = (x * f64(0x407a934f0979a371) + f64(decimal_shifter)).as("S");  // 425.20679614558236, 128 log2(10)
    const F64 n = (S - f64(decimal_shifter)).as("n");
    rare_beyond(x, last_decimal);
    // log10(2) / 128: 0.0023517968411397305 and -1.487744411497209e-14.
    const F64 r = ((x - n * f64(0x3f63441350a00000)) - n * f64(0xbd10c0219dc1da99)).as("r");
    const F64 q = horner(r, exp10_polynomial) * r;
    const F64 T = power_of(S, 7, "2^(j / 128)");
    const F64 w = T + q * T;
    return as_float(bits(w) + ((bits(S) << 45) & i64(exponent_mask)));
}

F64 exp10_native(F64 x) {
    const F64 t = x * f64(0x400a934f0979a371);  // 3.321928094887362, log2(10)
    const F64 S = (t + f64(decimal_shifter)).as("S");
    const F64 n = (S - f64(decimal_shifter)).as("n");
    const F64 f = (t - n).as("f");
    rare_beyond(x, last_decimal);
    return scaled(horner(f, exp10_native_polynomial), S);
}

// In expm1 the subtraction of 1 comes before the polynomial's share is added, and is exact for the head of the scaled
// entry: a small result loses nothing to cancellation. The sign of x is or-ed in at the end: -0 stays -0, and any other
// negative x has a negative result already.

/// n, rounded, of expm1.
F64 steps_of(F64 x) { return round(x * f64(steps_128), RoundTo::nearest_even).as("n"); }

void rare_outside_expm1(F64 x) { rare_if(!(abs(x) <= f64(expm1_limit))); }

F64 expm1_default(F64 x) {
    const F64 n = steps_of(x);
    // ln(2) / 128: 0.005415212347998022 and 1.2655086083325438e-13.
    const F64 r = ((x - n * f64(0x3f762e42fef80000)) - n * f64(0x3d41cf79abc9e3b4)).as("r");
    // 422212465196928, 1.5 2^48 and the exponent's bias: four fraction bits make the index a byte offset.
    const I64 S = bits(n + f64(0x42f80000001ff800)).as("S");
    rare_outside_expm1(x);
    const F64 sc = as_float((S & i64(0x3ff800)) << 41).as("2^(n div 128)");
    const auto [hi, lo] = gather_pair<Type::f64>(table(expm1_kernel_table(), "2^(j / 128)"), low_word(S) & i32(0x7f0));
    const F64 T = (hi | sc).as("T");
    const F64 Tl = lo * sc;
    const F64 a = r * f64(0x3f81111168877f38) + f64(0x3fa55555c2a9c0f3);  // 0.008333335878830547, 0.04166667939432669
    const F64 b = r * f64(0x3fc555555555541d) + f64(0x3fdffffffffffe5c);  // 0.166666666666658, 0.4999999999999767
    const F64 z = r * r;
    const F64 q = (r + z * (a * z + b)).as("q");
    const F64 g = Tl + (T + -1.0);
    const F64 h = g - -1.0;
    return (h * q + g) | sign_bit(x);
}

F64 expm1_native(F64 x) {
    const F64 n = steps_of(x);
    const F64 r = (x - n * f64(step_128)).as("r");
    // 844424930262912, 1.5 2^49 and the bias: three fraction bits.
    const I64 S = bits(n + f64(0x43080000000ffc00)).as("S");
    const F64 sc = as_float((S & i64(0x1ffc00)) << 42).as("2^(n div 128)");
    const F64 fraction = gather<Type::f64>(table(expm1_native_kernel_table(), "2^(j / 128)"), low_word(S) & i32(0x3f8));
    const F64 T = (fraction | sc).as("T");
    rare_outside_expm1(x);
    const F64 b = r * f64(0x3fc555555555541d) + f64(0x3fdffffffffffe5c);  // 0.166666666666658, 0.4999999999999767
    const F64 q = (r + b * (r * r)).as("q");
    return (T * q + (T + -1.0)) | sign_bit(x);
}

// Where the vector path ends, and between there and the ends of the range, where the rare routine works.
const std::vector<std::uint64_t> natural_thresholds{0x4086232b00000000, 0x40862e42fefa39ef, 0xc086232bdd7abcd2,
                                                    0xc086800000000000, 0xc0874910d52d3051};
const std::vector<std::uint64_t> binary_thresholds{0x408ff00000000000, 0x4090000000000000, 0xc090000000000000,
                                                   0xc090c80000000000, 0xc090cc0000000000};
const std::vector<std::uint64_t> decimal_thresholds{0x40733a7100000000, 0x40734413509f79fe, 0xc0733a7146f72a41,
                                                    0xc073e00000000000, 0xc07439b746e36b52};
const std::vector<std::uint64_t> expm1_thresholds{expm1_limit, 0x40862e42fefa39ef};

const Describe families[] = {
    {{"exp"},
     describe(exp_default),
     {.ulp = 3.203,
      .worst = {0xc0805519578b6625},
      .thresholds = natural_thresholds,
      .beyond_profile = true,
      .remark = "With entries of the table close to 2, the rounding of the polynomial weighs double, and at the end of a "
                "step its own error adds to that. Few arguments exceed the limit"}},
    {{"exp_native"},
     describe(exp_native),
     {.ulp = 29720000, .worst = {0xbf662e352606e702}, .thresholds = natural_thresholds}},
    {{"exp2"}, describe(exp2_default), {.ulp = 1.642, .worst = {0x407c5facf5c9af79}, .thresholds = binary_thresholds}},
    {{"exp2_native"},
     describe(exp2_native),
     {.ulp = 15280000, .worst = {0x40718df26dcdc464}, .thresholds = binary_thresholds}},
    {{"exp10"},
     describe(exp10_default),
     {.ulp = 1.002, .worst = {0x40728b2f0181fcdd}, .thresholds = decimal_thresholds}},
    {{"exp10_native"},
     describe(exp10_native),
     {.ulp = 15280000, .worst = {0x4071f24dce5b3ca8}, .thresholds = decimal_thresholds}},
    {{"expm1"}, describe(expm1_default), {.ulp = 2.964, .worst = {0x3f686cbc0e65cf6d}, .thresholds = expm1_thresholds}},
    {{"expm1_native"},
     describe(expm1_native),
     {.ulp = 5189000, .worst = {0x3f662e631cb4a800}, .thresholds = expm1_thresholds}},
};

}  // namespace
}  // namespace tuvo

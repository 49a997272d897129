// Double hyperbolic functions: sinh, cosh, tanh.
//
// For the sine and the cosine, a = |x| = (N + j / K) ln 2 + r. The hyperbolic sine and cosine of the large part come
// from tables for j and powers of two for N; the addition formulas join them with the short polynomials for cosh r - 1
// and sinh r. The large terms are added last.
//
// The shifter's ulp is 1 / K: the sum's lowest bits are j, and N stands above them. It is moved to the exponent field
// and added to the patterns of table values, or taken off: in all lanes that the vector path finishes the results are
// normal.
//
// The tangent is a table of polynomials.
#include "frame/description/families.hpp"
#include "inverse/hyperbolic_tables.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t log2_e = 0x3ff71547652b82fe;  // 1.4426950408889634

/// Up to there, nearly 1021.1 ln 2, both exponentials are normal.
void rare_beyond(F64 a) { rare_if(!(a < f64(0x40861d9a00000000))); }  // 707.7001953125

/// cosh r - 1, for r of half a step at most.
F64 cosh_less_one(F64 r2) {
    return (r2 * (r2 * f64(0x3fa55555cf16d299) + f64(0x3fdffffffffffdbd)))
        .as("cosh r - 1");  // 0.04166668084090936, 0.49999999999996786
}

F64 sinh_default(F64 x) {
    const F64 a = abs(x);
    rare_beyond(a);
    const F64 shifter = f64(0x42c8000000000000);  // 52776558133248, 1.5 2^45
    const F64 W = (a * f64(log2_e) + shifter).as("W");
    const F64 nr = (W - shifter).as("N + j / 128");
    // ln 2: 0.6931471805582987 and 1.6465949582897082e-12.
    const F64 r = ((a - nr * f64(0x3fe62e42fefa0000)) - nr * f64(0x3d7cf79abc9e3b3a)).as("r");
    const I32 j = low_word(W) & i32(127);
    const auto [A, B] =
        gather_pair<Type::f64>(table(sinh_kernel_table(), "sinh(j ln(2) / 128), 2^(-j / 128) / 2"), j << 4);
    const I64 E = (bits(W) & i64(~std::uint64_t{127})) << 45;
    // The first entry is 0, and its scaled one below 2^-1022 times 2^N: nothing beside the power that is added to it.
    const F64 As = as_float(bits(A) + E);
    const F64 Bp = as_float(bits(B) + E);
    const F64 Bm = as_float(bits(B) - E);
    const F64 H = (As + (Bp - Bm)).as("sinh(a - r)");
    const F64 G = (As + (Bp + Bm)).as("cosh(a - r)");
    const F64 r2 = (r * r).as("r^2");
    // 0.008333335370815995, 0.166666666666662
    const F64 S = (r + r * (r2 * (r2 * f64(0x3f8111115712f425) + f64(0x3fc55555555554ad)))).as("sinh r");
    return (H + (S * G + cosh_less_one(r2) * H)) | sign_bit(x);
}

F64 cosh_default(F64 x) {
    const F64 a = abs(x);
    rare_beyond(a);
    const F64 shifter = f64(0x42b8000000000000);  // 26388279066624, 1.5 2^44
    const F64 W = (a * f64(log2_e) + shifter).as("W");
    const F64 nr = (W - shifter).as("N + j / 256");
    // ln 2: 0.6931471805728506 and -1.2905320270077144e-11.
    const F64 r = ((a - nr * f64(0x3fe62e42fefc0000)) - nr * f64(0xbdac610ca86c3899)).as("r");
    const int powers = table(cosh_kernel_table(), "2^(j / 256) / 2");
    const I32 offset = (low_word(W) & i32(0xff)) << 3;
    const F64 Tp = gather<Type::f64>(powers, offset);
    const F64 Tm = gather<Type::f64>(powers, i32(256 * 8) - offset);
    const I64 E = (bits(W) << 44) & i64(0x7ff0000000000000);
    const F64 P = as_float(bits(Tp) + E).as("2^(N + j / 256) / 2");
    const F64 Q = as_float((bits(Tm) - E) - i64(0x0010000000000000)).as("2^-(N + j / 256) / 2");
    const F64 ch = P + Q, sh = P - Q;
    const F64 r2 = (r * r).as("r^2");
    const F64 S = (r + r * (r2 * f64(0x3fc5555570813e14))).as("sinh r");  // 0.16666667931939172
    return ch + (cosh_less_one(r2) * ch + S * sh);
}

F64 tanh_default(F64 x) {
    const F64 a = abs(x);
    rare_if(!(a < f64(0x7fe2000000000000)));
    // The row is the exponent and three bits of the fraction, of arguments held between the first row and the last.
    const std::uint32_t first = 0x3fbe0000, last = 0x40340000;
    const F64 held = max(min(a, f64(std::uint64_t{last} << 32)), f64(std::uint64_t{first} << 32));
    const I32 offset = claim_range((high_word(held) >> 17) << 7, first >> 10, last >> 10).as("table offset");
    const auto e = gather_fields<Type::f64, 12>(table(tanh_kernel_table(), "polynomials of tanh"), offset, first >> 10);
    const F64 t = (a + e[11]).as("t");
    F64 P = e[10];
    for (int k = 9; k >= 0; --k) P = P * t + e[std::size_t(k)];
    return P | sign_bit(x);
}

// Half a step of each table, where j starts to be 1; half a step of ln 2; the end of the vector path, and of the range.
const std::vector<std::uint64_t> sinh_thresholds{0x3f662e42fefa39ef, 0x3fd62e42fefa39ef, 0x40861d9a00000000,
                                                 0x408633ce8fb9f87d};
const std::vector<std::uint64_t> cosh_thresholds{0x3f562e42fefa39ef, 0x3fd62e42fefa39ef, 0x40861d9a00000000,
                                                 0x408633ce8fb9f87d};

/// The end of the vector path, and the first arguments of the rows.
std::vector<std::uint64_t> rows() {
    std::vector<std::uint64_t> patterns{0x7fe2000000000000};
    for (std::uint64_t high = 0x3fc0; high <= 0x4034; high += 2) patterns.push_back(high << 48);
    return patterns;
}

const Describe families[] = {
    {{"sinh", "sinh_native"},
     describe(sinh_default),
     {.ulp = 2.129, .worst = {0x3f6fc86f38b10259}, .thresholds = sinh_thresholds}},
    {{"cosh", "cosh_native"},
     describe(cosh_default),
     {.ulp = 1.497, .worst = {0x4021fb60ff3cf30a}, .thresholds = cosh_thresholds}},
    // Two roundings of the first row: of the sum with its slope, 1, and of the product with the argument.
    {{"tanh", "tanh_native"},
     describe(tanh_default),
     {.ulp = 1.136, .worst = {0x3faffee945967ddd}, .thresholds = rows()}},
};

}  // namespace
}  // namespace tuvo

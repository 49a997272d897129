// Error functions: erf, erfc, and their float forms.
//
// A table holds the function and its slope T1 at the points g of a uniform grid. At x = g + d,
//     erf x = T0 + T1 d (1 + R),
// where R stands for the higher derivatives and is a polynomial in u = g d and d^2: every derivative of erf is the slope
// times a polynomial in g. The functions are odd or nearly so; all steps work on the magnitude.
//
// The tables of erfc are scaled by a power of two, so that their smallest entries keep all their bits. The scale is taken
// off by the last product, which also gives a negative argument its sign: 2 - erfc |x| = -(erfc |x| - 2).
#include "frame/description/families.hpp"
#include "special/error_function_tables.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> constant(std::uint64_t pattern) {
    return Value<T>(record_constant(T, pattern), nullptr);
}
template <Type T>
Value<T> number(double value) {
    if constexpr (T == Type::f32)
        return F32(static_cast<float>(value));
    else
        return F64(value);
}

/// The nearest grid point and its entry.
template <Type T>
struct Entry {
    Value<T> a;       ///< |x|
    Value<T> b;       ///< the smaller of |x| and the clamp; the clamp for a NaN
    Value<T> point;   ///< g
    Value<T> T0, T1;  ///< the function and its slope
};

/// `magic` has the grid's step as its unit in the last place, so that the sum's low bits count the steps.
template <Type T>
Entry<T> nearest_entry(Value<T> x, RawTable data, Grid grid, std::uint64_t magic) {
    const Value<T> a = abs(x).as("|x|");
    const Value<T> b = min(a, number<T>(grid.clamp()));
    const Value<T> t = b + constant<T>(magic);
    const Value<T> point = (t - constant<T>(magic)).as("grid point");
    constexpr int log2_entry = T == Type::f32 ? 3 : 4;
    I32 index;
    if constexpr (T == Type::f32)
        index = bits(t);
    else
        index = low_word(t);
    const std::int64_t first = T == Type::f32 ? (magic << log2_entry) & 0xffffffff : 0;  // what magic's own bits leave
    const I32 offset = claim_range(index << log2_entry, first, first + (std::int64_t(grid.last) << log2_entry));
    const auto [T0, T1] = gather_pair<T>(table(std::move(data), "function, slope"), offset, first);
    return {a, b, point, T0, T1};
}

// erf.

constexpr Grid erff_grid{128, 503}, erf_grid{128, 767};
constexpr std::uint64_t erff_magic = 0x47800000;         // 65536
constexpr std::uint64_t erf_magic = 0x42c0000000000000;  // 2^45

// A NaN has the clamp's entry, whose slope is no zero; as the second operand of the minimum it comes back here. For any
// number d is the smaller of the two.
template <Type T>
Value<T> distance_or_nan(Value<T> d, Value<T> a) {
    return min(d, a);
}

F32 erff_default(F32 x) {
    const auto [a, b, point, T0, T1] = nearest_entry(x, erf_kernel_table(Lane::f32, erff_grid), erff_grid, erff_magic);
    const M32 tiny = b > f32(0x2f800000);  // 2^-32: below, the square would be subnormal
    const F32 d = (b - point).as("d");
    const F32 d1 = where(tiny, d);
    const F32 dm = distance_or_nan(d, a);
    const F32 R = (d1 * d1) * f32(0xbeaaaade) - d * point;  // -0.33333486318588257
    const F32 V = dm + R * dm;
    return (V * T1 + T0) | sign_bit(x);
}

F32 erff_native(F32 x) {
    const auto [a, b, point, T0, T1] = nearest_entry(x, erf_kernel_table(Lane::f32, erff_grid), erff_grid, erff_magic);
    const F32 dm = distance_or_nan((b - point).as("d"), a);
    return (dm * T1 + T0) | sign_bit(x);
}

/// R from u = g d and z = d^2.
using Correction = F64 (*)(F64 u, F64 z);

F64 erf_correction(F64 u, F64 z) {
    F64 A = u * f64(0xbfa6c16db05bdea5) + f64(0x3fc1111235a363b1);  // -0.044444492128545655, 0.13333346957258876
    A = u * A;
    A = A + f64(0xbfd55555555547f6);  // -0.3333333333331433
    A = u * A;
    A = A + f64(0x3fe5555555554b0c);                                // 0.6666666666663743
    F64 B = u * f64(0xbfc5555800001b4f) + f64(0x3fb9999e2be2f122);  // -0.1666669845982995, 0.10000027247855717
    B = B * z;
    B = B + f64(0xbfd5555555555555);                                // -0.3333333333333333
    F64 C = u * f64(0x3fcc71ca1c71eb57) + f64(0xbfd9999c2be2dda8);  // 0.2222225798503483, -0.4000006130767937
    C = u * C;
    C = C + f64(0x3fdfffffffffd4cd);  // 0.4999999999993861
    C = u * C;
    return z * (C + B) + (A * (u * u) - u);
}

F64 erf_native_correction(F64 u, F64 z) {
    F64 A = u * f64(0x3fe55557bbbbdca6) + f64(0xbff0000180001429);  // 0.6666678110767819, -1.0000014305126206
    A = u * A;
    F64 B = u * f64(0x3fe0000400005666) + f64(0xbfd5555c88892f64);  // 0.5000019073510884, -0.33333504994947405
    B = B * z;
    return B + A;
}

template <Correction correction>
F64 erf_double(F64 x) {
    const F64 s = sign_bit(x);
    const auto [a, b, point, T0, T1] = nearest_entry(x, erf_kernel_table(Lane::f64, erf_grid), erf_grid, erf_magic);
    const M64 tiny = b > f64(0x2ff0000000000000);  // 2^-256
    const F64 d = (b - point).as("d");
    const F64 u = (point * d).as("u");
    const F64 d1 = where(tiny, d);
    const F64 dm = distance_or_nan(d, a) ^ s;
    const F64 R = correction(u, d1 * d1).as("R");
    const F64 V = T1 * dm;
    return (V + R * V) + (T0 ^ s);
}

// erfc.

template <Type T>
struct Complement {
    Grid grid;
    std::uint64_t magic;
    int scale;            ///< of the table, a power of two
    std::uint64_t limit;  ///< results are zero from here on, or nearly so
};

constexpr Complement<Type::f32> erfcf_method{{64, 644}, 0x48000000, 48, 0x4120ddfb};         // 131072, 10.054194
constexpr Complement<Type::f32> erfcf_native_method{{32, 322}, 0x48800000, 48, 0x4120ddfb};  // 262144
constexpr Complement<Type::f64> erfc_method{
    {128, 3487}, 0x42c0000000000000, 128, 0x403b39dc41e48bfd};  // 2^45, 27.226017111108366
constexpr Complement<Type::f64> erfc_native_method{{64, 1743}, 0x42d0000000000000, 128, 0x403b39dc41e48bfd};  // 2^46

/// erfc x from the scaled decrease `fall(d, u, T1)` between the grid point and x.
template <Type T, typename Fall>
Value<T> complement(Value<T> x, const Complement<T>& method, Fall fall) {
    constexpr Lane lane = T == Type::f32 ? Lane::f32 : Lane::f64;
    const Value<T> scale = number<T>(lane == Lane::f32 ? 0x1p48 : 0x1p128);
    const Value<T> unscale = number<T>(lane == Lane::f32 ? 0x1p-48 : 0x1p-128);
    const Value<T> s = sign_bit(x);
    const auto [a, b, point, T0, T1] =
        nearest_entry(x, erfc_kernel_table(lane, method.grid, method.scale), method.grid, method.magic);
    const Value<T> c = max(b, unscale);  // squares of smaller ones would be subnormal
    const Value<T> d = (c - point).as("d");
    const Value<T> u = (point * d).as("u");
    const Value<T> w = ((s | scale) - scale).as("-2 in the scale, or 0");
    const Value<T> m = (s | unscale).as("scale");
    const Value<T> y = (T0 - fall(d, u, T1)) + w;
    rare_if(!(x < constant<T>(method.limit)));
    return y * m;
}

F32 erfcf_default(F32 x) {
    return complement(x, erfcf_method, [](F32 d, F32 u, F32 T1) {
        F32 A = u * f32(0x3e08a7ca) + f32(0xbeaacf22);  // 0.13345256447792053, -0.33361154794692993
        A = u * A;
        A = A + f32(0x3f2aaaa6);  // 0.6666663885116577
        A = u * A;
        A = A + f32(0xbf7ffffc);  // -0.9999997615814209
        A = u * A;
        F32 B = u * f32(0x3f005b36) + f32(0xbeab4edb);  // 0.5013917684555054, -0.3345859944820404
        B = B * (d * d);
        const F32 R = A + B;
        const F32 V = T1 + R * T1;
        return d * V;
    });
}

F32 erfcf_native(F32 x) {
    return complement(x, erfcf_native_method, [](F32 d, F32 u, F32 T1) {
        F32 A = u * f32(0xbeab6147) + f32(0x3f2b4f03);  // -0.3347265422344208, 0.6691743731498718
        A = u * A;
        A = A + f32(0xbf7fff8b);  // -0.9999930262565613
        const F32 R = u * A;
        const F32 V = T1 + R * T1;
        return d * V;
    });
}

F64 erfc_default(F64 x) {
    return complement(x, erfc_method, [](F64 d, F64 u, F64 T1) {
        const F64 dd = d * d;
        const F64 P = horner(u, {
                                    0xbf2282c89a04c65f,  // -0.00014122675657683972
                                    0x3f472360bac04e70,  // 0.0007061216651913071
                                    0xbf6a019f4f234617,  // -0.0031746016985401237
                                    0x3f8a019f5aeed25f,  // 0.012698407137443355
                                    0xbfa6c16c16d06420,  // -0.04444444445125151
                                    0x3fc11111111ab082,  // 0.13333333335083714
                                    0xbfd555555555548a,  // -0.33333333333332205
                                    0x3fe55555555554cf,  // 0.6666666666666518
                                });
        F64 Q = horner(u, {
                              0xbf8441df86900a46,  // -0.009891268056894675
                              0x3fa117abf1fea28c,  // 0.033383725443234175
                              0xbfb8618412bc79ec,  // -0.0952379747145426
                              0x3fcc71c4b73b20b6,  // 0.22222193667244533
                              0xbfd9999999f3d838,  // -0.40000000032830796
                              0x3fe0000000379730,  // 0.5000000004044747
                          });
        Q = u * Q;
        F64 L = horner(u, {
                              0xbfb56433674ba5c2,  // -0.08356019279349083
                              0x3fc256e8e6045cdf,  // 0.1432772753839577
                              0xbfc5554e249ff4a7,  // -0.16666580951997398
                              0x3fb9998f9d0729da,  // 0.09999940475169158
                          });
        L = dd * L + f64(0xbfd5555555554add);  // -0.33333333333318454
        const F64 R = P * (u * u) + (dd * (Q + L) - u);
        const F64 G = d * T1;
        return G + R * G;
    });
}

F64 erfc_native(F64 x) {
    return complement(x, erfc_native_method, [](F64 d, F64 u, F64 T1) {
        const F64 dd = d * d;
        const F64 P = horner(u, {
                                    0xbf6a1fdd30652ea1,  // -0.003189022073604012
                                    0x3f8a1f05f5094fb6,  // 0.012754484692017214
                                    0xbfa6c15c3da087d4,  // -0.044443972132526405
                                    0x3fc111066671a484,  // 0.13333206178802837
                                    0xbfd555555adc4ea0,  // -0.333333338480978
                                    0x3fe555555933bc54,  // 0.666666673872792
                                });
        F64 Q = horner(u, {
                              0x3fccbc5887df9127,  // 0.22449785837592026
                              0xbfd9e0a0fbe743d2,  // -0.40433525657595937
                              0x3fdfff6f976a22c5,  // 0.4999655703218589
                              0xbfd554ee2f28f34d,  // -0.33330874066796384
                          });
        Q = Q * dd;
        const F64 R = P * (u * u) + (u * f64(0xbfeffffffffeb794) + Q);  // -0.9999999999906657
        const F64 G = d * T1;
        return G + R * G;
    });
}

const std::vector<std::uint64_t> erff_thresholds{0x2f800000, 0x407b8000};  // the square's limit; the clamp
const std::vector<std::uint64_t> erf_thresholds{0x2ff0000000000000, 0x4017f80000000000, 0x3f70000000000000};
// The least argument, half a step, the limit where results become zero, and where they become subnormal.
const std::vector<std::uint64_t> erfcf_thresholds{0x27800000, 0x3c000000, 0x4120ddfb, 0x41131ecd};
const std::vector<std::uint64_t> erfc_thresholds{0x37f0000000000000, 0x3f70000000000000, 0x403b39dc41e48bfd,
                                                 0x403a8b12fc6e4892};

const Describe families[] = {
    {{"erff"}, describe(erff_default), {.ulp = 1.929, .worst = {0x3b61b9f3}, .thresholds = erff_thresholds}},
    {{"erff_native"}, describe(erff_native), {.ulp = 277.0, .worst = {0x3ce00009}, .thresholds = erff_thresholds}},
    {{"erf"},
     describe(erf_double<erf_correction>),
     {.ulp = 2.544, .worst = {0x3f700000da0113cf}, .thresholds = erf_thresholds}},
    {{"erf_native"},
     describe(erf_double<erf_native_correction>),
     {.ulp = 314700, .worst = {0xbf6c5bfffe0ad9c5}, .thresholds = erf_thresholds}},
    {{"erfcf"}, describe(erfcf_default), {.ulp = 1.763, .worst = {0x410edf80}, .thresholds = erfcf_thresholds}},
    {{"erfcf_native"},
     describe(erfcf_native),
     {.ulp = 404.5, .worst = {0x41073ffc}, .thresholds = erfcf_thresholds}},
    {{"erfc"},
     describe(erfc_default),
     {.ulp = 1.896, .worst = {0x40322eff236a4404}, .thresholds = erfc_thresholds}},
    {{"erfc_native"},
     describe(erfc_native),
     {.ulp = 6.808e6, .worst = {0x40347dffffffcd24}, .thresholds = erfc_thresholds}},
};

}  // namespace
}  // namespace tuvo

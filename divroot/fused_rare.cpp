// Rare routines of the fused multiply-add: a b + c rounded once, by integer arithmetic on the significands. All lanes
// come here unless both control words round to nearest; then, ties and what lies near the ends of the range.
//
// The direction of rounding is that of the x87 control word, which nothing else in the library obeys; it is read and
// never written. Where the processor's own multiplication and addition can't go wrong, because the product is exact or
// the sum is, they are used instead, and round as MXCSR says. So is an overflow, which is a product of two large
// numbers.
//
// Product and addend stand in one wide integer each, as fixed-point numbers with a common exponent. The smaller is
// shifted to the larger's place, and bits that drop out below are kept as one sticky bit. None drops out where leading
// bits can cancel: that takes exponents that differ by two at most.
//
// Since in other modes this is the only way through the kernels, it has no branches but those that real numbers seldom
// take.
#include <type_traits>

#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

/// The sizes of a format, and its numbers that matter here, as patterns.
template <class T>
struct Format {
    static constexpr bool is_double = sizeof(T) == 8;
    using Pattern = std::conditional_t<is_double, std::uint64_t, std::uint32_t>;
    using SignedPattern = std::conditional_t<is_double, std::int64_t, std::int32_t>;
    using Wide = std::conditional_t<is_double, unsigned __int128, std::uint64_t>;
    using SignedWide = std::conditional_t<is_double, __int128, std::int64_t>;
    static constexpr int fraction_bits = is_double ? 52 : 23;
    static constexpr int significand_bits = fraction_bits + 1;
    static constexpr int wide_bits = 8 * sizeof(Wide);
    static constexpr int all_ones = exponent_field_all_ones<T>;
    static constexpr Pattern hidden = Pattern(1) << fraction_bits;
    static constexpr Pattern sign = Pattern(1) << (8 * sizeof(T) - 1);
    static constexpr Pattern infinity = Pattern(all_ones) << fraction_bits;
    static constexpr Pattern smallest_normal = hidden;
    static constexpr Pattern one = Pattern(exponent_bias<T>) << fraction_bits;
    // Numbers whose squares overflow and underflow.
    static constexpr T huge = is_double ? T(0x1p1000) : T(0x1p100);
    static constexpr T tiny = is_double ? T(0x1p-1000) : T(0x1p-100);
};
template <class T>
using Pattern = typename Format<T>::Pattern;
template <class T>
using Wide = typename Format<T>::Wide;

/// The rounding field of the x87 control word.
enum Rounding : unsigned { nearest = 0, down = 0x400, up = 0x800, toward_zero = 0xc00 };

inline Rounding rounding_of_x87() {
    unsigned short control;
    asm volatile("fnstcw %0" : "=m"(control));
    return static_cast<Rounding>(control & 0xc00);
}

template <class T>
inline T number(Pattern<T> pattern) {
    return __builtin_bit_cast(T, pattern);
}
template <class T>
inline bool is_nan(T x) {
    return x != x;
}
template <class T>
inline bool is_infinite(T x) {
    using F = Format<T>;
    return (bits(x) & ~F::sign) == F::infinity;
}
template <class T>
inline bool is_one(T x) {
    using F = Format<T>;
    return (bits(x) & ~F::sign) == F::one;
}
template <class T>
inline bool is_normal(T x) {
    return unsigned(exponent_field(x) - 1) < unsigned(Format<T>::all_ones - 1);
}

/// A finite number other than zero: significand with its leading bit, and biased exponent.
template <class T>
struct Finite {
    Pattern<T> significand;
    int exponent;
};
template <class T>
inline Finite<T> normal(T x) {
    using F = Format<T>;
    return {(bits(x) & (F::hidden - 1)) | F::hidden, exponent_field(x)};
}
template <class T>
inline Finite<T> finite(T x) {
    using F = Format<T>;
    if (exponent_field(x) != 0) return normal(x);
    // The fraction behind a one is a number whose difference from one has the fraction in normal form.
    const T v = number<T>(bits(x) | F::one) - number<T>((bits(x) & F::sign) | F::one);
    return {(bits(v) & (F::hidden - 1)) | F::hidden, exponent_field(v) - (exponent_bias<T> - 1)};
}

template <class T>
inline RareStatus store(T result, T* out) {
    *out = result;
    return RareStatus::ordinary;
}

/// A number other than zero shifted right by any count from 0, with the lowest bit set if ones are lost.
template <class T>
inline Wide<T> shifted_sticky(Wide<T> x, int count) {
    using F = Format<T>;
    if (__builtin_expect(count >= 64, 0)) {
        if (count >= F::wide_bits) return 1;
        x = (x >> (F::wide_bits - 64)) | (std::uint64_t(x) != 0);  // of a number wider than 64 bits, its high word
        count -= 64;
    }
    return (x >> (count & 63)) | ((std::uint64_t(x) & ((std::uint64_t(1) << count) - 1)) != 0);
}

/// A number other than zero shifted left until its leading one is at the top; the upper 64 bits of that, the lowest
/// of them set for any ones below. Takes the count off the exponent.
template <class T>
inline std::uint64_t normalized_sticky(Wide<T> x, int& exponent) {
    using F = Format<T>;
    auto top = std::uint64_t(x >> (F::wide_bits - 64));
    std::uint64_t below = 0;
    if constexpr (F::wide_bits > 64) {
        below = std::uint64_t(x);
        if (__builtin_expect(top == 0, 0)) {
            top = below;
            below = 0;
            exponent -= 64;
        }
    }
    const int zeros = __builtin_clzll(top);
    exponent -= zeros;
    top <<= zeros;
    if constexpr (F::wide_bits > 64) {
        top |= below >> 1 >> (63 - zeros);
        top |= (below << zeros) != 0;
    }
    return top;
}

template <class T>
inline Pattern<T> leading(std::uint64_t significand) {
    return Pattern<T>(significand >> (64 - Format<T>::significand_bits));
}

constexpr std::uint64_t half = std::uint64_t(1) << 63;

/// Whether a magnitude is rounded up, for a rest other than zero, with its leading bit at the top.
template <class T>
inline bool is_upward(Rounding rounding, std::uint64_t rest, Pattern<T> magnitude, Pattern<T> result_sign) {
    // The carry of this sum: over a half, or a half on top of an odd magnitude.
    if (__builtin_expect(rounding == nearest, 1)) return rest + (half - 1 + (magnitude & 1)) < rest;
    return rounding == (result_sign ? down : up);
}

/// Where the result may be subnormal, the smallest normal, or too large.
template <class T>
[[gnu::noinline]] inline RareStatus round_near_limits(std::uint64_t significand, int exponent, Pattern<T> result_sign,
                                                      T* out) {
    using F = Format<T>;
    Pattern<T> result = leading<T>(significand);
    std::uint64_t rest = significand << F::significand_bits;
    if (exponent >= F::all_ones) {
        result = F::infinity;
        rest = 0;
    } else if (exponent > 0) {
        result += Pattern<T>(exponent - 1) << F::fraction_bits;
    } else if (const int count = 1 - exponent; count > F::significand_bits) {
        result = 0;
        rest = 1;
    } else {
        result >>= count;
        rest = significand << (F::significand_bits - count);
    }
    if (rest != 0) {
        const Rounding rounding = rounding_of_x87();
        const bool upward = is_upward<T>(rounding, rest, result, result_sign);
        result += upward;
        if (result < F::smallest_normal ||
            (result == F::smallest_normal &&
             (rounding == nearest || rounding == toward_zero ? rest == half : upward && rest < half)))
            multiply(F::tiny, F::tiny);  // for the underflow flag alone
    }
    // The processor's own overflow, flags and all.
    if (result == F::infinity) return store(multiply(number<T>(bits(F::huge) | result_sign), F::huge), out);
    return store(number<T>(result_sign | result), out);
}

/// Of signs, only the top bits count.
template <class T>
[[gnu::always_inline]] inline RareStatus round_once(Finite<T> a, Finite<T> b, Pattern<T> product_sign, Finite<T> c,
                                                    Pattern<T> c_sign, T* out) {
    using F = Format<T>;
    // Leading ones at the third bit from the top, or one below for the product, which leaves room for the sum and
    // its sign.
    constexpr int point = F::wide_bits - 3;
    const Wide<T> product = (Wide<T>(a.significand) * b.significand) << (point + 1 - 2 * F::significand_bits);
    const Wide<T> addend = Wide<T>(c.significand) << (point - F::fraction_bits);
    const int product_exponent = a.exponent + b.exponent - (exponent_bias<T> - 1);

    // Swapped by masks if the addend's exponent is larger.
    const int distance = product_exponent - c.exponent, swap = distance >> 31;
    int exponent = product_exponent - (distance & swap);
    const Wide<T> difference = (product ^ addend) & Wide<T>(typename F::SignedWide(swap));
    const Wide<T> larger = product ^ difference;
    const Wide<T> smaller = shifted_sticky<T>(addend ^ difference, (distance ^ swap) - swap);

    // The smaller is negated where the signs differ, and the sum where that outweighs the larger, as it can when
    // the exponents are close.
    const typename F::SignedPattern signs = typename F::SignedPattern(product_sign ^ c_sign);
    const typename F::SignedWide subtract = signs >> (8 * sizeof(T) - 1);
    const typename F::SignedWide sum =
        typename F::SignedWide(larger) + ((typename F::SignedWide(smaller) ^ subtract) - subtract);
    const typename F::SignedWide negative = sum >> (F::wide_bits - 1);
    const Wide<T> magnitude = Wide<T>((sum ^ negative) - negative);
    if (__builtin_expect(magnitude == 0, 0)) return store(number<T>(rounding_of_x87() == down ? F::sign : 0), out);
    const Pattern<T> result_sign =
        (product_sign ^ (Pattern<T>(signs) & Pattern<T>(swap)) ^ Pattern<T>(negative)) & F::sign;

    exponent += F::wide_bits - 1 - point;
    const std::uint64_t significand = normalized_sticky<T>(magnitude, exponent);
    if (__builtin_expect(unsigned(exponent - 2) >= unsigned(F::all_ones - 3), 0))
        return round_near_limits<T>(significand, exponent, result_sign, out);
    Pattern<T> result = result_sign + (Pattern<T>(exponent - 1) << F::fraction_bits) + leading<T>(significand);
    const std::uint64_t rest = significand << F::significand_bits;
    if (rest != 0) result += is_upward<T>(rounding_of_x87(), rest, result, result_sign);
    return store(number<T>(result), out);
}

template <class T>
[[gnu::noinline]] inline RareStatus compute_others(const T* pa, const T* pb, const T* pc, T* out) {
    const T a = *pa, b = *pb, c = *pc;
    const bool nan_product = is_nan(a) || is_nan(b), no_number = nan_product || is_infinite(a) || is_infinite(b);
    if (!nan_product && is_nan(c)) return store(add(a, c), out);
    if (!no_number && a != 0 && b != 0 && is_infinite(c)) return store(c, out);
    if (no_number || is_nan(c) || is_infinite(c) || a == 0 || b == 0 || c == 0 || is_one(a) || is_one(b))
        return store(add(multiply(a, b), c), out);
    return round_once<T>(finite(a), finite(b), bits(a) ^ bits(b), finite(c), bits(c), out);
}

template <class T>
inline RareStatus fused_multiply_add(const T* a, const T* b, const T* c, T* out) {
    if (__builtin_expect(is_normal(*a) && is_normal(*b) && is_normal(*c) && !is_one(*a) && !is_one(*b), 1))
        return round_once<T>(normal(*a), normal(*b), bits(*a) ^ bits(*b), normal(*c), bits(*c), out);
    return compute_others(a, b, c, out);
}

}  // namespace

extern "C" {

RareStatus fmaf_rare(const float* a, const float* b, const float* c, float* out) {
    return fused_multiply_add(a, b, c, out);
}

RareStatus fma_rare(const double* a, const double* b, const double* c, double* out) {
    return fused_multiply_add(a, b, c, out);
}

}  // extern "C"

}  // namespace tuvo

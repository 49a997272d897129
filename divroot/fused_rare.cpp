// Rare routines of the fused multiply-add: a b + c rounded once, by integer arithmetic on the significands. All lanes
// come here.
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
// Since this is the only way through the kernels, it has no branches but those that real numbers seldom take.
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

template <class T>
struct Format;
template <>
struct Format<float> {
    using Pattern = std::uint32_t;
    using SignedPattern = std::int32_t;
    using Wide = std::uint64_t;
    using SignedWide = std::int64_t;
    static constexpr int fraction_bits = 23;
    static constexpr float huge = f32(0x71800000, 1.2676506e30f), tiny = f32(0x0d800000, 7.888609e-31f);  // 2^(+-100)
};
template <>
struct Format<double> {
    using Pattern = std::uint64_t;
    using SignedPattern = std::int64_t;
    using Wide = unsigned __int128;
    using SignedWide = __int128;
    static constexpr int fraction_bits = 52;
    static constexpr double huge = 0x1p1000, tiny = 0x1p-1000;
};

/// The rounding field of the x87 control word.
enum Rounding : unsigned { nearest = 0, down = 0x400, up = 0x800, toward_zero = 0xc00 };

inline Rounding rounding_of_x87() {
    unsigned short control;
    asm volatile("fnstcw %0" : "=m"(control));
    return static_cast<Rounding>(control & 0xc00);
}

template <class T>
class FusedMultiplyAdd {
    using F = Format<T>;
    using Pattern = typename F::Pattern;
    using SignedPattern = typename F::SignedPattern;
    using Wide = typename F::Wide;
    using SignedWide = typename F::SignedWide;

    static constexpr T huge = F::huge, tiny = F::tiny;  // their squares overflow and underflow
    static constexpr int fraction_bits = F::fraction_bits;
    static constexpr int significand_bits = fraction_bits + 1;
    static constexpr int wide_bits = 8 * sizeof(Wide);
    static constexpr int all_ones = exponent_field_all_ones<T>;
    static constexpr Pattern hidden = Pattern(1) << fraction_bits;
    static constexpr Pattern sign = Pattern(1) << (8 * sizeof(T) - 1);
    static constexpr Pattern infinity = Pattern(all_ones) << fraction_bits;
    static constexpr Pattern smallest_normal = hidden;
    static constexpr Pattern one = Pattern(exponent_bias<T>) << fraction_bits;

    static T number(Pattern pattern) { return __builtin_bit_cast(T, pattern); }
    static bool is_nan(T x) { return x != x; }
    static bool is_infinite(T x) { return (bits(x) & ~sign) == infinity; }
    static bool is_one(T x) { return (bits(x) & ~sign) == one; }
    static bool is_normal(T x) { return unsigned(exponent_field(x) - 1) < unsigned(all_ones - 1); }

    /// A finite number other than zero: significand with its leading bit, and biased exponent.
    struct Operand {
        Pattern significand;
        int exponent;
    };
    static Operand normal(T x) { return {(bits(x) & (hidden - 1)) | hidden, exponent_field(x)}; }
    static Operand finite(T x) {
        if (exponent_field(x) != 0) return normal(x);
        // The fraction behind a one is a number whose difference from one has the fraction in normal form.
        const T v = number(bits(x) | one) - number((bits(x) & sign) | one);
        return {(bits(v) & (hidden - 1)) | hidden, exponent_field(v) - (exponent_bias<T> - 1)};
    }

public:
    static RareStatus compute(const T* a, const T* b, const T* c, T* out) {
        if (__builtin_expect(is_normal(*a) && is_normal(*b) && is_normal(*c) && !is_one(*a) && !is_one(*b), 1))
            return round_once(normal(*a), normal(*b), bits(*a) ^ bits(*b), normal(*c), bits(*c), out);
        return compute_others(a, b, c, out);
    }

private:
    static RareStatus store(T result, T* out) {
        *out = result;
        return RareStatus::ordinary;
    }

    [[gnu::noinline]] static RareStatus compute_others(const T* pa, const T* pb, const T* pc, T* out) {
        const T a = *pa, b = *pb, c = *pc;
        const bool nan_product = is_nan(a) || is_nan(b), no_number = nan_product || is_infinite(a) || is_infinite(b);
        if (!nan_product && is_nan(c)) return store(add(a, c), out);
        if (!no_number && a != 0 && b != 0 && is_infinite(c)) return store(c, out);
        if (no_number || is_nan(c) || is_infinite(c) || a == 0 || b == 0 || c == 0 || is_one(a) || is_one(b))
            return store(add(multiply(a, b), c), out);
        return round_once(finite(a), finite(b), bits(a) ^ bits(b), finite(c), bits(c), out);
    }

    /// A number other than zero shifted right by any count from 0, with the lowest bit set if ones are lost.
    static Wide shifted_sticky(Wide x, int count) {
        if (__builtin_expect(count >= 64, 0)) {
            if (count >= wide_bits) return 1;
            x = (x >> (wide_bits - 64)) | (std::uint64_t(x) != 0);  // of a number wider than 64 bits, its high word
            count -= 64;
        }
        return (x >> (count & 63)) | ((std::uint64_t(x) & ((std::uint64_t(1) << count) - 1)) != 0);
    }

    /// A number other than zero shifted left until its leading one is at the top; the upper 64 bits of that, the lowest
    /// of them set for any ones below. Takes the count off the exponent.
    static std::uint64_t normalized_sticky(Wide x, int& exponent) {
        auto top = std::uint64_t(x >> (wide_bits - 64));
        std::uint64_t below = 0;
        if constexpr (wide_bits > 64) {
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
        if constexpr (wide_bits > 64) {
            top |= below >> 1 >> (63 - zeros);
            top |= (below << zeros) != 0;
        }
        return top;
    }

    /// Of signs, only the top bits count.
    [[gnu::always_inline]] static RareStatus round_once(Operand a, Operand b, Pattern product_sign, Operand c,
                                                        Pattern c_sign, T* out) {
        // Leading ones at the third bit from the top, or one below for the product, which leaves room for the sum and
        // its sign.
        constexpr int point = wide_bits - 3;
        const Wide product = (Wide(a.significand) * b.significand) << (point + 1 - 2 * significand_bits);
        const Wide addend = Wide(c.significand) << (point - fraction_bits);
        const int product_exponent = a.exponent + b.exponent - (exponent_bias<T> - 1);

        // Swapped by masks if the addend's exponent is larger.
        const int distance = product_exponent - c.exponent, swap = distance >> 31;
        int exponent = product_exponent - (distance & swap);
        const Wide difference = (product ^ addend) & Wide(SignedWide(swap));
        const Wide larger = product ^ difference;
        const Wide smaller = shifted_sticky(addend ^ difference, (distance ^ swap) - swap);

        // The smaller is negated where the signs differ, and the sum where that outweighs the larger, as it can when
        // the exponents are close.
        const SignedPattern signs = SignedPattern(product_sign ^ c_sign);
        const SignedWide subtract = signs >> (8 * sizeof(T) - 1);
        const SignedWide sum = SignedWide(larger) + ((SignedWide(smaller) ^ subtract) - subtract);
        const SignedWide negative = sum >> (wide_bits - 1);
        const Wide magnitude = Wide((sum ^ negative) - negative);
        if (__builtin_expect(magnitude == 0, 0)) return store(number(rounding_of_x87() == down ? sign : 0), out);
        const Pattern result_sign = (product_sign ^ (Pattern(signs) & Pattern(swap)) ^ Pattern(negative)) & sign;

        exponent += wide_bits - 1 - point;
        const std::uint64_t significand = normalized_sticky(magnitude, exponent);
        if (__builtin_expect(unsigned(exponent - 2) >= unsigned(all_ones - 3), 0))
            return round_near_limits(significand, exponent, result_sign, out);
        Pattern result = result_sign + (Pattern(exponent - 1) << fraction_bits) + leading(significand);
        const std::uint64_t rest = significand << significand_bits;
        if (rest != 0) result += is_upward(rounding_of_x87(), rest, result, result_sign);
        return store(number(result), out);
    }

    static Pattern leading(std::uint64_t significand) { return Pattern(significand >> (64 - significand_bits)); }

    static constexpr std::uint64_t half = std::uint64_t(1) << 63;

    /// Whether a magnitude is rounded up, for a rest other than zero, with its leading bit at the top.
    static bool is_upward(Rounding rounding, std::uint64_t rest, Pattern magnitude, Pattern result_sign) {
        // The carry of this sum: over a half, or a half on top of an odd magnitude.
        if (__builtin_expect(rounding == nearest, 1)) return rest + (half - 1 + (magnitude & 1)) < rest;
        return rounding == (result_sign ? down : up);
    }

    /// Where the result may be subnormal, the smallest normal, or too large.
    [[gnu::noinline]] static RareStatus round_near_limits(std::uint64_t significand, int exponent, Pattern result_sign,
                                                          T* out) {
        Pattern result = leading(significand);
        std::uint64_t rest = significand << significand_bits;
        if (exponent >= all_ones) {
            result = infinity;
            rest = 0;
        } else if (exponent > 0) {
            result += Pattern(exponent - 1) << fraction_bits;
        } else if (const int count = 1 - exponent; count > significand_bits) {
            result = 0;
            rest = 1;
        } else {
            result >>= count;
            rest = significand << (significand_bits - count);
        }
        if (rest != 0) {
            const Rounding rounding = rounding_of_x87();
            const bool upward = is_upward(rounding, rest, result, result_sign);
            result += upward;
            if (result < smallest_normal ||
                (result == smallest_normal &&
                 (rounding == nearest || rounding == toward_zero ? rest == half : upward && rest < half)))
                multiply(tiny, tiny);  // for the underflow flag alone
        }
        // The processor's own overflow, flags and all.
        if (result == infinity) return store(multiply(number(bits(huge) | result_sign), huge), out);
        return store(number(result_sign | result), out);
    }
};

}  // namespace

extern "C" {

RareStatus fmaf_rare(const float* a, const float* b, const float* c, float* out) {
    return FusedMultiplyAdd<float>::compute(a, b, c, out);
}

RareStatus fma_rare(const double* a, const double* b, const double* c, double* out) {
    return FusedMultiplyAdd<double>::compute(a, b, c, out);
}

}  // extern "C"

}  // namespace tuvo

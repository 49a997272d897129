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
// bits can cancel: that takes exponents that differ by one at most.
#include "frame/rare.hpp"

namespace tuvo {
namespace {

template <class T>
struct Format;
template <>
struct Format<float> {
    using Pattern = std::uint32_t;
    using Wide = std::uint64_t;
    using SignedWide = std::int64_t;
    static constexpr int fraction_bits = 23;
    static constexpr float huge = f32(0x71800000, 1.2676506e30f), tiny = f32(0x0d800000, 7.888609e-31f);  // 2^(+-100)
};
template <>
struct Format<double> {
    using Pattern = std::uint64_t;
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

/// The processor's product and sum, operands in order: of two NaNs the first survives, and a compiler may swap them.
inline float multiply(float a, float b) {
    asm volatile("mulss %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline double multiply(double a, double b) {
    asm volatile("mulsd %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline float add(float a, float b) {
    asm volatile("addss %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline double add(double a, double b) {
    asm volatile("addsd %1, %0" : "+x"(a) : "x"(b));
    return a;
}

template <class T>
class FusedMultiplyAdd {
    using F = Format<T>;
    using Pattern = typename F::Pattern;
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
    static T of(T a, T b, T c) {
        const auto is_normal = [](T x) { return unsigned(exponent_field(x) - 1) < unsigned(all_ones - 1); };
        if (__builtin_expect(is_normal(a) & is_normal(b) & is_normal(c) & !is_one(a) & !is_one(b), 1))
            return rounded_once(normal(a), normal(b), (bits(a) ^ bits(b)) & sign, normal(c), bits(c) & sign);
        return of_others(a, b, c);
    }

private:
    /// Apart, so that it costs the usual way no registers.
    [[gnu::noinline]] static T of_others(T a, T b, T c) {
        const bool nan_product = is_nan(a) || is_nan(b), no_number = nan_product || is_infinite(a) || is_infinite(b);
        if (!nan_product && is_nan(c)) return add(a, c);
        if (!no_number && a != 0 && b != 0 && is_infinite(c)) return c;
        if (no_number || is_nan(c) || is_infinite(c) || a == 0 || b == 0 || c == 0 || is_one(a) || is_one(b))
            return add(multiply(a, b), c);
        return rounded_once(finite(a), finite(b), (bits(a) ^ bits(b)) & sign, finite(c), bits(c) & sign);
    }

    /// Shifted right by any count from 0, with the lowest bit set if ones are lost.
    static Wide shifted_sticky(Wide x, int count) {
        if (__builtin_expect(count >= 64, 0)) {
            if (count >= wide_bits) return x != 0;
            x = (x >> (wide_bits - 64)) | (std::uint64_t(x) != 0);  // of a wider number than 64 bits, its high word
            count -= 64;
        }
        return (x >> (count & 63)) | ((std::uint64_t(x) & ((std::uint64_t(1) << count) - 1)) != 0);
    }

    [[gnu::always_inline]] static T rounded_once(Operand a, Operand b, Pattern product_sign, Operand c,
                                                 Pattern c_sign) {
        // Leading ones at the third bit from the top, or one below for the product, which leaves room for the sum and
        // its sign.
        constexpr int point = wide_bits - 3;
        const Wide product = (Wide(a.significand) * b.significand) << (point + 1 - 2 * significand_bits);
        const Wide addend = Wide(c.significand) << (point - fraction_bits);
        const int product_exponent = a.exponent + b.exponent - (exponent_bias<T> - 1);

        const int distance = product_exponent - c.exponent;
        const bool addend_first = distance < 0;
        int exponent = addend_first ? c.exponent : product_exponent;
        const Wide larger = addend_first ? addend : product;
        const Wide smaller = shifted_sticky(addend_first ? product : addend, addend_first ? -distance : distance);

        // Without branches, since signs are as good as random: the smaller is negated where the signs differ, and the
        // sum where that outweighs the larger, as it can when the exponents are the same.
        const SignedWide subtract = -SignedWide(product_sign != c_sign);
        const SignedWide sum = SignedWide(larger) + ((SignedWide(smaller) ^ subtract) - subtract);
        const SignedWide negative = sum >> (wide_bits - 1);
        const Wide magnitude = Wide((sum ^ negative) - negative);
        if (magnitude == 0) return number(rounding_of_x87() == down ? sign : 0);
        const Pattern result_sign = (addend_first ? c_sign : product_sign) ^ (Pattern(negative) & sign);

        // The leading one to the top of 64 bits.
        int zeros;
        std::uint64_t significand;
        if constexpr (wide_bits == 64) {
            zeros = __builtin_clzll(magnitude);
            significand = magnitude << zeros;
        } else {
            const auto high = std::uint64_t(magnitude >> 64), low = std::uint64_t(magnitude);
            zeros = high ? __builtin_clzll(high) : 64 + __builtin_clzll(low);
            const Wide normalized = magnitude << zeros;
            significand = std::uint64_t(normalized >> 64) | (std::uint64_t(normalized) != 0);
        }
        return rounded(significand, exponent + (wide_bits - 1 - point) - zeros, result_sign);
    }

    /// Rounds a significand with its leading bit at the top.
    static T rounded(std::uint64_t significand, int exponent, Pattern result_sign) {
        constexpr std::uint64_t half = std::uint64_t(1) << 63;
        Pattern result = Pattern(significand >> (64 - significand_bits));
        std::uint64_t rest = significand << significand_bits;
        if (unsigned(exponent - 1) < unsigned(all_ones - 1)) {
            result += Pattern(exponent - 1) << fraction_bits;
        } else if (exponent > 0) {
            return overflow(result_sign);
        } else {
            const int count = 1 - exponent;
            if (count > significand_bits) {
                result = 0;
                rest = 1;
            } else {
                result >>= count;
                rest = significand << (significand_bits - count);
            }
        }
        if (rest == 0) return number(result_sign | result);

        const Rounding rounding = rounding_of_x87();
        const bool upward = __builtin_expect(rounding == nearest, 1) ? (rest > half) | ((rest == half) & (result & 1))
                                                                     : rounding == (result_sign ? down : up);
        result += upward;
        if (result == infinity) return overflow(result_sign);
        if (result < smallest_normal ||
            (result == smallest_normal &&
             (rounding == nearest || rounding == toward_zero ? rest == half : upward && rest < half)))
            multiply(tiny, tiny);  // for the underflow flag alone
        return number(result_sign | result);
    }

    /// The processor's own overflow, flags and all.
    static T overflow(Pattern result_sign) { return multiply(number(bits(huge) | result_sign), huge); }
};

}  // namespace

extern "C" {

RareStatus fmaf_rare(const float* a, const float* b, const float* c, float* out) {
    *out = FusedMultiplyAdd<float>::of(*a, *b, *c);
    return RareStatus::ordinary;
}

RareStatus fma_rare(const double* a, const double* b, const double* c, double* out) {
    *out = FusedMultiplyAdd<double>::of(*a, *b, *c);
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

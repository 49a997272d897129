// Rare routines of fmod, remainder, remquo: special values, and long division of the significands where the quotient
// has too many bits for the vector path. They serve every argument, and their results are exact.

#include "intpart/format.hpp"

namespace tuvo {
namespace {

template <class T>
constexpr PatternOf<T> one = bits(T(1));
template <class T>
constexpr PatternOf<T> infinity = exponent_mask<T>;

/// A finite number other than zero, without its sign: significand 2^(exponent - fraction bits), with the leading bit
/// of a normal number in place.
template <class T>
struct Unpacked {
    PatternOf<T> significand;
    int exponent;
};

template <class T>
inline Unpacked<T> unpack(PatternOf<T> magnitude) {
    const int field = static_cast<int>(magnitude >> Format<T>::fraction_bits);
    if (field != 0) return {(magnitude & fraction_mask<T>) | smallest_normal<T>, field - exponent_bias<T>};
    Unpacked<T> x{magnitude, 1 - exponent_bias<T>};
    for (; x.significand < smallest_normal<T>; x.significand *= 2) --x.exponent;
    return x;
}

template <class T>
struct Division {
    PatternOf<T> remainder;  ///< the pattern of what is left, below the divisor
    std::uint32_t quotient;  ///< low 32 bits
};

/// Divides magnitudes, the first being the larger one, a bit of the quotient a round.
template <class T>
inline Division<T> divide(PatternOf<T> x, PatternOf<T> y) {
    auto [a, rounds] = unpack<T>(x);
    auto [b, exponent] = unpack<T>(y);
    std::uint32_t quotient = 0;
    for (rounds -= exponent - 1; rounds != 0; --rounds) {
        quotient *= 2;
        if (a >= b) {
            a -= b;
            ++quotient;
        }
        a *= 2;
    }
    if (a == 0) return {0, quotient};
    for (a /= 2; a < smallest_normal<T>; a *= 2) --exponent;
    constexpr int lowest = 1 - exponent_bias<T>;
    if (exponent < lowest) return {a >> (lowest - exponent), quotient};
    const auto field = static_cast<PatternOf<T>>(exponent + exponent_bias<T>);
    return {field << Format<T>::fraction_bits | (a & fraction_mask<T>), quotient};
}

/// x - n y, with n the quotient rounded toward zero.
template <class T>
inline RareStatus remainder_of_truncated(T x, T y, T* out) {
    const PatternOf<T> a = magnitude(x), b = magnitude(y);
    if (b == one<T>) {
        if (a < b) {
            *out = x;
            return RareStatus::ordinary;
        }
        if (a < infinity<T>) {
            const int below_point = Format<T>::fraction_bits + exponent_bias<T> - exponent_field(x);
            // Of a greater integer x - x is left, which is +0 for a negative one, too.
            if (below_point > 0 && a != b)
                *out = x - value(PatternOf<T>(bits(x) >> below_point << below_point));
            else
                *out = x * T(0);
            return RareStatus::ordinary;
        }
    }
    if (is_nan(x) || is_nan(y)) {
        *out = (is_nan(y) ? y : x) * runtime(T(1));  // as y * x gives it, whose operands a compiler may swap
        return RareStatus::ordinary;
    }
    if (b == 0 || a == infinity<T>) {
        const T zero = runtime(T(0));
        *out = zero / zero;
        return RareStatus::pole;
    }
    if (a <= b) {
        *out = a < b ? x : x * T(0);
        return RareStatus::ordinary;
    }
    if constexpr (sizeof(T) == 8) {
        // Below 2^52 the quotient by 2^31 is that by 2^31 - 1, or one less. A negative y is subtracted as it is.
        constexpr double largest_integer = f64(0x41dfffffffc00000, 2147483647.0);
        if (b == bits(largest_integer) && a < bits(0x1p52)) {
            constexpr double reciprocal = f64(0x3e00000000000000, 4.656612873077393e-10);
            const auto q = static_cast<std::int64_t>(value(a) * reciprocal);
            double r = value(a) - static_cast<double>(q) * largest_integer;
            if (r >= y) r -= y;
            *out = value(bits(r) | sign_of(x));
            return RareStatus::ordinary;
        }
    }
    PatternOf<T> r = divide<T>(a, b).remainder;
    if (r == 0) {
        *out = x * T(0);
        return RareStatus::ordinary;
    }
    if constexpr (sizeof(T) == 4)  // a guard: what is left is below the divisor
        if (r >= b) r = bits(value(r) - value(b));
    *out = value(PatternOf<T>(r | sign_of(x)));
    return RareStatus::ordinary;
}

/// x - n y, with n the quotient rounded to nearest, halves to even; and the low 31 bits of n, with its sign.
template <class T>
inline RareStatus remainder_of_nearest(T x, T y, T* out, std::int32_t* quotient) {
    *quotient = 0;
    if (is_nan(x) || is_nan(y)) {
        *out = static_cast<T>(static_cast<double>(is_nan(x) ? x : y) * 1.7);  // quiets it
        return RareStatus::ordinary;
    }
    const PatternOf<T> a = magnitude(x), b = magnitude(y);
    if (b == 0 || a == infinity<T>) {
        const T zero = runtime(T(0));
        *out = zero / zero;
        return b == 0 ? RareStatus::domain : RareStatus::ordinary;
    }
    *out = x;
    if (a == 0 || b == infinity<T>) return RareStatus::ordinary;

    const std::int32_t sign = sign_of(x) == sign_of(y) ? 1 : -1;
    const T size = value(b);
    if (a < b) {
        // Twice the largest numbers would overflow, and y is not as large.
        const bool doubles = exponent_field(x) < exponent_field_all_ones<T> - 1;
        if (doubles && size >= 2 * value(a)) return RareStatus::ordinary;
        *out = value(PatternOf<T>(bits(value(a) - size) ^ sign_of(x)));
        *quotient = sign;
        return RareStatus::ordinary;
    }
    if (a == b) {
        *out = x * T(0);
        *quotient = sign;
        return RareStatus::ordinary;
    }

    auto [remainder, q] = divide<T>(a, b);
    T r = value(remainder);
    const double twice = 2 * static_cast<double>(r);
    if (twice > size) {
        r -= size;
        ++q;
    } else if (twice == size && q % 2 != 0) {
        r = -r;
        ++q;
    }
    *out = remainder == 0 ? x * T(0) : value(PatternOf<T>(bits(r) ^ sign_of(x)));
    *quotient = sign * static_cast<std::int32_t>(q & 0x7fffffff);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus fmodf_rare(const float* x, const float* y, float* out) { return remainder_of_truncated(*x, *y, out); }
RareStatus fmod_rare(const double* x, const double* y, double* out) { return remainder_of_truncated(*x, *y, out); }

RareStatus remainderf_rare(const float* x, const float* y, float* out) {
    std::int32_t quotient;
    return remainder_of_nearest(*x, *y, out, &quotient);
}
RareStatus remainder_rare(const double* x, const double* y, double* out) {
    std::int32_t quotient;
    return remainder_of_nearest(*x, *y, out, &quotient);
}

RareStatus remquof_rare(const float* x, const float* y, float* out, std::int32_t* quotient) {
    return remainder_of_nearest(*x, *y, out, quotient);
}
RareStatus remquo_rare(const double* x, const double* y, double* out, std::int32_t* quotient) {
    return remainder_of_nearest(*x, *y, out, quotient);
}

}  // extern "C"

}  // namespace tuvo

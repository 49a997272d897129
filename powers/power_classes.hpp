// What the rare routines of the powers make of zeros, infinities, NaN, ones and negative bases, in float and in double.
// For everything else they ask `core`: core(a, sign) is sign times the power of a finite a > 0.
//
// A pole is reported as 1, like a domain error, and overflow and underflow as 0.
#pragma once

#include "frame/description/rare.hpp"

namespace tuvo {

inline constexpr RareStatus power_pole = RareStatus::domain;

template <class T>
inline T signed_one(int negative) {
    return negative ? T(-1) : T(1);
}
template <class T>
inline T signed_zero(int negative) {
    return negative ? -T(0) : T(0);
}

template <class T>
inline RareStatus answer(T* r, T value, RareStatus status = RareStatus::ordinary) {
    *r = value;
    return status;
}

/// A NaN made by 0 / 0.
template <class T>
inline RareStatus no_number(T* r, RareStatus status) {
    const T zero = runtime(T(0));
    return answer(r, zero / zero, status);
}

template <class T>
inline bool has_sign(T x) {
    return bits(x) >> (8 * sizeof(T) - 1) != 0;
}
template <class T>
inline bool is_nan(T x) {
    return x != x;
}
template <class T>
inline bool is_finite(T x) {
    return exponent_field(x) != exponent_field_all_ones<T>;
}
template <class T>
inline bool is_infinite(T x) {
    return !is_finite(x) && !is_nan(x);
}

/// Whether an exponent is an integer, and which.
enum class IntegerClass { none = 0, odd = 1, even = 2 };

template <class T>
inline IntegerClass integer_class(T y) {
    constexpr int fraction_bits = sizeof(T) == 4 ? 23 : 52;
    const int e = exponent_field(y) - exponent_bias<T>;
    if (e < 0 || !is_finite(y)) return IntegerClass::none;
    if (e > fraction_bits) return IntegerClass::even;
    const std::uint64_t significand = (bits(y) & ((std::uint64_t{1} << fraction_bits) - 1)) | std::uint64_t{1}
                                                                                                  << fraction_bits;
    const std::uint64_t unit = std::uint64_t{1} << (fraction_bits - e);
    if (significand & (unit - 1)) return IntegerClass::none;
    return significand & unit ? IntegerClass::odd : IntegerClass::even;
}

template <class T, class Core>
inline RareStatus power(T x, T y, T* r, Core core) {
    constexpr T one = 1;
    x = x * runtime(one);  // quiets a NaN
    y = y * runtime(one);
    if (y == 0 || x == one) return answer(r, one);
    if (is_nan(x) || is_nan(y)) return answer(r, add(x, y));
    const IntegerClass kind = integer_class(y);
    const int negative = kind == IntegerClass::odd && has_sign(x);
    if (x == 0) {
        if (y > 0) return answer(r, signed_one<T>(negative) * (x * x));
        return answer(r, signed_one<T>(negative) / (runtime(x) * x), power_pole);
    }
    if (x == -one && (kind != IntegerClass::none || is_infinite(y)))
        return answer(r, signed_one<T>(kind == IntegerClass::odd));
    if (is_finite(x) && is_finite(y)) {
        if (x < 0 && kind == IntegerClass::none) return no_number(r, RareStatus::domain);
        return answer(r, core(x < 0 ? -x : x, signed_one<T>(negative)));
    }
    // One of them is infinite.
    if (exponent_field(x) >= exponent_bias<T>)
        return answer(r, y > 0 ? y * (x * x) * signed_one<T>(negative) : signed_zero<T>(negative));
    return answer(r, y > 0 ? T(0) : y * y);
}

/// The power by its logarithm, which knows no negative base, and no limit where that has none.
template <class T, class Core>
inline RareStatus power_of_positive(T x, T y, T* r, Core core) {
    constexpr T one = 1;
    constexpr auto ordinary = RareStatus::ordinary, domain = RareStatus::domain;
    if (is_nan(x)) return no_number(r, ordinary);
    if (is_infinite(x)) {
        if (has_sign(x)) return no_number(r, domain);
        if (y == 0) return no_number(r, ordinary);
    }
    if (x == one) return is_finite(y) ? answer(r, one) : no_number(r, ordinary);
    if (x == 0 && !is_nan(y)) {
        if (y == 0) return no_number(r, ordinary);
        return answer(r, y > 0 ? T(0) : static_cast<T>(1.0 / runtime(0.0)));
    }
    if (has_sign(x)) return no_number(r, domain);
    if (y == 0) return answer(r, one);
    if (is_nan(y)) return answer(r, add(x, y));
    if (is_finite(x) && is_finite(y)) return answer(r, core(x, one));
    if (exponent_field(x) >= exponent_bias<T>) return answer(r, y > 0 ? y * (x * x) : T(0));
    return answer(r, y > 0 ? T(0) : y * y);
}

template <class T, class Core>
inline RareStatus integer_power(T x, int n, T* r, Core core) {
    constexpr T one = 1;
    const T y = static_cast<T>(n);
    if (n == 0 || x == one) return answer(r, one);
    if (is_nan(x)) return answer(r, add(y, x));
    const int negative = (n & 1) != 0 && has_sign(x);
    if (x == 0) {
        if (n > 0) return answer(r, signed_one<T>(negative) * (x * x));
        return answer(r, signed_one<T>(negative) / (runtime(x) * x), power_pole);
    }
    if (x == -one) return answer(r, signed_one<T>(n & 1));
    if (is_infinite(x)) return answer(r, n > 0 ? y * (x * x) * signed_one<T>(negative) : signed_zero<T>(negative));
    return answer(r, core(x < 0 ? -x : x, signed_one<T>(negative)));
}

template <class T, class Core>
inline RareStatus integer_root(T x, int n, T* r, Core core) {
    constexpr T one = 1;
    constexpr auto ordinary = RareStatus::ordinary;
    const bool odd = (n & 1) != 0;
    if (n == 0) return no_number(r, ordinary);
    if (x == 0) {
        if (odd) return answer(r, n < 0 ? one / runtime(x) : x);
        return answer(r, n < 0 ? one / runtime(T(0)) : T(0));
    }
    if (is_infinite(x) && odd) return answer(r, n < 0 ? one / x : x);
    if (has_sign(x) && !odd) return no_number(r, ordinary);
    const T sign = signed_one<T>(has_sign(x));
    const T a = has_sign(x) ? -x : x;
    if (a == one) return answer(r, sign);
    if (is_nan(a)) return answer(r, add(a, static_cast<T>(n)) * sign);
    if (is_finite(a)) return answer(r, core(a) * sign);
    return answer(r, n > 0 ? one / static_cast<T>(n) * (a * a) * sign : T(0) * sign);
}

}  // namespace tuvo

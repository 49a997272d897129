// Rare routines of fract, modf, frexp, ldexp, ilogb, logb, nextafter. Kernels send them zeros, subnormals, infinities
// and NaNs, as each operation needs, ldexp also results that are not normal, and nextafter steps that its vector path
// leaves out.

#include "intpart/format.hpp"

namespace tuvo {
namespace {

/// Powers of two: `up` takes subnormals into the normal range by `exponent`, `down` takes them back; the products of
/// two `huge` overflow, those of two `tiny` vanish.
template <class T>
struct Factor;
template <>
struct Factor<float> {
    static constexpr float up = 33554432.0f;
    static constexpr float down = f32(0x33000000, 2.9802322e-08f);
    static constexpr int exponent = 25;
    static constexpr float huge = f32(0x71800000, 1.2676506e30f);
    static constexpr float tiny = f32(0x0d800000, 7.888609e-31f);
};
template <>
struct Factor<double> {
    static constexpr double up = 36028797018963968.0;
    static constexpr double down = f64(0x3c80000000000000, 2.7755575615628914e-17);
    static constexpr int exponent = 55;
    static constexpr double huge = f64(0x7e70000000000000, 1.0715086071862673e301);
    static constexpr double tiny = f64(0x0170000000000000, 9.332636185032189e-302);
};

/// The square of a factor, with the sign of x.
template <class T>
inline T signed_square(T factor, T x) {
    return value(bits(factor) | sign_of(x)) * runtime(factor);
}

template <class T>
inline RareStatus fraction_and_floor(T x, T* fraction, T* whole) {
    *whole = x;
    *fraction = magnitude(x) == exponent_mask<T> ? value(sign_of(x)) : x;
    return RareStatus::ordinary;
}

/// For every x.
inline RareStatus fraction_and_whole(double x, double* fraction, double* whole) {
    const int exponent = exponent_field(x) - exponent_bias<double>;
    const double zero = value(sign_of(x));
    if (is_nan(x)) {
        *fraction = *whole = x + x;
    } else if (exponent < 0) {
        *fraction = x;
        *whole = zero;
    } else if (exponent >= Format<double>::fraction_bits) {
        *fraction = zero;
        *whole = x;
    } else {
        const std::uint64_t below_point = fraction_mask<double> >> exponent;
        *whole = value(bits(x) & ~below_point);
        *fraction = (bits(x) & below_point) == 0 ? zero : x - *whole;
    }
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus significand_and_exponent(T x, T* significand, std::int32_t* exponent) {
    const T v = x * runtime(T(1));  // quiets a NaN
    const bool scalable = exponent_field(v) != exponent_field_all_ones<T> && magnitude(v) != 0;
    const T t = v * Factor<T>::up;
    *significand = scalable ? with_exponent_field(t, exponent_bias<T> - 1) : v;
    *exponent = scalable ? exponent_field(t) - (exponent_bias<T> - 1 + Factor<T>::exponent) : 0;
    return RareStatus::ordinary;
}

/// Of a number other than zero.
template <class T>
inline std::int32_t exponent_of_subnormal(T x) {
    return exponent_field(x * Factor<T>::up) - (exponent_bias<T> + Factor<T>::exponent);
}

template <class T>
inline RareStatus integer_exponent(T x, std::int32_t* out) {
    if (magnitude(x) == 0) {
        *out = -0x7fffffff - 1;
        return RareStatus::domain;
    }
    if (exponent_field(x) == exponent_field_all_ones<T>) {
        *out = 0x7fffffff;
        return RareStatus::domain;
    }
    *out = exponent_of_subnormal(x);
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus floating_exponent(T x, T* out) {
    if (magnitude(x) == 0) {
        *out = T(-1) / runtime(T(0));
        return RareStatus::domain;
    }
    *out = exponent_field(x) == exponent_field_all_ones<T> ? value(magnitude(x)) : T(exponent_of_subnormal(x));
    return RareStatus::ordinary;
}

/// For every x and n.
template <class T>
inline RareStatus scaled(T x, std::int32_t n, T* out) {
    // The double form quiets a NaN, the float form hands on its bits.
    const T quiet = sizeof(T) == 8 ? x * runtime(T(1)) : x;
    if (magnitude(x) == 0 || exponent_field(x) == exponent_field_all_ones<T>) {
        *out = quiet;
        return RareStatus::ordinary;
    }
    const bool subnormal = exponent_field(x) == 0;
    const T v = subnormal ? x * Factor<T>::up : x;
    const int e = exponent_field(v) - (subnormal ? Factor<T>::exponent : 0);
    const int s = e + (n < -0x10000 ? -0x10000 : n > 0x10000 ? 0x10000 : n);
    if (s >= exponent_field_all_ones<T>) {
        *out = signed_square(Factor<T>::huge, x);
        return RareStatus::overflow;
    }
    if (s > 0) {
        *out = with_exponent_field(v, s);
        return RareStatus::ordinary;
    }
    if (s >= -Format<T>::fraction_bits) {  // the only rounding is that of the last product
        *out = with_exponent_field(v, s + Factor<T>::exponent) * Factor<T>::down;
        if (magnitude(*out) != 0) return RareStatus::ordinary;
    }
    *out = signed_square(Factor<T>::tiny, x);
    return RareStatus::underflow;
}

/// For every x and y.
template <class T>
inline RareStatus next_toward(T x, T y, T* out) {
    const T v = x * runtime(T(1)), w = y * runtime(T(1));
    if (is_nan(v) || is_nan(w)) {
        *out = is_nan(v) ? v : w;  // as v + w gives it, whose operands a compiler may swap
        return RareStatus::ordinary;
    }
    if (v == w) {
        *out = w;
        return RareStatus::ordinary;
    }
    if (magnitude(v) == 0) {
        *out = value(PatternOf<T>(sign_of(w) | 1));
        return RareStatus::underflow;
    }
    // Patterns of one sign are ordered as the magnitudes are.
    const bool away = sign_of(v) == sign_of(w) && magnitude(v) <= magnitude(w);
    *out = value(PatternOf<T>(away ? bits(v) + 1 : bits(v) - 1));
    const int field = exponent_field(*out);
    return field == 0                            ? RareStatus::underflow
           : field == exponent_field_all_ones<T> ? RareStatus::overflow
                                                 : RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus fractf_rare(const float* x, float* fraction, float* whole) {
    return fraction_and_floor(*x, fraction, whole);
}
RareStatus fract_rare(const double* x, double* fraction, double* whole) {
    return fraction_and_floor(*x, fraction, whole);
}

RareStatus modff_rare(const float* x, float* fraction, float* whole) {
    double f, w;
    const RareStatus status = fraction_and_whole(*x, &f, &w);
    *fraction = static_cast<float>(f);
    *whole = static_cast<float>(w);
    return status;
}
RareStatus modf_rare(const double* x, double* fraction, double* whole) {
    return fraction_and_whole(*x, fraction, whole);
}

RareStatus frexpf_rare(const float* x, float* significand, std::int32_t* exponent) {
    return significand_and_exponent(*x, significand, exponent);
}
RareStatus frexp_rare(const double* x, double* significand, std::int32_t* exponent) {
    return significand_and_exponent(*x, significand, exponent);
}

RareStatus ilogbf_rare(const float* x, std::int32_t* out) { return integer_exponent(*x, out); }
RareStatus ilogb_rare(const double* x, std::int32_t* out) { return integer_exponent(*x, out); }

RareStatus logbf_rare(const float* x, float* out) { return floating_exponent(*x, out); }
RareStatus logb_rare(const double* x, double* out) { return floating_exponent(*x, out); }

RareStatus ldexpf_rare(const float* x, const std::int32_t* n, float* out) { return scaled(*x, *n, out); }
RareStatus ldexp_rare(const double* x, const std::int32_t* n, double* out) { return scaled(*x, *n, out); }

RareStatus nextafterf_rare(const float* x, const float* y, float* out) { return next_toward(*x, *y, out); }
RareStatus nextafter_rare(const double* x, const double* y, double* out) { return next_toward(*x, *y, out); }

}  // extern "C"

}  // namespace tuvo

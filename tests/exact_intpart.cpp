// References for rounding, decomposition, selection and remainders: the C library, and MPFR for the remainders, with
// the special values that these operations define for themselves.
#include "tests/exact.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

template <typename T>
using PatternOf = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

std::uint64_t pattern_of(float x) { return std::bit_cast<std::uint32_t>(x); }
std::uint64_t pattern_of(double x) { return std::bit_cast<std::uint64_t>(x); }
std::uint64_t pattern_of(int n) { return static_cast<std::uint32_t>(n); }

template <typename T>
T value_of(std::uint64_t pattern) {
    return std::bit_cast<T>(static_cast<PatternOf<T>>(pattern));
}

/// A NaN as arithmetic hands it on; other values as they are.
template <typename T>
T quieted(T x) {
    const int fraction_bits = std::numeric_limits<T>::digits - 1;
    return std::isnan(x) ? value_of<T>(pattern_of(x) | std::uint64_t{1} << (fraction_bits - 1)) : x;
}

/// What arithmetic yields where no operand is a NaN: its sign is set.
template <typename T>
T invalid() {
    return -std::numeric_limits<T>::quiet_NaN();
}

template <typename T>
std::optional<T> rounding(std::string_view operation, T x) {
    if (operation == "ceil") return quieted(std::ceil(x));
    if (operation == "floor") return quieted(std::floor(x));
    if (operation == "trunc") return quieted(std::trunc(x));
    if (operation == "round") return quieted(std::round(x));
    if (operation == "rint" || operation == "nearbyint") return quieted(std::nearbyint(x));
    if (operation == "logb") return std::isnan(x) ? std::abs(x) : std::logb(x);
    return std::nullopt;
}

template <typename T>
std::optional<T> selection(std::string_view operation, T x, T y) {
    // Of equals, zeros among them, the processor's minimum and maximum give the second operand.
    if (operation == "fdim") return std::isnan(y) ? y : std::isnan(x) ? x : x > y ? x - y : T(0);
    if (operation == "nextafter") return std::isnan(x) ? quieted(x) : std::isnan(y) ? quieted(y) : std::nextafter(x, y);
    const bool smaller = operation == "fmin" || operation == "minmag";
    if (!smaller && operation != "fmax" && operation != "maxmag") return std::nullopt;
    if (std::isnan(x)) return y;
    if (std::isnan(y)) return x;
    const auto better = [smaller](T a, T b) { return smaller ? a < b : a > b; };
    if (operation.starts_with("f")) return better(x, y) ? x : y;
    if (std::abs(x) != std::abs(y)) return better(std::abs(x), std::abs(y)) ? x : y;
    return better(y, x) ? y : x;
}

/// x 2^n, rounded once: the product is exact in the longer format, as far as that goes.
template <typename T>
T scaled(T x, int n) {
    if (std::isnan(x)) return std::is_same_v<T, double> ? quieted(x) : x;
    return static_cast<T>(std::scalbln(static_cast<long double>(x), n));
}

/// Two outputs, from one argument.
template <typename T>
std::pair<T, T> fraction_and_floor(T x) {
    if (x == 0 || std::isnan(x)) return {x, x};
    if (std::isinf(x)) return {std::copysign(T(0), x), x};
    return {std::min(x - std::floor(x), std::nextafter(T(1), T(0))), std::floor(x)};
}
template <typename T>
std::pair<T, T> fraction_and_whole(T x) {
    T whole;
    const T fraction = std::modf(quieted(x), &whole);
    return {fraction, whole};
}
template <typename T>
std::pair<T, int> significand_and_exponent(T x) {
    if (!std::isfinite(x)) return {quieted(x), 0};
    int exponent;
    const T significand = std::frexp(x, &exponent);
    return {significand, exponent};
}

/// The sign and the low 31 bits of the quotient's magnitude.
int low_bits(long quotient) {
    const int bits = static_cast<int>(std::abs(quotient) & 0x7fffffff);
    return quotient < 0 ? -bits : bits;
}

Real real_of(float x) { return Real::from_pattern(Lane::f32, pattern_of(x)); }
Real real_of(double x) { return Real::from_pattern(Lane::f64, pattern_of(x)); }

template <typename T>
std::pair<T, int> nearest_remainder(T x, T y) {
    if (std::isnan(x) || std::isnan(y)) return {quieted(std::isnan(x) ? x : y), 0};
    if (y == 0 || std::isinf(x)) return {invalid<T>(), 0};
    Real remainder;
    long quotient = 0;
    mpfr_remquo(remainder.mpfr(), &quotient, real_of(x).mpfr(), real_of(y).mpfr(), MPFR_RNDN);
    return {static_cast<T>(remainder.to_double()), low_bits(quotient)};
}

template <typename T>
T truncated_remainder(T x, T y) {
    if (std::isnan(x) || std::isnan(y)) return quieted(std::isnan(y) ? y : x);
    if (y == 0 || std::isinf(x)) return invalid<T>();
    // An integer by 1: the vector path, up to its largest quotient, keeps the sign of a zero, the rare routine doesn't.
    const T first_rare = std::is_same_v<T, float> ? T(0x1p12) : T(0x1p26);
    const T integers_only = std::is_same_v<T, float> ? T(0x1p23) : T(0x1p52);
    if (std::abs(y) == 1 && x <= -first_rare && x > -integers_only && x == std::trunc(x)) return 0;
    Real remainder;
    mpfr_fmod(remainder.mpfr(), real_of(x).mpfr(), real_of(y).mpfr(), MPFR_RNDN);
    return static_cast<T>(remainder.to_double());
}

template <typename T>
ExactOutputs exact(std::string_view operation, std::span<const std::uint64_t> arguments) {
    const std::uint64_t sign = pattern_of(T(-0.0));
    if (operation == "nan") return {{arguments[0] | pattern_of(std::numeric_limits<T>::quiet_NaN())}};
    if (operation == "fabs") return {{arguments[0] & ~sign}};
    if (operation == "copysign") return {{(arguments[0] & ~sign) | (arguments[1] & sign)}};

    const auto outputs = [](auto pair) -> ExactOutputs { return {{pattern_of(pair.first), pattern_of(pair.second)}}; };
    const T x = value_of<T>(arguments[0]);
    if (const auto result = rounding(operation, x)) return {{pattern_of(*result)}};
    if (operation == "ilogb") {
        const int zero = std::numeric_limits<int>::min(), other = std::numeric_limits<int>::max();
        return {{pattern_of(x == 0 ? zero : std::isfinite(x) ? std::ilogb(x) : other)}};
    }
    if (operation == "fract") return outputs(fraction_and_floor(x));
    if (operation == "modf") return outputs(fraction_and_whole(x));
    if (operation == "frexp") return outputs(significand_and_exponent(x));
    if (operation == "ldexp") return {{pattern_of(scaled(x, static_cast<int>(arguments[1])))}};

    if (arguments.size() < 2) return std::nullopt;
    const T y = value_of<T>(arguments[1]);
    if (const auto result = selection(operation, x, y)) return {{pattern_of(*result)}};
    if (operation == "fmod") return {{pattern_of(truncated_remainder(x, y))}};
    if (operation == "remainder") return {{pattern_of(nearest_remainder(x, y).first)}};
    if (operation == "remquo") return outputs(nearest_remainder(x, y));
    return std::nullopt;
}

}  // namespace

ExactOutputs exact_intpart(const Family& family, std::span<const std::uint64_t> arguments) {
    if (family.element == Lane::f32) return exact<float>(family.operation, arguments);
    if (family.element == Lane::f64) return exact<double>(family.operation, arguments);
    return std::nullopt;
}

}  // namespace tuvo

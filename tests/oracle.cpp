#include "tests/oracle.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "tests/exact.hpp"

namespace tuvo {
namespace {

struct Format {
    int significand_bits;
    int min_exponent;  ///< of the smallest normal
    int max_exponent;  ///< of the largest finite
};

Format format_of(Lane lane) { return lane == Lane::f32 ? Format{24, -126, 127} : Format{53, -1022, 1023}; }

/// A value with everything beyond the format replaced by the power of two behind its largest finite.
Real clamp_to(const Format& format, const Real& x) {
    const Real limit = power_of_two(format.max_exponent + 1);
    if (abs(x) < limit) return x;
    return x.is_negative() ? -limit : limit;
}

Real inverse(const Real& x) { return 1 / x; }
Real inverse_root(const Real& x) { return 1 / sqrt(x); }
Real cube_root(const Real& x) {
    Real result;
    mpfr_cbrt(result.mpfr(), x.mpfr(), MPFR_RNDN);
    return result;
}
Real inverse_cube_root(const Real& x) { return 1 / cube_root(x); }
template <int (*function)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t)>
Real by_mpfr(const Real& x) {
    Real result;
    function(result.mpfr(), x.mpfr(), MPFR_RNDN);
    return result;
}
template <int (*function)(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t)>
Real by_mpfr(const Real& a, const Real& b) {
    Real result;
    function(result.mpfr(), a.mpfr(), b.mpfr(), MPFR_RNDN);
    return result;
}

// Of pi times x; zeros, and the poles of the tangent, come out exact.
double fast_sinpi(double x) {
    const double r = std::remainder(x, 2);
    return std::sin(M_PI * (std::abs(r) <= 0.5 ? r : std::copysign(1, r) - r));
}
double fast_cospi(double x) {
    const double r = std::abs(std::remainder(x, 2));
    if (r < 0.25) return std::cos(M_PI * r);
    return r <= 0.75 ? std::sin(M_PI * (0.5 - r)) : -std::cos(M_PI * (1 - r));
}
double fast_tanpi(double x) { return fast_sinpi(x) / fast_cospi(x); }

/// To 128 bits, which is several times as quick as all that Real has.
template <int function(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t)>
Real to_128_bits(const Real& x) {
    mpfr_t value;
    mpfr_init2(value, 128);
    function(value, x.mpfr(), MPFR_RNDN);
    Real result;
    mpfr_set(result.mpfr(), value, MPFR_RNDN);
    mpfr_clear(value);
    return result;
}
int log_gamma(mpfr_ptr result, mpfr_srcptr x, mpfr_rnd_t rounding) {
    int sign;
    return mpfr_lgamma(result, &sign, x, rounding);
}

/// The sign of gamma; 1 for negative integers, infinities and NaN.
Real sign_of_gamma(const Real& x) {
    if (x.is_zero()) return x.is_negative() ? -1 : 1;
    if (!x.is_finite() || !x.is_negative() || mpfr_integer_p(x.mpfr()) != 0) return 1;
    Real half;
    mpfr_floor(half.mpfr(), x.mpfr());
    half = half / 2;
    return mpfr_integer_p(half.mpfr()) != 0 ? 1 : -1;
}

Real power(const Real& x, const Real& y) {
    Real result;
    mpfr_pow(result.mpfr(), x.mpfr(), y.mpfr(), MPFR_RNDN);
    return result;
}

/// exp(y log x): where that is no number, neither is the power.
Real power_of_positive(const Real& x, const Real& y) {
    if (x.is_zero() && y.is_zero()) return Real(0) / 0;
    if (x.is_infinite() && y.is_zero()) return Real(0) / 0;
    if (x == Real(1) && !y.is_finite()) return Real(0) / 0;
    if (x < Real(0) || x.is_nan() || y.is_nan()) return Real(0) / 0;
    return power(abs(x), y);
}

Real integer_root(const Real& x, const Real& n) {
    const bool odd = mpfr_get_si(n.mpfr(), MPFR_RNDN) % 2 != 0;
    if (n.is_zero() || (!odd && x < Real(0))) return Real(0) / 0;
    const Real root = power(abs(x), 1 / n);
    return odd && x.is_negative() ? -root : root;
}

struct UnaryOracle {
    std::string_view operation;
    Real (*exact)(const Real&);
    double (*fast)(double);  ///< to 1e-6 ulp of float or better
};

constexpr UnaryOracle unary_oracles[] = {
    {"exp", exp, std::exp},
    {"exp2", exp2, std::exp2},
    {"exp10", exp10, [](double x) { return ::exp10(x); }},
    {"expm1", expm1, std::expm1},
    {"log", log, std::log},
    {"log2", log2, std::log2},
    {"log10", log10, std::log10},
    {"log1p", log1p, std::log1p},
    {"sin", sin, std::sin},
    {"cos", cos, std::cos},
    {"tan", tan, std::tan},
    {"asin", by_mpfr<mpfr_asin>, std::asin},
    {"acos", by_mpfr<mpfr_acos>, std::acos},
    {"atan", atan, std::atan},
    {"asinpi", by_mpfr<mpfr_asinpi>, [](double x) { return std::asin(x) / M_PI; }},
    {"acospi", by_mpfr<mpfr_acospi>, [](double x) { return std::acos(x) / M_PI; }},
    {"atanpi", by_mpfr<mpfr_atanpi>, [](double x) { return std::atan(x) / M_PI; }},
    {"sinh", by_mpfr<mpfr_sinh>, std::sinh},
    {"cosh", by_mpfr<mpfr_cosh>, std::cosh},
    {"tanh", by_mpfr<mpfr_tanh>, std::tanh},
    {"asinh", by_mpfr<mpfr_asinh>, std::asinh},
    {"acosh", by_mpfr<mpfr_acosh>, std::acosh},
    {"atanh", by_mpfr<mpfr_atanh>, std::atanh},
    {"sinpi", by_mpfr<mpfr_sinpi>, fast_sinpi},
    {"cospi", by_mpfr<mpfr_cospi>, fast_cospi},
    {"tanpi", by_mpfr<mpfr_tanpi>, fast_tanpi},
    {"erf", erf, std::erf},
    {"erfc", erfc, std::erfc},
    {"lgamma", to_128_bits<log_gamma>, [](double x) { return std::lgamma(x); }},
    {"tgamma", to_128_bits<mpfr_gamma>, [](double x) { return std::tgamma(x); }},
    {"inv", inverse, [](double x) { return 1 / x; }},
    {"sqrt", sqrt, std::sqrt},
    {"rsqrt", inverse_root, [](double x) { return 1 / std::sqrt(x); }},
    {"cbrt", cube_root, std::cbrt},
    {"rcbrt", inverse_cube_root, [](double x) { return 1 / std::cbrt(x); }},
};

const UnaryOracle* find_unary(std::string_view operation) {
    for (const UnaryOracle& entry : unary_oracles)
        if (entry.operation == operation) return &entry;
    return nullptr;
}

}  // namespace

double ulp_error(Lane lane, std::uint64_t got_pattern, const Real& exact) {
    constexpr double wrong = std::numeric_limits<double>::infinity();
    const Real got = Real::from_pattern(lane, got_pattern);
    if (exact.is_nan() || got.is_nan()) return exact.is_nan() && got.is_nan() ? 0 : wrong;
    if (exact.is_infinite()) return got == exact ? 0 : wrong;
    if (!is_floating(lane)) return abs(got - exact).to_double();

    const Format format = format_of(lane);
    const Real target = clamp_to(format, exact);
    int exponent = target.is_zero() ? format.min_exponent : target.exponent();
    exponent = std::clamp(exponent, format.min_exponent, format.max_exponent);
    return (abs(clamp_to(format, got) - target) / power_of_two(exponent - format.significand_bits + 1)).to_double();
}

std::optional<Real> oracle(std::string_view operation, std::span<const Real> arguments, std::size_t output) {
    if (const UnaryOracle* unary = find_unary(operation); unary && arguments.size() == 1)
        return unary->exact(arguments[0]);
    if (operation == "sincos" || operation == "sincosreg") return output == 0 ? sin(arguments[0]) : cos(arguments[0]);
    if (operation == "lgammar") return output == 0 ? to_128_bits<log_gamma>(arguments[0]) : sign_of_gamma(arguments[0]);
    if (operation == "div") return arguments[0] / arguments[1];
    if (operation == "hypot") return hypot(arguments[0], arguments[1]);
    if (operation == "atan2") return by_mpfr<mpfr_atan2>(arguments[0], arguments[1]);
    if (operation == "atan2pi") return by_mpfr<mpfr_atan2pi>(arguments[0], arguments[1]);
    if (operation == "pow" || operation == "pown") return power(arguments[0], arguments[1]);
    if (operation == "powr") return power_of_positive(arguments[0], arguments[1]);
    if (operation == "rootn") return integer_root(arguments[0], arguments[1]);
    return std::nullopt;
}

std::optional<Real> oracle(std::string_view operation, std::span<const std::uint64_t> arguments, Lane lane) {
    std::vector<Real> values;
    for (std::uint64_t pattern : arguments) values.push_back(Real::from_pattern(lane, pattern));
    return oracle(operation, values);
}

std::optional<double> quick_error(const Family& family, std::span<const std::uint64_t> arguments, std::uint64_t got) {
    const std::string_view operation = family.operation;
    if (operation != "pow" && operation != "powr" && operation != "pown" && operation != "rootn") return std::nullopt;
    // The x87 unit's format has eleven bits more than double, and its power errs by no more than some of its own ulps.
    const auto value = [](Lane lane, std::uint64_t pattern) -> long double {
        if (lane == Lane::f32) return std::bit_cast<float>(static_cast<std::uint32_t>(pattern));
        if (lane == Lane::f64) return std::bit_cast<double>(pattern);
        return static_cast<std::int32_t>(pattern);
    };
    const long double x = value(family.arguments[0], arguments[0]), y = value(family.arguments[1], arguments[1]);
    const long double result = value(family.element, got);
    const bool integer = family.arguments[1] == Lane::i32, odd = integer && arguments[1] % 2 != 0;
    if (x < 0 && (!integer || (operation == "rootn" && !odd))) return std::nullopt;
    long double exact = std::pow(std::abs(x), operation == "rootn" ? 1 / y : y);
    if (x < 0 && odd) exact = -exact;
    if (x == 0 || !std::isfinite(result) || !std::isfinite(exact)) return std::nullopt;
    const Format format = format_of(family.element);
    const int exponent = std::ilogb(exact);
    if (exponent < format.min_exponent || exponent >= format.max_exponent) return std::nullopt;
    // Just above a power of two the ulp may be that of the binade below.
    const long double significand = std::scalbn(std::abs(exact), -exponent);
    const int binade = significand < 1 + 0x1p-40L ? exponent - 1 : exponent;
    const long double units = std::scalbn(std::abs(result - exact), format.significand_bits - 1 - binade);
    return static_cast<double>(units) + 0.01;
}

std::optional<std::vector<std::uint64_t>> exact_outputs(const Family& family,
                                                        std::span<const std::uint64_t> arguments) {
    for (const auto exact : {exact_intpart, exact_convert, exact_intdiv, exact_divroot})
        if (auto outputs = exact(family, arguments)) return outputs;
    return std::nullopt;
}

std::uint64_t RandomBits::operator()() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
    z = (z ^ z >> 27) * 0x94d049bb133111eb;
    return z ^ z >> 31;
}

std::vector<std::uint64_t> stratified_patterns(Lane lane, std::uint64_t seed, std::span<const std::uint64_t> thresholds,
                                               int per_exponent) {
    const int bits = 8 * lane_size(lane);
    const std::uint64_t ones = ~std::uint64_t{0} >> (64 - bits);
    const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
    RandomBits random(seed);
    std::vector<std::uint64_t> patterns;
    auto add = [&](std::uint64_t pattern) {
        patterns.push_back(pattern & (is_floating(lane) ? ones ^ sign : ones));
        patterns.push_back((is_floating(lane) ? pattern | sign : -pattern) & ones);
    };
    auto add_neighbourhood = [&](std::uint64_t pattern) {
        for (int offset = -4; offset <= 4; ++offset) add((is_floating(lane) ? pattern & ~sign : pattern) + offset);
    };
    for (std::uint64_t threshold : thresholds) add_neighbourhood(threshold);
    if (!is_floating(lane)) {
        add_neighbourhood(0);
        for (int length = 1; length <= bits; ++length) {
            const std::uint64_t top = std::uint64_t{1} << (length - 1);
            for (std::uint64_t pattern : {top - 1, top, top + 1}) add(pattern);
            for (int i = 0; i < per_exponent; ++i) add(top | (random() & (top - 1)));
        }
        return patterns;
    }

    const int fraction_bits = lane == Lane::f32 ? 23 : 52;
    const std::uint64_t fraction = (std::uint64_t{1} << fraction_bits) - 1;
    const std::uint64_t few_bits = fraction & ~(fraction >> 9);
    const std::uint64_t infinity = ones & ~sign & ~fraction;
    const std::uint64_t quiet = (fraction + 1) / 2;
    const std::uint64_t one = (infinity / 2) & ~fraction;
    for (std::uint64_t payload : {std::uint64_t{0}, quiet, fraction, std::uint64_t{1}, quiet / 2, quiet | fraction / 5})
        add(infinity | payload);
    for (std::uint64_t power = 0; power < infinity; power += fraction + 1) {
        add_neighbourhood(power);
        for (int i = 0; i < per_exponent; ++i) add(power | (random() & (i % 4 ? fraction : few_bits)));
    }
    add_neighbourhood(infinity - 5);
    for (int i = 0; i < per_exponent; ++i) add(random() & fraction >> i % fraction_bits);
    for (int distance = 0; distance < fraction_bits; ++distance) {
        for (int i = 0; i < per_exponent / 8 + 1; ++i) {
            const std::uint64_t top = std::uint64_t{1} << distance;
            const std::uint64_t offset = top | (random() & (top - 1));
            add(one + offset);
            add(one - offset);
        }
    }
    return patterns;
}

std::vector<std::uint32_t> stratified_floats(std::uint64_t seed, std::span<const std::uint32_t> thresholds,
                                             int per_exponent) {
    const std::vector<std::uint64_t> wide(thresholds.begin(), thresholds.end());
    const std::vector<std::uint64_t> patterns = stratified_patterns(Lane::f32, seed, wide, per_exponent);
    return {patterns.begin(), patterns.end()};
}

bool FloatErrorScan::knows(std::string_view operation) {
    const UnaryOracle* unary = find_unary(operation);
    return unary && unary->fast;
}

FloatErrorScan::FloatErrorScan(std::string_view operation) {
    const UnaryOracle* unary = find_unary(operation);
    if (!unary || !unary->fast) throw std::invalid_argument("no fast oracle for " + std::string(operation));
    fast_ = unary->fast;
    exact_ = unary->exact;
}

double FloatErrorScan::add(std::uint32_t input, std::uint32_t got) {
    const double reference = fast_(std::bit_cast<float>(input));
    const double value = std::bit_cast<float>(got);
    if (reference == value || (std::isnan(reference) && std::isnan(value))) return 0;
    if (std::isfinite(reference) && !std::isnan(value)) {
        // 1 / ulp is 2^(23 - e), with e read from the exponent field of the reference and kept in the range of float.
        constexpr double limit = 0x1p128;
        const double target = std::clamp(reference, -limit, limit);
        const std::uint64_t field = std::bit_cast<std::uint64_t>(target) >> 52 & 0x7ff;
        const std::uint64_t exponent = std::clamp<std::uint64_t>(field, 1023 - 126, 1023 + 127);
        const double units = std::bit_cast<double>((2 * 1023 + 23 - exponent) << 52);
        const double error = std::abs(std::clamp(value, -limit, limit) - target) * units;
        // So close to a power of two, the ulp may be that of the binade below, and the error twice as large.
        constexpr std::uint64_t fraction = (1ull << 52) - 1;
        const bool near_power_of_two = ((std::bit_cast<std::uint64_t>(reference) + 8) & fraction) < 16;
        if ((near_power_of_two ? 2 * error : error) <= max_error_) return error;
    }
    const double error = ulp_error(Lane::f32, got, exact_(Real::from_pattern(Lane::f32, input)));
    if (error > max_error_) {
        max_error_ = error;
        worst_input_ = input;
        worst_got_ = got;
    }
    return error;
}

void FloatErrorScan::merge(const FloatErrorScan& other) {
    if (other.max_error_ > max_error_) {
        max_error_ = other.max_error_;
        worst_input_ = other.worst_input_;
        worst_got_ = other.worst_got_;
    }
}

namespace {

struct ExtendedOracle {
    std::string_view operation;
    long double (*unary)(long double);
    long double (*binary)(long double, long double);
};
constexpr long double extended_pi = 3.14159265358979323846264338327950288L;
constexpr ExtendedOracle extended_oracles[] = {
    {"asin", asinl, nullptr},
    {"acos", acosl, nullptr},
    {"atan", atanl, nullptr},
    {"asinpi", [](long double x) { return asinl(x) / extended_pi; }, nullptr},
    {"acospi", [](long double x) { return acosl(x) / extended_pi; }, nullptr},
    {"atanpi", [](long double x) { return atanl(x) / extended_pi; }, nullptr},
    {"atan2", nullptr, atan2l},
    {"atan2pi", nullptr, [](long double y, long double x) { return atan2l(y, x) / extended_pi; }},
};

const ExtendedOracle* find_extended(std::string_view operation) {
    for (const ExtendedOracle& entry : extended_oracles)
        if (entry.operation == operation) return &entry;
    return nullptr;
}

long double value_of(Lane lane, std::uint64_t pattern) {
    return lane == Lane::f32 ? std::bit_cast<float>(static_cast<std::uint32_t>(pattern))
                             : std::bit_cast<double>(pattern);
}

}  // namespace

bool ExtendedErrorScan::knows(std::string_view operation) { return find_extended(operation) != nullptr; }

ExtendedErrorScan::ExtendedErrorScan(std::string_view operation, Lane lane) : operation_(operation), lane_(lane) {
    const ExtendedOracle* entry = find_extended(operation);
    if (!entry) throw std::invalid_argument("no extended oracle for " + operation_);
    unary_ = entry->unary;
    binary_ = entry->binary;
}

double ExtendedErrorScan::add(std::span<const std::uint64_t> arguments, std::uint64_t got) {
    const long double first = value_of(lane_, arguments[0]), value = value_of(lane_, got);
    const long double reference = unary_ ? unary_(first) : binary_(first, value_of(lane_, arguments[1]));
    if (std::isnan(reference) && std::isnan(value)) return 0;
    if (std::isfinite(reference) && std::isfinite(value)) {
        const Format format = format_of(lane_);
        const int exponent = reference == 0 ? format.min_exponent : std::ilogb(reference);
        const int last_place = std::max(exponent, format.min_exponent) - format.significand_bits + 1;
        const long double error = std::ldexp(std::fabs(value - reference), -last_place);
        // Next to a power of two, the ulp may be that of the binade below, and the error twice as large.
        if (2 * error < max_error_ ||
            (error + 0.01L < max_error_ && std::fabs(reference) > std::ldexp(1 + 0x1p-60L, exponent)))
            return static_cast<double>(error);
    }
    const double error = ulp_error(lane_, got, *oracle(operation_, arguments, lane_));
    max_error_ = std::max(max_error_, error);
    return error;
}

}  // namespace tuvo

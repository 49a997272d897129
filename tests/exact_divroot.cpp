#include "tests/exact.hpp"

#include <bit>

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

struct FloatFormat {
    std::uint64_t sign, infinity, quiet;
    int significand_bits;
    mpfr_exp_t least_exponent, largest_exponent;  ///< of significands in [1/2, 1)
};
FloatFormat format_of(Lane lane) {
    if (lane == Lane::f32) return {0x80000000, 0x7f800000, 0x00400000, 24, -148, 128};
    return {0x8000000000000000, 0x7ff0000000000000, 0x0008000000000000, 53, -1073, 1024};
}

bool is_nan(const FloatFormat& format, std::uint64_t pattern) { return (pattern & ~format.sign) > format.infinity; }

/// What the processor makes of NaNs: the first of them, quieted, or its own.
std::uint64_t nan_among(const FloatFormat& format, std::span<const std::uint64_t> arguments) {
    for (std::uint64_t pattern : arguments)
        if (is_nan(format, pattern)) return pattern | format.quiet;
    return format.sign | format.infinity | format.quiet;
}

}  // namespace

std::uint64_t exact_fused_multiply_add(Lane lane, std::span<const std::uint64_t> arguments, mpfr_rnd_t direction) {
    const FloatFormat format = format_of(lane);
    const Real a = Real::from_pattern(lane, arguments[0]), b = Real::from_pattern(lane, arguments[1]);
    const Real c = Real::from_pattern(lane, arguments[2]);
    const mpfr_exp_t emin = mpfr_get_emin(), emax = mpfr_get_emax();
    mpfr_t result;
    mpfr_init2(result, format.significand_bits);
    mpfr_fma(result, a.mpfr(), b.mpfr(), c.mpfr(), MPFR_RNDZ);
    if (mpfr_regular_p(result) && mpfr_get_exp(result) > format.largest_exponent) {
        mpfr_set_inf(result, mpfr_signbit(result) ? -1 : 1);
    } else {
        mpfr_set_emin(format.least_exponent);
        mpfr_set_emax(format.largest_exponent);
        const int inexact = c.is_zero() ? mpfr_mul(result, a.mpfr(), b.mpfr(), direction)
                                        : mpfr_fma(result, a.mpfr(), b.mpfr(), c.mpfr(), direction);
        mpfr_subnormalize(result, inexact, direction);
        if (c.is_zero()) mpfr_add(result, result, c.mpfr(), direction);
        mpfr_set_emin(emin);
        mpfr_set_emax(emax);
    }
    Real rounded;
    mpfr_set(rounded.mpfr(), result, MPFR_RNDN);
    mpfr_clear(result);
    return rounded.is_nan() ? nan_among(format, arguments) : rounded.to_pattern(lane);
}

ExactOutputs exact_divroot(const Family& family, std::span<const std::uint64_t> arguments) {
    if (family.operation == "fma") return {{exact_fused_multiply_add(family.element, arguments, MPFR_RNDN)}};
    // Correctly rounded: the default tiers of the others, and all quotients of doubles.
    const bool divides = family.operation == "div" || family.operation == "inv";
    if (!divides && family.operation != "sqrt") return std::nullopt;
    if (family.tier != Tier::standard && family.name() != "div_native") return std::nullopt;
    const Lane lane = family.element;
    const Real first = Real::from_pattern(lane, arguments[0]);
    const Real exact = family.operation == "div"   ? first / Real::from_pattern(lane, arguments[1])
                       : family.operation == "inv" ? 1 / first
                                                   : sqrt(first);
    return {{exact.is_nan() ? nan_among(format_of(lane), arguments) : exact.to_pattern(lane)}};
}

}  // namespace tuvo

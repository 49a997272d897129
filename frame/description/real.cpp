#include "frame/description/real.hpp"

#include <bit>
#include <stdexcept>

namespace tuvo {
namespace {

using Unary = int (*)(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t);
using Binary = int (*)(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t);

Real apply(Unary function, const Real& x) {
    Real result;
    function(result.mpfr(), x.mpfr(), MPFR_RNDN);
    return result;
}

Real apply(Binary function, const Real& a, const Real& b) {
    Real result;
    function(result.mpfr(), a.mpfr(), b.mpfr(), MPFR_RNDN);
    return result;
}

}  // namespace

Real::Real() {
    mpfr_init2(value_, precision);
    mpfr_set_zero(value_, 1);
}

Real::Real(double value) {
    mpfr_init2(value_, precision);
    mpfr_set_d(value_, value, MPFR_RNDN);
}

Real::Real(const Real& other) {
    mpfr_init2(value_, precision);
    mpfr_set(value_, other.value_, MPFR_RNDN);
}

Real::Real(Real&& other) : Real() { mpfr_swap(value_, other.value_); }

Real& Real::operator=(const Real& other) {
    mpfr_set(value_, other.value_, MPFR_RNDN);
    return *this;
}

Real& Real::operator=(Real&& other) {
    mpfr_swap(value_, other.value_);
    return *this;
}

Real::~Real() { mpfr_clear(value_); }

Real Real::from_pattern(Lane lane, std::uint64_t bits) {
    Real result;
    switch (lane) {
    case Lane::f32: return Real(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
    case Lane::f64: return Real(std::bit_cast<double>(bits));
    case Lane::i32: return Real(static_cast<std::int32_t>(bits));
    case Lane::u32: return Real(static_cast<std::uint32_t>(bits));
    case Lane::i64: mpfr_set_si(result.value_, static_cast<std::int64_t>(bits), MPFR_RNDN); break;
    case Lane::u64: mpfr_set_ui(result.value_, bits, MPFR_RNDN); break;
    }
    return result;
}

std::uint64_t Real::to_pattern(Lane lane) const {
    switch (lane) {
    case Lane::f32: return std::bit_cast<std::uint32_t>(to_float());
    case Lane::f64: return std::bit_cast<std::uint64_t>(to_double());
    default: throw std::invalid_argument("Real::to_pattern: not a floating-point lane");
    }
}

float Real::to_float() const { return mpfr_get_flt(value_, MPFR_RNDN); }

double Real::to_double() const { return mpfr_get_d(value_, MPFR_RNDN); }

Real Real::rounded_to_grid(int exponent) const {
    Real result;
    mpfr_mul_2si(result.value_, value_, -exponent, MPFR_RNDN);
    mpfr_rint(result.value_, result.value_, MPFR_RNDN);
    mpfr_mul_2si(result.value_, result.value_, exponent, MPFR_RNDN);
    return result;
}

Real Real::operator-() const { return apply(mpfr_neg, *this); }

Real operator+(const Real& a, const Real& b) { return apply(mpfr_add, a, b); }

Real operator-(const Real& a, const Real& b) { return apply(mpfr_sub, a, b); }

Real operator*(const Real& a, const Real& b) { return apply(mpfr_mul, a, b); }

Real operator/(const Real& a, const Real& b) { return apply(mpfr_div, a, b); }

bool operator==(const Real& a, const Real& b) { return mpfr_equal_p(a.value_, b.value_) != 0; }

std::partial_ordering operator<=>(const Real& a, const Real& b) {
    if (a.is_nan() || b.is_nan()) return std::partial_ordering::unordered;
    return mpfr_cmp(a.value_, b.value_) <=> 0;
}

Real abs(const Real& x) {
    Real result;
    mpfr_setsign(result.mpfr(), x.mpfr(), 0, MPFR_RNDN);
    return result;
}

Real power_of_two(int exponent) {
    Real result;
    mpfr_set_ui_2exp(result.mpfr(), 1, exponent, MPFR_RNDN);
    return result;
}

Real sqrt(const Real& x) { return apply(mpfr_sqrt, x); }

Real hypot(const Real& x, const Real& y) { return apply(mpfr_hypot, x, y); }

Real exp(const Real& x) { return apply(mpfr_exp, x); }

Real exp2(const Real& x) { return apply(mpfr_exp2, x); }

Real exp10(const Real& x) { return apply(mpfr_exp10, x); }

Real expm1(const Real& x) { return apply(mpfr_expm1, x); }

Real log(const Real& x) { return apply(mpfr_log, x); }

Real log2(const Real& x) { return apply(mpfr_log2, x); }

Real log10(const Real& x) { return apply(mpfr_log10, x); }

Real log1p(const Real& x) { return apply(mpfr_log1p, x); }

Real sin(const Real& x) { return apply(mpfr_sin, x); }

Real cos(const Real& x) { return apply(mpfr_cos, x); }

Real tan(const Real& x) { return apply(mpfr_tan, x); }

Real atan(const Real& x) { return apply(mpfr_atan, x); }

Real erf(const Real& x) { return apply(mpfr_erf, x); }

Real erfc(const Real& x) {
    // Takes a millisecond at 320 bits.
    mpfr_t result;
    mpfr_init2(result, 128);
    mpfr_erfc(result, x.mpfr(), MPFR_RNDN);
    Real wide;
    mpfr_set(wide.mpfr(), result, MPFR_RNDN);
    mpfr_clear(result);
    return wide;
}

Real lgamma(const Real& x) {
    Real result;
    int sign;
    mpfr_lgamma(result.mpfr(), &sign, x.mpfr(), MPFR_RNDN);
    return result;
}

Real tgamma(const Real& x) { return apply(mpfr_gamma, x); }

}  // namespace tuvo

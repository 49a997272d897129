// Real numbers at high precision, for tables that are computed by a rule and for the oracle of the tests.
#pragma once

#include <compare>
#include <cstdint>

#include <mpfr.h>

#include "frame/description/operations.hpp"

namespace tuvo {

/// A real number of 320 significant bits with an exponent far beyond that of double, or an infinity or NaN. Every
/// operation rounds to nearest at that precision.
class Real {
public:
    static constexpr mpfr_prec_t precision = 320;

    /// Zero.
    Real();
    /// Exact, as are the floats and 32-bit integers that convert to double.
    Real(double value);
    Real(const Real& other);
    Real(Real&& other);
    Real& operator=(const Real& other);
    Real& operator=(Real&& other);
    ~Real();

    /// The value of a lane's bit pattern, exact; `bits` holds it in its low bits. Signed zeros keep their sign.
    static Real from_pattern(Lane lane, std::uint64_t bits);
    /// The bit pattern of the nearest f32 or f64, ties to even, subnormals and overflow as the format has them. Throws
    /// std::invalid_argument for an integer lane.
    std::uint64_t to_pattern(Lane lane) const;
    float to_float() const;
    double to_double() const;

    /// The nearest multiple of 2^`exponent`, ties to even.
    Real rounded_to_grid(int exponent) const;

    bool is_nan() const { return mpfr_nan_p(value_) != 0; }
    bool is_infinite() const { return mpfr_inf_p(value_) != 0; }
    bool is_zero() const { return mpfr_zero_p(value_) != 0; }
    bool is_finite() const { return mpfr_number_p(value_) != 0; }
    bool is_negative() const { return mpfr_signbit(value_) != 0; }
    /// floor(log2(|x|)) of a finite value other than zero.
    int exponent() const { return static_cast<int>(mpfr_get_exp(value_) - 1); }
    /// The fewest bits that hold the significand; 0 for zero, infinities and NaN.
    int significant_bits() const { return static_cast<int>(mpfr_min_prec(value_)); }

    Real operator-() const;
    friend Real operator+(const Real& a, const Real& b);
    friend Real operator-(const Real& a, const Real& b);
    friend Real operator*(const Real& a, const Real& b);
    friend Real operator/(const Real& a, const Real& b);
    friend bool operator==(const Real& a, const Real& b);
    friend std::partial_ordering operator<=>(const Real& a, const Real& b);

    /// For functions that this class does not wrap.
    mpfr_ptr mpfr() { return value_; }
    mpfr_srcptr mpfr() const { return value_; }

private:
    mpfr_t value_;
};

Real abs(const Real& x);
/// 2^exponent.
Real power_of_two(int exponent);
Real sqrt(const Real& x);
Real hypot(const Real& x, const Real& y);
Real exp(const Real& x);
Real exp2(const Real& x);
Real exp10(const Real& x);
Real expm1(const Real& x);
Real log(const Real& x);
Real log2(const Real& x);
Real log10(const Real& x);
Real log1p(const Real& x);
Real sin(const Real& x);
Real cos(const Real& x);
Real tan(const Real& x);
Real atan(const Real& x);
Real erf(const Real& x);
/// To 128 bits.
Real erfc(const Real& x);
/// The logarithm of |gamma|.
Real lgamma(const Real& x);
Real tgamma(const Real& x);

}  // namespace tuvo

// Shared rules of the tables of the circular functions.
#pragma once

#include "frame/description/real.hpp"
#include "frame/description/tables.hpp"

namespace tuvo {

inline Real pi() {
    Real value;
    mpfr_const_pi(value.mpfr(), MPFR_RNDN);
    return value;
}

inline Real floor(const Real& x) {
    Real value;
    mpfr_floor(value.mpfr(), x.mpfr());
    return value;
}

/// x with `bits` significant bits.
inline Real with_bits(const Real& x, int bits, mpfr_rnd_t direction) {
    mpfr_t rounded;
    mpfr_init2(rounded, bits);
    mpfr_set(rounded, x.mpfr(), direction);
    Real value;
    mpfr_set(value.mpfr(), rounded, MPFR_RNDN);
    mpfr_clear(rounded);
    return value;
}

/// sin(2 pi i / points), with its zeros exact.
inline Real sine_of_turn(int i, int points) { return i % (points / 2) == 0 ? Real() : sin(2 * pi() * i / points); }

/// The power of two nearest to x in distance, with the sign of x; 0 for 0.
inline Real nearest_power(const Real& x) {
    if (x.is_zero()) return x;
    const Real power = power_of_two(x.exponent());
    const Real nearest = abs(x) > 1.5 * power ? 2 * power : power;
    return x.is_negative() ? -nearest : nearest;
}

/// The tangent at an inner point i of `points` on the half turn, without its pole if that is near: value and slope.
struct RegularTangent {
    Real pole_distance;
    bool near_pole;
    Real value, slope;
};
inline RegularTangent regular_tangent(int i, int points) {
    RegularTangent at{pi() * (points / 2 - i) / points, i >= points / 4 && i < 3 * points / 4, {}, Real(1) / 3};
    if (2 * i == points) return at;  // at the pole the regular part of tan(pi/2 + r) = -1 / tan r is r/3 + ...
    at.value = tan(pi() * i / points);
    at.slope = 1 + at.value * at.value;
    if (!at.near_pole) return at;
    at.value = at.value - 1 / at.pole_distance;
    at.slope = at.slope - 1 / (at.pole_distance * at.pole_distance);
    return at;
}

/// Appends the words of an integer, each of `bits`, the most significant first.
inline void append_words(RawTable& table, const Real& integer, int words, int bits) {
    Real rest = integer;
    for (int k = words - 1; k >= 0; --k) {
        const Real unit = power_of_two(bits * k);
        const Real digit = floor(rest / unit);
        rest = rest - digit * unit;
        const Real upper = floor(digit / power_of_two(32));
        table.patterns.push_back(static_cast<std::uint64_t>(upper.to_double()) << 32 |
                                 static_cast<std::uint64_t>((digit - upper * power_of_two(32)).to_double()));
    }
}

/// The last `bits` bits of floor(2^exponent / (2 pi)).
inline Real span_of_inverse_two_pi(int exponent, int bits) {
    // The integer may have more bits than a Real; whole turns of 2^bits are taken off in its own precision.
    mpfr_t quotient, turns;
    const mpfr_prec_t precision = Real::precision + (exponent > 0 ? exponent : 0);
    mpfr_inits2(precision, quotient, turns, static_cast<mpfr_ptr>(nullptr));
    mpfr_const_pi(quotient, MPFR_RNDN);
    mpfr_mul_2si(quotient, quotient, 1, MPFR_RNDN);
    mpfr_ui_div(quotient, 1, quotient, MPFR_RNDN);
    mpfr_mul_2si(quotient, quotient, exponent, MPFR_RNDN);
    mpfr_floor(quotient, quotient);
    mpfr_div_2si(turns, quotient, bits, MPFR_RNDN);
    mpfr_floor(turns, turns);
    mpfr_mul_2si(turns, turns, bits, MPFR_RNDN);
    mpfr_sub(quotient, quotient, turns, MPFR_RNDN);
    Real value;
    mpfr_set(value.mpfr(), quotient, MPFR_RNDN);
    mpfr_clears(quotient, turns, static_cast<mpfr_ptr>(nullptr));
    return value;
}

}  // namespace tuvo

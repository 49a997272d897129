// Steps that the roots' rare routines share.
#pragma once

#include "frame/description/rare.hpp"

namespace tuvo {

/// The double with that exponent field, zero fraction and positive sign: 2^(field - 1023). Higher bits are dropped.
constexpr double power_of_field(int field) { return f64(static_cast<std::uint64_t>(field & 0x7ff) << 52); }

/// A number in two parts, high + low, of which `high` has so few bits that its square is exact.
struct Halves {
    double high;
    double low;
};
inline Halves split(double x, double multiplier) {
    const double t = multiplier * x;
    const double high = t - (t - x);
    return {high, x - high};
}

constexpr double split_26 = f64(0x41a0000002000000, 134217729.0);  // 2^27 + 1

/// sqrt(s) and half its reciprocal, to nearly a double's precision.
struct CoupledRoot {
    double root;
    double half_reciprocal;
};
/// Three rounds of the iteration that refines both at once, from `seed`, a reciprocal root of s to some 9 bits.
inline CoupledRoot coupled_root(double s, double seed) {
    double h = 0.5 * seed, q = seed * s;
    for (int round = 0; round < 3; ++round) {
        const double r = 0.5 - q * h;
        q = q + r * q;
        h = h + h * r;
    }
    return {q, h};
}

/// The index of a significand in the table of seeds: its top 8 fraction bits, and 256 for an odd exponent.
constexpr int seed_index(double x, int parity) { return static_cast<int>(bits(x) >> 44 & 0xff) + 256 * parity; }

}  // namespace tuvo

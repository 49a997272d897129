// The oracle of the accuracy tests and reports: exact values from MPFR, errors in ulp, and the inputs to try.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "frame/description/operations.hpp"
#include "frame/description/real.hpp"

namespace tuvo {

/// Distance of a result from the exact value, in ulp of the f32 or f64 format at the exact value (the spacing of
/// subnormals below the normal range). An infinite result counts as the first power of two beyond the format, and so
/// does a finite exact value beyond that; an exact infinity must be met by the same infinity, a NaN by a NaN, and what
/// misses them is infinitely wrong. Zeros of either sign are equal. On integer lanes the ulp is 1.
double ulp_error(Lane lane, std::uint64_t got_pattern, const Real& exact);

/// The exact value (to `Real::precision` bits) of an operation ("log", "sincos") for the given arguments, of its first
/// or second output; nothing for what the oracle does not know.
std::optional<Real> oracle(std::string_view operation, std::span<const Real> arguments, std::size_t output = 0);
/// The same for bit patterns of one lane type.
std::optional<Real> oracle(std::string_view operation, std::span<const std::uint64_t> arguments, Lane lane);

/// A bound of a result's error in ulp that is quick to find, no more than 0.01 ulp above the error; nothing for families
/// and arguments that it is not made for. Powers have it.
std::optional<double> quick_error(const Family& family, std::span<const std::uint64_t> arguments, std::uint64_t got);

/// The bit patterns of all outputs, NaNs and signs of zero included, of a family whose results are defined bit by bit
/// (rounding, selection, conversions, integer division); nothing for other families.
std::optional<std::vector<std::uint64_t>> exact_outputs(const Family& family, std::span<const std::uint64_t> arguments);

/// Deterministic random bits (splitmix64).
class RandomBits {
public:
    explicit RandomBits(std::uint64_t seed) : state_(seed) {}
    std::uint64_t operator()();

private:
    std::uint64_t state_;
};

/// Patterns of a lane type that show the faults of a kernel, the most telling first. Floating point: infinities, quiet
/// and signalling NaNs; the neighbours of each threshold; every exponent with `per_exponent` random significands (a
/// quarter of them with few bits), its power of two and the neighbours of that; the largest and smallest of all kinds;
/// arguments close to 1 at all distances. Integers: zero, each power of two and its neighbours, and random numbers of
/// every length. All with both signs. About 510 (per_exponent + 9) patterns of f32, 4100 (per_exponent + 9) of f64. The
/// same seed gives the same patterns.
std::vector<std::uint64_t> stratified_patterns(Lane lane, std::uint64_t seed,
                                               std::span<const std::uint64_t> thresholds = {}, int per_exponent = 64);
/// Those of f32.
std::vector<std::uint32_t> stratified_floats(std::uint64_t seed, std::span<const std::uint32_t> thresholds,
                                             int per_exponent = 64);

/// The largest error of a unary float operation over many inputs, up to all 2^32: the C library's double function tells
/// the error to better than 1e-6 ulp, and MPFR decides where that exceeds the largest so far.
class FloatErrorScan {
public:
    static bool knows(std::string_view operation);
    /// Throws std::invalid_argument for an operation that has no such function.
    explicit FloatErrorScan(std::string_view operation);

    /// Takes in one result. Returns its error in ulp, to 1e-6; within 2^-49 of a power of two perhaps half of it.
    double add(std::uint32_t input, std::uint32_t got);
    /// Takes in what another scan of the same operation has seen.
    void merge(const FloatErrorScan& other);

    /// Confirmed error of the worst input; no input that was added exceeds it by more than 1e-6.
    double max_error() const { return max_error_; }
    std::uint32_t worst_input() const { return worst_input_; }
    std::uint32_t worst_got() const { return worst_got_; }

private:
    double (*fast_)(double);
    Real (*exact_)(const Real&);
    double max_error_ = 0;
    std::uint32_t worst_input_ = 0;
    std::uint32_t worst_got_ = 0;
};

/// The same for functions of one or two arguments of either type: x87 arithmetic, with 11 bits more than double, tells
/// the error to 0.01 ulp, and MPFR decides where that may exceed the largest so far.
class ExtendedErrorScan {
public:
    static bool knows(std::string_view operation);
    /// Throws std::invalid_argument for an operation that has no such function.
    ExtendedErrorScan(std::string_view operation, Lane lane);

    /// Takes in one result. Returns its error in ulp, to 0.01.
    double add(std::span<const std::uint64_t> arguments, std::uint64_t got);
    double max_error() const { return max_error_; }

private:
    std::string operation_;
    Lane lane_;
    long double (*unary_)(long double);
    long double (*binary_)(long double, long double);
    double max_error_ = 0;
};

}  // namespace tuvo

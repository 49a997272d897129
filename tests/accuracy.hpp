// Errors of the built kernels, as the accuracy test, the report and the plots want them.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "frame/description/families.hpp"

namespace tuvo {

/// Whether the oracle knows the family's operation.
bool has_oracle(const Family& family);

/// What the family's kernel gives for one lane: its results, then the out-value.
std::vector<std::uint64_t> outputs_of(const Family& family, std::span<const std::uint64_t> arguments);
/// Error in ulp of the outputs for one lane, the largest of them; of families that are defined bit by bit 0 or
/// infinity. Throws std::invalid_argument for a family without an oracle.
double error_of(const Family& family, std::span<const std::uint64_t> arguments, std::span<const std::uint64_t> got);

/// A family's lanes by the interpreter and the rare routine, with a stand-in for the processor's estimates.
class ByDescription {
public:
    ByDescription(const DescribedFamily& described, StandIn stand_in);
    std::vector<std::uint64_t> operator()(std::span<const std::uint64_t> arguments) const;

private:
    const Family& family_;
    Program program_;
    Estimates estimates_;
};

struct Measured {
    double ulp = 0;                      ///< largest error
    std::vector<std::uint64_t> worst{};  ///< the arguments that gave it; empty without any error
    std::vector<std::uint64_t> got{};    ///< the outputs there
    std::uint64_t inputs = 0;            ///< how many were tried
    StandIn stand_in = StandIn::none;    ///< the one that gave it
};

/// Runs the kernel of width 16 over stratified arguments, dense around the thresholds of the accuracy line, and over
/// the line's own worst case. Throws std::runtime_error where a call breaks its contract.
Measured measure(const DescribedFamily& described);
/// The same over `count` random arguments: of all exponents, of moderate size, beside integers and beside thresholds.
Measured measure_random(const DescribedFamily& described, std::uint64_t seed, std::size_t count);
/// The same with the interpreter and stand-ins, over every `step`-th argument of fewer.
Measured measure_stand_ins(const DescribedFamily& described, std::span<const StandIn> stand_ins, std::size_t step = 1);
/// A search for the largest error over all stand-ins, or of a family without estimates by the processor: from the worst
/// of stratified arguments it climbs by small changes, from more of them with more `effort` (1 takes some seconds).
/// `progress` is told what was found, ever more.
Measured search(const DescribedFamily& described, int effort, const std::function<void(const Measured&)>& progress);

/// The largest relative errors of estimates, over every `step`-th significand: of the reciprocal, then of the root.
std::array<double, 2> estimate_errors(const Estimates& estimates, std::uint32_t step = 1);

/// Errors of a unary float family over all 2^32 arguments.
struct Exhaustive {
    Measured measured;
    /// The largest error by sign, exponent and the first three bits of the significand.
    std::array<float, 4096> by_pattern{};
    /// By distance from 1 in floats, 2^k to 2^(k+1) - 1: below 1, then above.
    std::array<std::array<float, 23>, 2> near_one{};
};
/// Whether `measure_all` takes the family.
bool can_measure_all(const Family& family);
/// Tries them all, on all processors. `progress` is told the part done, from 0 to 1. Throws std::invalid_argument for
/// other families and for those that FloatErrorScan doesn't know.
Exhaustive measure_all(const DescribedFamily& described, const std::function<void(double)>& progress);

/// The errors as lines of text, one an exponent, to look for steps.
std::string plot(const Exhaustive& errors);

/// A hash of the kernels' results over a fixed set of arguments, special ones included; over all from 0.5 to 2 for a
/// family of one float. Families that start from estimates are hashed by the interpreter, with exact ones, and over
/// fewer arguments.
std::uint64_t hash_of(const DescribedFamily& described);
/// Whether results depend on the processor: the family uses its approximate reciprocals, whose bits differ by maker.
bool depends_on_processor(const DescribedFamily& described);
/// The file of hashes as it should be.
std::string hash_file();

/// The limit that the compute language's full profile sets, in ulp; negative where it sets none.
double full_profile_limit(const Family& family);

}  // namespace tuvo

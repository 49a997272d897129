#include "tests/accuracy.hpp"

#include <immintrin.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/call.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"
#include "tests/power_arguments.hpp"
#include "tests/rare_routines.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

/// Stratified patterns, and as many random ones from 2^-6 to 2^7: a last bit of a coefficient shows in few results, and
/// only where no exponent outweighs it.
Patterns patterns_of(Lane lane, const Patterns& thresholds, int per_exponent) {
    Patterns patterns = stratified_patterns(lane, 1, thresholds, per_exponent);
    if (!is_floating(lane)) return patterns;
    const int fraction_bits = lane == Lane::f32 ? 23 : 52;
    const std::uint64_t lowest = lane == Lane::f32 ? 127 - 6 : 1023 - 6;
    RandomBits random(2);
    for (std::size_t k = patterns.size(); k > 0; --k) {
        const std::uint64_t fraction = random() & ((std::uint64_t{1} << fraction_bits) - 1);
        const std::uint64_t sign = (random() & 1) << (8 * lane_size(lane) - 1);
        patterns.push_back(sign | (lowest + random() % 13) << fraction_bits | fraction);
    }
    return patterns;
}

/// Arguments for all lanes of a family, by argument.
std::vector<Patterns> arguments_of(const Family& family, const Patterns& thresholds, int per_exponent,
                                   std::size_t pairs = 200000) {
    std::vector<Patterns> drawn;
    for (Lane lane : family.arguments)
        drawn.push_back(patterns_of(lane, drawn.empty() ? thresholds : Patterns{}, per_exponent));
    if (drawn.size() == 1) return drawn;
    // The first argument runs through its patterns; the others are drawn at random, or lie beside it.
    RandomBits random(3);
    std::vector<Patterns> arguments(drawn.size());
    for (std::size_t k = 0; k < std::max(pairs, drawn[0].size()); ++k) {
        arguments[0].push_back(drawn[0][k % drawn[0].size()]);
        for (std::size_t a = 1; a < drawn.size(); ++a) {
            if (is_power(family) && k % 8 != 0) {
                arguments[a].push_back(exponent_for(family, arguments[0].back(), random));
                continue;
            }
            const bool beside = k % 4 == 0 && family.arguments[a] == family.arguments[0];
            arguments[a].push_back(beside ? arguments[0].back() ^ (random() & 7)
                                          : drawn[a][random() % drawn[a].size()]);
        }
    }
    return arguments;
}

/// The arguments that an accuracy line speaks of.
class Domain {
public:
    explicit Domain(const DescribedFamily& described) : lanes_(described.family->arguments) {
        const Patterns& domain = described.accuracy.domain;
        for (std::size_t a = 0; a < lanes_.size() && !domain.empty(); ++a) {
            const std::size_t k = domain.size() == 2 ? 0 : 2 * a;
            limits_.emplace_back(domain.at(k), domain.at(k + 1));
        }
    }
    bool contains(std::span<const std::uint64_t> arguments) const {
        // Of two NaNs an emulator keeps another than a processor does.
        if (arguments.size() > 1 && emulated_ && count_nans(arguments) > 1) return false;
        for (std::size_t a = 0; a < limits_.size(); ++a) {
            const std::uint64_t magnitude = arguments[a] & ((std::uint64_t{1} << (8 * lane_size(lanes_[a]) - 1)) - 1);
            if (magnitude < limits_[a].first || magnitude > limits_[a].second) return false;
        }
        return true;
    }

private:
    const std::vector<Lane>& lanes_;
    int count_nans(std::span<const std::uint64_t> arguments) const {
        int count = 0;
        for (std::size_t a = 0; a < arguments.size(); ++a)
            count += is_floating(lanes_[a]) && Real::from_pattern(lanes_[a], arguments[a]).is_nan();
        return count;
    }

    std::vector<std::pair<std::uint64_t, std::uint64_t>> limits_;  ///< none if there are no limits
    bool emulated_ = emulated();
};

CallResult run_kernel(const Family& family, const std::vector<Patterns>& arguments) {
    const void* kernel = find_kernel(family, 16);
    if (!kernel) throw std::runtime_error("the library has no " + family.name());
    CallResult result = call_all(kernel, family, 16, arguments);
    if (!result.violations.empty()) throw std::runtime_error(family.name() + ": " + result.violations.front());
    return result;
}

bool is_unary_float(const Family& family) {
    return family.arguments == std::vector{Lane::f32} && family.outputs() == std::vector{Lane::f32};
}

/// The kernel of one full register, for long runs: the register contract asks less of a caller than C does.
class EightFloats {
public:
    explicit EightFloats(const Family& family)
        : kernel_(reinterpret_cast<Kernel>(const_cast<void*>(find_kernel(family, 8)))) {
        if (!is_unary_float(family)) throw std::invalid_argument(family.name() + " is not a function of one float");
        if (!kernel_) throw std::runtime_error("the library has no " + family.name());
    }
    /// The results for the eight patterns from `first` on.
    std::array<std::uint32_t, 8> operator()(std::uint32_t first) const {
        const __m128i low = _mm_add_epi32(_mm_set1_epi32(static_cast<int>(first)), _mm_setr_epi32(0, 1, 2, 3));
        const __m128i high = _mm_add_epi32(low, _mm_set1_epi32(4));
        return std::bit_cast<std::array<std::uint32_t, 8>>(kernel_(_mm256_castsi256_ps(_mm256_set_m128i(high, low))));
    }

private:
    using Kernel = __m256 (*)(__m256);
    Kernel kernel_;
};

}  // namespace

bool has_oracle(const Family& family) {
    const Patterns zeros(family.arguments.size());
    if (exact_outputs(family, zeros)) return true;
    const std::vector<Real> ones(zeros.size(), Real(1));
    return oracle(family.operation, ones, family.outputs().size() - 1).has_value();
}

std::vector<std::uint64_t> outputs_of(const Family& family, std::span<const std::uint64_t> arguments) {
    std::vector<Patterns> lanes;
    for (std::uint64_t argument : arguments) lanes.push_back({argument});
    std::vector<std::uint64_t> outputs;
    for (const Patterns& output : run_kernel(family, lanes).outputs) outputs.push_back(output[0]);
    return outputs;
}

double error_of(const Family& family, std::span<const std::uint64_t> arguments, std::span<const std::uint64_t> got) {
    if (const auto expected = exact_outputs(family, arguments))
        return std::ranges::equal(got, *expected) ? 0 : std::numeric_limits<double>::infinity();
    std::vector<Real> values;
    for (std::size_t a = 0; a < arguments.size(); ++a)
        values.push_back(Real::from_pattern(family.arguments[a], arguments[a]));
    const std::vector<Lane> lanes = family.outputs();
    double largest = 0;
    for (std::size_t k = 0; k < lanes.size(); ++k) {
        const std::optional<Real> exact = oracle(family.operation, values, k);
        if (!exact) throw std::invalid_argument("the oracle does not know " + family.operation);
        largest = std::max(largest, ulp_error(lanes[k], got[k], *exact));
    }
    return largest;
}

namespace {

/// Keeps the lane with the largest error.
class Worst {
public:
    explicit Worst(const DescribedFamily& described) : family_(*described.family), domain_(described) {
        const bool exact = exact_outputs(family_, Patterns(family_.arguments.size())).has_value();
        if (!exact && is_unary_float(family_) && FloatErrorScan::knows(family_.operation))
            scan_.emplace(family_.operation);
        else if (!exact && ExtendedErrorScan::knows(family_.operation))
            extended_.emplace(family_.operation, family_.element);
    }

    bool concerns(std::span<const std::uint64_t> lane) const { return domain_.contains(lane); }
    /// Returns the error, 0 outside the family's domain.
    double add(const Patterns& lane, const Patterns& got, StandIn stand_in = StandIn::none) {
        if (!domain_.contains(lane)) return 0;
        ++measured_.inputs;
        if (const auto quick = quick_error(family_, lane, got[0]); quick && *quick < measured_.ulp)
            return *quick - 0.01;
        const double error = scan_ ? scan_->add(static_cast<std::uint32_t>(lane[0]), static_cast<std::uint32_t>(got[0]))
                             : extended_ ? extended_->add(lane, got[0])
                                         : error_of(family_, lane, got);
        // A scan confirms an error that looks the largest.
        const double confirmed = scan_ ? scan_->max_error() : extended_ ? extended_->max_error() : error;
        if (confirmed > measured_.ulp) {
            measured_.ulp = confirmed;
            measured_.worst = lane;
            measured_.got = got;
            measured_.stand_in = stand_in;
        }
        return error;
    }
    const Measured& measured() const { return measured_; }

private:
    const Family& family_;
    Domain domain_;
    std::optional<FloatErrorScan> scan_;
    std::optional<ExtendedErrorScan> extended_;
    Measured measured_;
};

Patterns lane_of(const std::vector<Patterns>& lanes, std::size_t k) {
    Patterns lane;
    for (const Patterns& values : lanes) lane.push_back(values[k]);
    return lane;
}

/// A neighbour of the lane: one argument a little or far away in its significand, or in another binade.
Patterns changed(const Family& family, Patterns lane, RandomBits& random) {
    const std::size_t a = random() % lane.size();
    const int bits = 8 * lane_size(family.arguments[a]);
    const int fraction_bits = bits == 32 ? 23 : 52;
    const std::uint64_t distance = (random() & ((std::uint64_t{1} << fraction_bits) - 1)) >> random() % fraction_bits;
    std::uint64_t& pattern = lane[a];
    switch (random() % 8) {
    case 0: pattern ^= std::uint64_t{1} << random() % fraction_bits; break;
    case 1: pattern += (random() % 5 - 2) << fraction_bits; break;
    default: pattern += random() & 1 ? distance : -distance; break;
    }
    pattern &= ~std::uint64_t{0} >> (64 - bits);
    return lane;
}

}  // namespace

ByDescription::ByDescription(const DescribedFamily& described, StandIn stand_in)
    : family_(*described.family), program_(record_family(described)), estimates_(estimates_of(stand_in)) {}

std::vector<std::uint64_t> ByDescription::operator()(std::span<const std::uint64_t> arguments) const {
    LaneResult result = interpret(program_, arguments, false, false, estimates_);
    if (result.rare) run_rare_routine(family_, arguments, result.outputs);
    return result.outputs;
}

Measured measure(const DescribedFamily& described) {
    const Family& family = *described.family;
    std::vector<Patterns> arguments =
        arguments_of(family, described.accuracy.thresholds, family.arguments[0] == Lane::f64 ? 16 : 256);
    for (std::size_t a = 0; a < described.accuracy.worst.size(); ++a)
        arguments[a].push_back(described.accuracy.worst[a]);
    const CallResult result = run_kernel(family, arguments);
    Worst worst(described);
    for (std::size_t k = 0; k < arguments[0].size(); ++k) worst.add(lane_of(arguments, k), lane_of(result.outputs, k));
    return worst.measured();
}

namespace {

/// A random argument that a family may find hard.
std::uint64_t random_argument(Lane lane, const std::vector<std::uint64_t>& thresholds, RandomBits& random) {
    const int bits = 8 * lane_size(lane), fraction_bits = lane == Lane::f32 ? 23 : 52;
    const std::uint64_t mask = ~std::uint64_t{0} >> (64 - bits);
    if (!is_floating(lane)) return random() & mask >> random() % bits;
    const auto pattern = [&](double x) { return Real(x).to_pattern(lane); };
    const double part = static_cast<double>(random() >> 11) * 0x1p-53;  // of 1
    const std::uint64_t nearby = (random() & ((std::uint64_t{1} << fraction_bits) - 1)) >> random() % fraction_bits;
    switch (random() % 4) {
    case 0: return random() & mask;
    case 1: return pattern(std::ldexp(1 + part, static_cast<int>(random() % 20) - 10) * (random() % 2 ? 1 : -1));
    case 2: return (pattern(std::floor(part * 256) - 64) + (random() % 2 ? nearby : -nearby)) & mask;
    default:
        if (thresholds.empty()) return pattern(256 * part - 64);
        return (thresholds[random() % thresholds.size()] + (random() % 2 ? nearby : -nearby)) & mask;
    }
}

}  // namespace

Measured measure_random(const DescribedFamily& described, std::uint64_t seed, std::size_t count) {
    const Family& family = *described.family;
    RandomBits random(seed);
    std::vector<Patterns> arguments(family.arguments.size());
    for (std::size_t k = 0; k < count; ++k)
        for (std::size_t a = 0; a < arguments.size(); ++a)
            arguments[a].push_back(random_argument(family.arguments[a], described.accuracy.thresholds, random));
    const CallResult result = run_kernel(family, arguments);
    Worst worst(described);
    for (std::size_t k = 0; k < count; ++k) worst.add(lane_of(arguments, k), lane_of(result.outputs, k));
    return worst.measured();
}

Measured measure_stand_ins(const DescribedFamily& described, std::span<const StandIn> tried, std::size_t step) {
    const std::vector<Patterns> arguments = arguments_of(*described.family, described.accuracy.thresholds, 1, 0);
    Worst worst(described);
    for (StandIn stand_in : tried) {
        const ByDescription results(described, stand_in);
        for (std::size_t k = 0; k < arguments[0].size(); k += step) {
            const Patterns lane = lane_of(arguments, k);
            worst.add(lane, results(lane), stand_in);
        }
    }
    return worst.measured();
}

Measured search(const DescribedFamily& described, int effort, const std::function<void(const Measured&)>& progress) {
    const std::size_t summits = 40 * static_cast<std::size_t>(effort);
    constexpr int attempts = 6000;
    const Family& family = *described.family;
    std::vector<StandIn> tried{StandIn::none};
    if (depends_on_processor(described)) tried.assign(stand_ins.begin(), stand_ins.end());
    const std::vector<Patterns> arguments =
        arguments_of(family, described.accuracy.thresholds, family.arguments[0] == Lane::f64 ? 8 : 64, 40000);
    Worst worst(described);
    RandomBits random(4);
    for (StandIn stand_in : tried) {
        const ByDescription results(described, stand_in);
        std::vector<std::pair<double, Patterns>> starts;
        const auto keep_best = [&] {
            const std::size_t count = std::min(summits, starts.size());
            std::ranges::partial_sort(starts, starts.begin() + static_cast<std::ptrdiff_t>(count), std::greater<>(),
                                      &std::pair<double, Patterns>::first);
            starts.resize(count);
        };
        const auto start = [&](const Patterns& lane) {
            starts.emplace_back(worst.add(lane, results(lane), stand_in), lane);
            if (starts.size() == 100 * summits) keep_best();
        };
        if (described.accuracy.worst.size() == family.arguments.size()) start(described.accuracy.worst);
        for (std::size_t k = 0; k < arguments[0].size(); ++k) start(lane_of(arguments, k));
        if (is_unary_float(family))  // all significands of two binades
            for (std::uint32_t x = 0x3f800000; x < 0x40800000; x += effort < 5 ? 5 - effort : 1) start({x});
        keep_best();
        progress(worst.measured());
        for (auto& [error, lane] : starts) {
            for (int k = 0; k < attempts; ++k) {
                Patterns next = changed(family, lane, random);
                const double found = worst.add(next, results(next), stand_in);
                if (found >= error) error = found, lane = std::move(next);
            }
        }
        progress(worst.measured());
    }
    return worst.measured();
}

std::array<double, 2> estimate_errors(const Estimates& estimates, std::uint32_t step) {
    const auto largest = [&](const Description& estimate, std::uint32_t end, auto&& product) {
        const Program program = record_program("estimate", 0, {Type::f32}, estimate.body);
        double error = 0;
        for (std::uint64_t x = 0x3f800000; x < end; x += step) {
            const std::uint64_t pattern = interpret(program, {&x, 1}, false, false, estimates).outputs[0];
            const double r = std::bit_cast<float>(static_cast<std::uint32_t>(pattern));
            error = std::max(error, std::abs(product(std::bit_cast<float>(static_cast<std::uint32_t>(x)), r) - 1));
        }
        return error;
    };
    return {largest(describe(+[](F32 x) { return reciprocal_approximation(x); }), 0x40000000,
                    [](double x, double r) { return r * x; }),
            largest(describe(+[](F32 x) { return reciprocal_sqrt_approximation(x); }), 0x40800000,
                    [](double x, double r) { return r * std::sqrt(x); })};
}

bool can_measure_all(const Family& family) { return is_unary_float(family) && FloatErrorScan::knows(family.operation); }

Exhaustive measure_all(const DescribedFamily& described, const std::function<void(double)>& progress) {
    const Family& family = *described.family;
    const EightFloats kernel(family);
    const Domain domain(described);
    constexpr std::uint32_t one = 0x3f800000;
    constexpr std::uint64_t total = std::uint64_t{1} << 32, chunk = 1 << 20;
    // Where the error grows with the argument, each one would be the largest so far, which takes the slow way. Known
    // large errors ahead of them keep that to the few that matter.
    const std::vector<Patterns> sample{stratified_patterns(Lane::f32, 1)};
    const Patterns of_sample = run_kernel(family, sample).outputs[0];
    FloatErrorScan overall(family.operation);
    for (std::size_t k = 0; k < of_sample.size(); ++k)
        if (domain.contains({&sample[0][k], 1}))
            overall.add(static_cast<std::uint32_t>(sample[0][k]), static_cast<std::uint32_t>(of_sample[k]));

    Exhaustive result;
    std::atomic<std::uint64_t> next{0};
    std::mutex mutex;
    const auto work = [&](FloatErrorScan scan) {
        for (std::uint64_t start; (start = next.fetch_add(chunk)) < total;) {
            float by_pattern = 0;
            decltype(result.near_one) near_one{};
            for (std::uint64_t x = start; x < start + chunk; x += 8) {
                const std::array<std::uint32_t, 8> got = kernel(static_cast<std::uint32_t>(x));
                for (std::uint32_t lane = 0; lane < 8; ++lane) {
                    const std::uint64_t pattern = x + lane;
                    if (!domain.contains({&pattern, 1})) continue;
                    const auto input = static_cast<std::uint32_t>(pattern);
                    const float error = static_cast<float>(scan.add(input, got[lane]));
                    by_pattern = std::max(by_pattern, error);
                    const bool above = input > one;
                    const std::uint32_t distance = above ? input - one : one - input;
                    if (distance != 0 && distance >> 23 == 0) {
                        float& bin = near_one[above][static_cast<std::size_t>(std::bit_width(distance)) - 1];
                        bin = std::max(bin, error);
                    }
                }
            }
            const std::lock_guard lock(mutex);
            result.by_pattern[start / chunk] = by_pattern;
            for (std::size_t side = 0; side < 2; ++side)
                for (std::size_t k = 0; k < near_one[side].size(); ++k)
                    result.near_one[side][k] = std::max(result.near_one[side][k], near_one[side][k]);
            if (start / chunk % 64 == 0) progress(static_cast<double>(start) / static_cast<double>(total));
        }
        const std::lock_guard lock(mutex);
        overall.merge(scan);
    };
    std::vector<std::thread> threads;
    for (unsigned k = 0; k < std::max(1u, std::thread::hardware_concurrency()); ++k)
        threads.emplace_back(work, overall);
    for (std::thread& thread : threads) thread.join();
    result.measured = {overall.max_error(), {overall.worst_input()}, {overall.worst_got()}, total};
    return result;
}

std::string plot(const Exhaustive& errors) {
    // Eight heights between a quarter and the largest error, each the same factor above the last.
    constexpr const char* heights[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const double largest = std::clamp(errors.measured.ulp, 0.5, 0x1p24);
    const auto height = [&](double error) {
        if (error < 0.25) return heights[error > 0];
        return heights[1 + static_cast<int>(std::ceil(7 * std::log(error / 0.25) / std::log(largest / 0.25) - 1e-6))];
    };
    const auto row = [&](std::ostringstream& out, const std::string& label, std::span<const float> bins) {
        char text[64];
        const float most = *std::ranges::max_element(bins);
        if (most == 0) return;
        std::snprintf(text, sizeof text, "%-18s %12.4f  ", label.c_str(), most);
        out << text;
        for (float bin : bins) out << height(std::min<double>(bin, largest));
        out << "\n";
    };
    std::ostringstream out;
    for (int sign = 0; sign < 2; ++sign)
        for (int exponent = 0; exponent < 255; ++exponent)
            row(out,
                (sign ? "-2^" : "2^") + std::to_string(std::max(exponent, 1) - 127) + (exponent ? "" : " subnormal"),
                std::span(errors.by_pattern).subspan(static_cast<std::size_t>(sign * 2048 + exponent * 8), 8));
    for (std::size_t side = 0; side < 2; ++side)
        for (std::size_t k = 0; k < 23; ++k)
            row(out, std::string(side ? "1 + 2^" : "1 - 2^") + std::to_string(static_cast<int>(k) - (side ? 23 : 24)),
                std::span(errors.near_one[side]).subspan(k, 1));
    return out.str();
}

std::uint64_t hash_of(const DescribedFamily& described) {
    const Family& family = *described.family;
    const bool by_description = depends_on_processor(described);
    const std::vector<Patterns> arguments = arguments_of(family, {}, 16, by_description ? 20000 : 200000);
    // Every step is one to one in the hash, so that a single changed result can't be undone by later ones.
    std::uint64_t hash = 0xcbf29ce484222325;
    const auto add = [&](std::uint64_t pattern) { hash = std::rotl((hash ^ pattern) * 0x100000001b3, 23); };
    if (by_description) {
        const ByDescription results(described, StandIn::exact);
        const auto add_lane = [&](const Patterns& lane) { std::ranges::for_each(results(lane), add); };
        for (std::size_t k = 0; k < arguments[0].size(); ++k) add_lane(lane_of(arguments, k));
        if (is_unary_float(family))
            for (std::uint32_t x = 0x3f000000; x < 0x40000000; x += 149) add_lane({x});
        return hash;
    }
    const CallResult result = run_kernel(family, arguments);
    for (const Patterns& output : result.outputs) std::ranges::for_each(output, add);
    // The last bit of a high coefficient shows in one result of a million.
    if (is_unary_float(family)) {
        const EightFloats kernel(family);
        for (std::uint32_t x = 0x3f000000; x < 0x40000000; x += 8)  // from 0.5 to 2
            std::ranges::for_each(kernel(x), add);
    }
    return hash;
}

bool depends_on_processor(const DescribedFamily& described) {
    return std::ranges::any_of(record_family(described).nodes, [](const Node& node) {
        return node.op == Op::reciprocal || node.op == Op::reciprocal_sqrt;
    });
}

std::string hash_file() {
    std::ostringstream out;
    out << "# Hashes of each family's results over a fixed set of arguments, so that any changed bit is deliberate.\n"
           "# Written by `tuvo-accuracy --hashes`. Families that start from the processor's approximate reciprocal or\n"
           "# reciprocal root, whose bits differ between processors, are hashed by their descriptions with exact "
           "ones.\n";
    for (const DescribedFamily& described : described_families()) {
        char line[100];
        std::snprintf(line, sizeof line, "%-24s %016llx\n", described.family->name().c_str(),
                      static_cast<unsigned long long>(hash_of(described)));
        out << line;
    }
    return out.str();
}

double full_profile_limit(const Family& family) {
    struct Limit {
        std::string_view operations;  ///< each between spaces
        double single, twice;         ///< in float and in double
    };
    constexpr Limit limits[] = {
        {" fabs copysign nan ceil floor round trunc rint fdim fma fmax fmin fmod fract frexp ilogb ldexp logb maxmag "
         "minmag"
         " modf nextafter remainder remquo ",
         0, 0},
        {" div inv ", 2.5, 0},
        {" sqrt ", 3, 0},
        {" rsqrt cbrt log1p ", 2, 2},
        {" exp exp2 exp10 expm1 log log2 log10 ", 3, 3},
        {" acos asin sin cos sincos sincosreg sinpi cospi sinh cosh acosh asinh hypot ", 4, 4},
        {" tan atan tanh atanh acospi asinpi atanpi ", 5, 5},
        {" atan2 atan2pi tanpi ", 6, 6},
        {" erf erfc tgamma pow powr pown rootn ", 16, 16},
    };
    if (family.tier == Tier::half) return 8192;
    if (family.tier != Tier::standard || family.stem.starts_with("cvt")) return -1;
    for (const Limit& limit : limits)
        if (limit.operations.find(" " + family.operation + " ") != std::string_view::npos)
            return family.element == Lane::f32 ? limit.single : limit.twice;
    return -1;
}

}  // namespace tuvo

#include "report/samples.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"

namespace tuvo::report {
namespace {

using Patterns = std::vector<std::uint64_t>;
constexpr int samples_per_bin = 24;
constexpr double bins_per_unit = 4;
constexpr double fine_range = 24;  ///< binades on either side of 1 that have the axis to themselves
constexpr double coarse_room = 13;  ///< of all binades beyond them

/// Binades beyond the fine range that share one's room.
double coarseness(Lane lane) { return ((lane == Lane::f32 ? 128 : 1024) - fine_range) / coarse_room; }

std::uint64_t pattern_of(Lane lane, double x) {
    if (lane == Lane::f32) return std::bit_cast<std::uint32_t>(static_cast<float>(x));
    return std::bit_cast<std::uint64_t>(x);
}

/// The magnitude at a distance from the axis' middle.
double magnitude_at(Lane lane, double distance) {
    double exponent = distance - fine_range;
    if (exponent > fine_range) exponent = fine_range + (exponent - fine_range) * coarseness(lane);
    return std::exp2(exponent);
}

/// Magnitudes below 2^-24 are left out of plots: nearly all functions are straight there.
constexpr double longest_distance = 2 * fine_range + coarse_room;

bool is_nan_pattern(Lane lane, std::uint64_t pattern) {
    return lane == Lane::f32 ? std::isnan(std::bit_cast<float>(static_cast<std::uint32_t>(pattern)))
                             : is_floating(lane) && std::isnan(std::bit_cast<double>(pattern));
}

std::vector<double> finite_samples(Lane lane, double from, double to, RandomBits& random) {
    std::vector<double> samples;
    for (int k = 0; k < samples_per_bin; ++k) {
        const double part = static_cast<double>(random() >> 11) * 0x1p-53;
        const double low = magnitude_at(lane, std::min(std::abs(from), std::abs(to)));
        const double high = std::min(magnitude_at(lane, std::max(std::abs(from), std::abs(to))),
                                     lane == Lane::f32 ? 0x1.fffffep127 : 0x1.fffffffffffffp1023);
        samples.push_back(std::copysign(low + (high - low) * part, from + to));
    }
    return samples;
}

std::uint64_t further_argument(Lane lane, RandomBits& random) {
    if (!is_floating(lane)) return (random() % 13 - 6) & (lane_size(lane) == 4 ? 0xffffffffu : ~std::uint64_t{0});
    const double magnitude = std::exp2(static_cast<double>(random() % 4096) / 512 - 4);
    return pattern_of(lane, random() & 1 ? magnitude : -magnitude);
}

}  // namespace

double axis_position(Lane lane, double x) {
    double exponent = std::log2(std::abs(x));
    if (exponent > fine_range) exponent = fine_range + (exponent - fine_range) / coarseness(lane);
    return std::copysign(std::max(0.0, exponent + fine_range), x);
}

std::vector<Bin> sample_errors(const DescribedFamily& described) {
    const Family& family = *described.family;
    const Lane lane = family.arguments[0];
    if (!is_floating(lane) || !has_oracle(family) || described.accuracy.ulp == 0) return {};
    RandomBits random(7);
    std::vector<double> starts;
    std::vector<Patterns> arguments(family.arguments.size());
    for (double start = -longest_distance; start < longest_distance; start += 1 / bins_per_unit) {
        starts.push_back(start);
        for (double x : finite_samples(lane, start, start + 1 / bins_per_unit, random)) {
            arguments[0].push_back(pattern_of(lane, x));
            for (std::size_t a = 1; a < arguments.size(); ++a)
                arguments[a].push_back(further_argument(family.arguments[a], random));
        }
    }
    const CallResult result = call_all(find_kernel(family, 16), family, 16, arguments);
    std::vector<Bin> bins;
    for (std::size_t b = 0; b < starts.size(); ++b) {
        std::vector<double> errors;
        for (std::size_t k = b * samples_per_bin; k < (b + 1) * samples_per_bin; ++k) {
            Patterns lanes, got;
            for (const Patterns& argument : arguments) lanes.push_back(argument[k]);
            for (const Patterns& output : result.outputs) got.push_back(output[k]);
            if (is_nan_pattern(family.results[0], got[0])) continue;  // outside the function's domain
            const double error = error_of(family, lanes, got);
            if (std::isfinite(error)) errors.push_back(error);
        }
        if (errors.empty()) continue;
        std::ranges::sort(errors);
        bins.push_back({starts[b] + 0.5 / bins_per_unit, errors.back(), errors[errors.size() / 2]});
    }
    return bins;
}

std::string value_text(Lane lane, std::uint64_t pattern) {
    char text[40];
    switch (lane) {
    case Lane::f32:
    case Lane::f64: {
        const double x = lane == Lane::f32 ? std::bit_cast<float>(static_cast<std::uint32_t>(pattern)) : std::bit_cast<double>(pattern);
        if (std::isnan(x)) return "nan";
        std::snprintf(text, sizeof text, "%.*g", lane == Lane::f32 ? 9 : 17, x);
        break;
    }
    case Lane::i32: std::snprintf(text, sizeof text, "%d", static_cast<std::int32_t>(pattern)); break;
    case Lane::u32: std::snprintf(text, sizeof text, "%u", static_cast<std::uint32_t>(pattern)); break;
    case Lane::i64: std::snprintf(text, sizeof text, "%lld", static_cast<long long>(pattern)); break;
    case Lane::u64: std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(pattern)); break;
    }
    return text;
}

std::vector<SpecialValue> special_values(const Family& family) {
    const auto choices = [&](Lane lane) {
        Patterns patterns;
        if (!is_floating(lane)) {
            const std::uint64_t ones = lane_size(lane) == 4 ? 0xffffffffu : ~std::uint64_t{0};
            return Patterns{0, 1, ones, ones >> 1, (ones >> 1) + 1};
        }
        for (double x : {0.0, -0.0, 1.0, -1.0, HUGE_VAL, -HUGE_VAL}) patterns.push_back(pattern_of(lane, x));
        patterns.push_back(lane == Lane::f32 ? 0x7fc00000u : 0x7ff8000000000000u);
        if (family.arguments.size() == 1) {
            patterns.push_back(1);
            patterns.push_back(lane == Lane::f32 ? 0x7f7fffffu : 0x7fefffffffffffffu);
        }
        return patterns;
    };
    std::vector<Patterns> sets{{}};
    for (Lane lane : family.arguments) {
        // Of three arguments the last one is 1, or the tables grow too long to read.
        const Patterns patterns = sets[0].size() == 2 ? Patterns{pattern_of(lane, 1)} : choices(lane);
        std::vector<Patterns> longer;
        for (const Patterns& set : sets)
            for (std::uint64_t pattern : patterns) {
                longer.push_back(set);
                longer.back().push_back(pattern);
            }
        sets = longer;
    }
    std::vector<SpecialValue> values;
    for (const Patterns& set : sets) {
        SpecialValue value;
        for (std::size_t a = 0; a < set.size(); ++a) value.arguments.push_back(value_text(family.arguments[a], set[a]));
        const Patterns outputs = outputs_of(family, set);
        for (std::size_t k = 0; k < outputs.size(); ++k) value.outputs.push_back(value_text(family.outputs()[k], outputs[k]));
        values.push_back(value);
    }
    return values;
}

}  // namespace tuvo::report

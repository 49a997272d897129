#include "frame/description/estimates.hpp"

#include <bit>
#include <cmath>
#include <limits>

namespace tuvo {
namespace {

/// From -1 to 1, by the pattern alone. Of a hundred summands tried, this one gave the arc cosine its largest error.
double scattered(std::uint32_t pattern) {
    std::uint32_t z = (pattern + 90) * 0x9e3779b1u;
    z = (z ^ z >> 15) * 0x85ebca77u;
    return static_cast<double>(z ^ z >> 13) * 0x1p-31 - 1;
}

/// How far from the exact value the estimate of x lies.
double deviation(StandIn stand_in, float x) {
    switch (stand_in) {
    case StandIn::low: return -estimate_bound;
    case StandIn::high: return estimate_bound;
    case StandIn::alternating: return std::bit_cast<std::uint32_t>(x) & 1 ? estimate_bound : -estimate_bound;
    case StandIn::scattered: return estimate_bound * scattered(std::bit_cast<std::uint32_t>(x));
    default: return 0;
    }
}

/// The float nearest to value (1 + deviation) on the side of `value`, so that none is farther away than allowed.
float deviated(double value, double deviation) {
    const double target = value * (1 + deviation);
    float result = static_cast<float>(target);
    if (deviation > 0 && result > target) result = std::nextafter(result, 0.0f);
    if (deviation < 0 && result < target) result = std::nextafter(result, std::numeric_limits<float>::infinity());
    return result;
}

float quieted(float x) { return std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) | 0x00400000); }

bool is_zero_or_subnormal(float x) { return std::abs(x) < std::numeric_limits<float>::min(); }

// Subnormal arguments count as zeros, and a subnormal result is a zero.

float reciprocal(StandIn stand_in, float x) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    if (std::isnan(x)) return quieted(x);
    if (is_zero_or_subnormal(x)) return std::copysign(infinity, x);
    const float result = deviated(1 / std::abs(static_cast<double>(x)), deviation(stand_in, x));
    return std::copysign(is_zero_or_subnormal(result) ? 0 : result, x);
}

float reciprocal_sqrt(StandIn stand_in, float x) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    if (std::isnan(x)) return quieted(x);
    if (is_zero_or_subnormal(x)) return std::copysign(infinity, x);
    if (x < 0) return std::bit_cast<float>(0xffc00000);
    return x == infinity ? 0 : deviated(1 / std::sqrt(static_cast<double>(x)), deviation(stand_in, x));
}

}  // namespace

std::string_view name_of(StandIn stand_in) {
    switch (stand_in) {
    case StandIn::exact: return "exact";
    case StandIn::low: return "low";
    case StandIn::high: return "high";
    case StandIn::alternating: return "alternating";
    case StandIn::scattered: return "scattered";
    default: return "the processor's";
    }
}

Estimates estimates_of(StandIn stand_in) {
    if (stand_in == StandIn::none) return {};
    return {[stand_in](float x) { return reciprocal(stand_in, x); },
            [stand_in](float x) { return reciprocal_sqrt(stand_in, x); }};
}

}  // namespace tuvo

// The approximate reciprocal and reciprocal root, computed in software in place of the processor's instructions.
//
// All that the architecture promises of these instructions is a relative error of at most 1.5 * 2^-12: their bits are
// each maker's own. What is said of a description that starts from one has to hold for all that is allowed, and is
// tried with approximations at the ends of it.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string_view>

namespace tuvo {

/// Both functions; an empty one stands for the processor's own instruction.
struct Estimates {
    std::function<float(float)> reciprocal{};
    std::function<float(float)> reciprocal_sqrt{};
};

inline constexpr double estimate_bound = 1.5 * 0x1p-12;

enum class StandIn : std::uint8_t {
    none,         ///< the processor's own
    exact,        ///< rounded to nearest
    low,          ///< as low as allowed
    high,         ///< as high as allowed
    alternating,  ///< high for odd patterns, low for even ones: so two estimates of one lane may differ in direction
    scattered,    ///< anywhere between, by the argument's pattern: roundings may add up where no end is the worst
};
/// All but `none`.
inline constexpr std::array stand_ins{StandIn::exact, StandIn::low, StandIn::high, StandIn::alternating,
                                    StandIn::scattered};
std::string_view name_of(StandIn stand_in);

Estimates estimates_of(StandIn stand_in);

}  // namespace tuvo

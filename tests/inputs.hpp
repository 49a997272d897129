// Lanes to call kernels with, and what the interpreter makes of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/description/families.hpp"
#include "tests/oracle.hpp"

namespace tuvo {

/// One lane of a call: its arguments, and what the description yields for them.
struct LaneCase {
    std::vector<std::uint64_t> arguments;
    LaneResult expected;
    /// The outputs of a rare lane at widths whose parts have 256 bits; they may differ there until the routine has run.
    std::vector<std::uint64_t> wide_outputs{};
};

/// `count` lanes for a family. The first argument runs through the most telling of its type's stratified patterns and
/// a random choice of the others; further arguments are drawn alike, or lie beside the first one. A quarter of the
/// lanes has all arguments of moderate size. The same seed gives the same lanes.
std::vector<LaneCase> lane_cases(const DescribedFamily& described, std::uint64_t seed, std::size_t count);

/// Lanes put together to the arguments of a call.
std::vector<std::vector<std::uint64_t>> arguments_of(const std::vector<const LaneCase*>& lanes);

/// "0x3f800000 0x00000001": patterns, for messages.
std::string hex(const std::vector<std::uint64_t>& patterns);

/// The lanes of a family, parted by whether they go to the rare routine.
struct Lanes {
    Lanes(const DescribedFamily& described, std::uint64_t seed, std::size_t count);
    Lanes(const Lanes&) = delete;

    std::vector<LaneCase> all;
    std::vector<const LaneCase*> ordinary, rare;

    /// As many random lanes as `kinds` has elements: rare where it is true.
    std::vector<const LaneCase*> choose(const std::vector<bool>& kinds, RandomBits& random) const;
    /// Kinds of `width` lanes that the family has: all of one kind, each lane alone different from its neighbours,
    /// and random mixtures.
    std::vector<std::vector<bool>> mixtures(int width, RandomBits& random) const;
};

}  // namespace tuvo

// Kernels beside what lanes should give.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/inputs.hpp"

namespace tuvo {

/// The outputs of each lane: the interpreter's, or for a rare lane what its routine makes of them.
std::vector<std::vector<std::uint64_t>> expected_outputs(const Family& family, const std::vector<LaneCase>& lanes);

/// Calls the family's kernel of that width on all lanes, `seed` modulo the width of them left out, and appends to
/// `faults` a line for each lane that differs and each breach of the contract. Returns the number of lanes compared.
std::uint64_t compare_lanes(const Family& family, int width, const std::vector<LaneCase>& lanes,
                            const std::vector<std::vector<std::uint64_t>>& expected, std::uint64_t seed,
                            std::string& faults);

}  // namespace tuvo

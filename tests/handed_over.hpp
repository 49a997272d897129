// Which lanes of a call a kernel hands to its rare routine.
#pragma once

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/recorder.hpp"

namespace tuvo {

/// The patterns that the kernel of four lanes hands over, in its order; at most four are tried at once. For families
/// of one argument.
inline std::vector<std::uint64_t> handed_over(const Family& family, std::vector<std::uint64_t> lanes) {
    lanes.resize(4, lanes[0]);
    std::vector<std::uint64_t> patterns;
    on_rare_call = [&](const RareCall& call) {
        patterns.push_back(0);
        std::memcpy(&patterns.back(), call.pointers[0], static_cast<std::size_t>(lane_size(family.element)));
        return Clobber::whole;
    };
    const CallResult result = call(find_recorded_kernel(family, 4), family, 4, {{lanes}});
    EXPECT_EQ(result.violations, std::vector<std::string>{});
    return patterns;
}

}  // namespace tuvo

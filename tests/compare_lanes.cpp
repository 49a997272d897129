#include "tests/compare_lanes.hpp"

#include "tests/call.hpp"
#include "tests/library.hpp"
#include "tests/rare_routines.hpp"

namespace tuvo {

std::vector<std::vector<std::uint64_t>> expected_outputs(const Family& family, const std::vector<LaneCase>& lanes) {
    std::vector<std::vector<std::uint64_t>> expected;
    for (const LaneCase& lane : lanes) {
        expected.push_back(lane.expected.outputs);
        if (lane.expected.rare) run_rare_routine(family, lane.arguments, expected.back());
    }
    return expected;
}

std::uint64_t compare_lanes(const Family& family, int width, const std::vector<LaneCase>& lanes,
                            const std::vector<std::vector<std::uint64_t>>& expected, std::uint64_t seed, std::string& faults) {
    Caller caller(find_kernel(family, width), family, width);
    const auto w = static_cast<std::size_t>(width);
    std::uint64_t compared = 0;
    for (std::size_t start = seed % w; start + w <= lanes.size(); start += w) {
        std::vector<const LaneCase*> cases;
        for (std::size_t k = 0; k < w; ++k) cases.push_back(&lanes[start + k]);
        const CallResult& result = caller(arguments_of(cases));
        for (const std::string& violation : result.violations)
            faults += short_name(family, width) + ": " + violation + ", seed " + std::to_string(seed) + "\n";
        for (std::size_t k = 0; k < w; ++k) {
            ++compared;
            for (std::size_t v = 0; v < result.outputs.size(); ++v)
                if (result.outputs[v][k] != expected[start + k][v])
                    faults += short_name(family, width) + ", lane " + std::to_string(k) + ", seed " + std::to_string(seed) +
                              ", arguments " + hex(lanes[start + k].arguments) + "\n";
        }
    }
    return compared;
}

}  // namespace tuvo

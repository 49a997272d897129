// Generated code against the interpreter, bit for bit: each lane in every position, beside different neighbours, at all
// widths. Rare lanes against the rare routine that the library itself holds.
#include <numeric>

#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/rare_routines.hpp"

namespace tuvo {
namespace {

/// Values that every kernel has to yield for the lane.
std::vector<std::uint64_t> final_outputs(const Family& family, const LaneCase& lane) {
    std::vector<std::uint64_t> outputs = lane.expected.outputs;
    if (lane.expected.rare) run_rare_routine(family, lane.arguments, outputs);
    return outputs;
}

constexpr std::uint64_t seed = 2;

/// Puts each of the lanes into each position once. Lanes are dealt to as many groups as there are positions; in each
/// pass the groups move on by one position, and against one another by some random distance.
void check_width(const Family& family, int width, const std::vector<LaneCase>& lanes,
                 const std::vector<std::vector<std::uint64_t>>& expected) {
    const void* kernel = find_kernel(family, width);
    ASSERT_TRUE(kernel) << short_name(family, width);
    Caller caller(kernel, family, width);
    RandomBits random(seed);
    const std::size_t group = lanes.size() / width;
    for (int pass = 0; pass < width; ++pass) {
        std::vector<std::size_t> distance(width);
        for (std::size_t& d : distance) d = random() % group;
        for (std::size_t step = 0; step < group; ++step) {
            std::vector<std::size_t> chosen;
            std::vector<const LaneCase*> cases;
            for (int position = 0; position < width; ++position) {
                chosen.push_back((step + distance[position]) % group * width + (position + pass) % width);
                cases.push_back(&lanes[chosen.back()]);
            }
            const CallResult& result = caller(arguments_of(cases));
            ASSERT_EQ(result.violations, std::vector<std::string>{}) << short_name(family, width);
            for (int position = 0; position < width; ++position)
                for (std::size_t v = 0; v < result.outputs.size(); ++v)
                    ASSERT_EQ(result.outputs[v][position], expected[chosen[position]][v])
                        << short_name(family, width) << ", lane " << position << ", output " << v << ", seed " << seed
                        << (cases[position]->expected.rare ? ", rare" : "") << ", arguments "
                        << hex(cases[position]->arguments) << std::hex << ": 0x" << result.outputs[v][position]
                        << " and not 0x" << expected[chosen[position]][v];
        }
    }
}

TEST(Layout, EveryLaneIsWhatTheInterpreterGives) {
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        const std::vector<LaneCase> lanes = lane_cases(described, seed, 4800);
        std::vector<std::vector<std::uint64_t>> expected;
        for (const LaneCase& lane : lanes) expected.push_back(final_outputs(family, lane));
        for (int width : widths) check_width(family, width, lanes, expected);
    }
}

// What runs out of line for the sake of a neighbour must not show.
TEST(Layout, SectionsOfNeighboursDoNotShow) {
    for (const DescribedFamily& described : described_families()) {
        const Program program = record_family(described);
        if (program.sections.size() == 1) continue;
        for (const LaneCase& lane : lane_cases(described, seed, 4800)) {
            const LaneResult beside = interpret(program, lane.arguments, true);
            ASSERT_EQ(beside.rare, lane.expected.rare) << program.name << " " << hex(lane.arguments);
            ASSERT_EQ(beside.outputs, lane.expected.outputs) << program.name << " " << hex(lane.arguments);
        }
    }
}

}  // namespace
}  // namespace tuvo

// The call contract of every kernel, on ordinary, rare and mixed lanes: what the probe checks must hold whatever the
// alignment, the ignored lanes and the modes of the processor, and none of these may show in the results.
#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t seed = 1;

/// The real lanes of each output.
std::vector<std::vector<std::uint64_t>> real_lanes(const CallResult& result, int width) {
    std::vector<std::vector<std::uint64_t>> lanes = result.outputs;
    for (std::vector<std::uint64_t>& output : lanes) output.resize(width);
    return lanes;
}

/// Calls `check(caller, arguments)` for every built kernel and a choice of mixtures of its lanes.
template <typename Check>
void for_all_kernels(std::size_t most_mixtures, Check check) {
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        const Lanes lanes(described, seed, 1000);
        RandomBits random(seed);
        for (int width : widths) {
            const void* kernel = find_kernel(family, width);
            ASSERT_TRUE(kernel) << short_name(family, width);
            Caller caller(kernel, family, width);
            std::vector<std::vector<bool>> mixtures = lanes.mixtures(width, random);
            // All of one kind come first, random ones last.
            if (mixtures.size() > most_mixtures)
                mixtures.erase(mixtures.begin() + 2, mixtures.end() - (most_mixtures - 2));
            for (const std::vector<bool>& kinds : mixtures) {
                const std::vector<std::vector<std::uint64_t>> arguments = arguments_of(lanes.choose(kinds, random));
                SCOPED_TRACE(short_name(family, width) + ", seed " + std::to_string(seed) + ", arguments " +
                             testing::PrintToString(arguments));
                check(caller, arguments, width);
                if (testing::Test::HasFatalFailure()) return;
            }
        }
    }
}

TEST(Boundary, HoldsAtEveryAlignmentAndWithAnyIgnoredLanes) {
    for_all_kernels(4, [](Caller& caller, const auto& arguments, int width) {
        const CallOptions plain{.stack_misalignment = 0, .pointer_misalignment = 0, .ignored = Ignored::zero};
        const auto expected = real_lanes(caller(arguments, plain), width);
        for (int k = 0; k < 64; ++k) {
            const CallOptions options{.stack_misalignment = k,
                                      .pointer_misalignment = (5 * k + 1) % 64,
                                      .ignored = every_ignored[k % every_ignored.size()]};
            const CallResult& result = caller(arguments, options);
            ASSERT_EQ(result.violations, std::vector<std::string>{}) << "with stack and ignored lanes number " << k;
            ASSERT_EQ(real_lanes(result, width), expected) << "with stack and ignored lanes number " << k;
        }
    });
}

// Under another rounding mode results may have other low bits, but the contract is the same.
TEST(Boundary, HoldsInEveryMode) {
    for_all_kernels(3, [](Caller& caller, const auto& arguments, int) {
        for (unsigned rounding = 0; rounding < 4; ++rounding)
            for (unsigned precision : {0u, 2u, 3u}) {
                CallOptions options;
                options.mxcsr = 0x1f80 | rounding << 13 | (precision == 2 ? 0x3f : 0);  // with flags raised, too
                options.x87_control = static_cast<std::uint16_t>(0x7f | precision << 8 | rounding << 10);
                ASSERT_EQ(caller(arguments, options).violations, std::vector<std::string>{})
                    << std::hex << "MXCSR " << options.mxcsr << ", x87 control word " << options.x87_control;
            }
    });
}

}  // namespace
}  // namespace tuvo

// How kernels hand rare lanes over: which lanes, in which order, where their arguments and results lie, and what
// becomes of results that a routine stores or leaves.
#include <cstring>

#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/recorder.hpp"

namespace tuvo {
namespace {

/// The handing-over of one call of a kernel, as it ought to be and as it was.
class Handover {
public:
    Handover(const Family& family, int width, const std::vector<const LaneCase*>& lanes, Clobber clobber)
        : family_(family),
          width_(width),
          lanes_(lanes),
          clobber_(clobber),
          inputs_(arguments_of(lanes)),
          outputs_(family.outputs().size()) {
        for (std::size_t a = 0; a < inputs_.size(); ++a)
            if (width == 3) inputs_[a].push_back(lane3_fill(family, static_cast<int>(a)));
        const bool wide_parts = part_bits(family.element, width).front() == 256;
        for (std::size_t v = 0; v < outputs_.size(); ++v)
            for (const LaneCase* lane : lanes)
                outputs_[v].push_back((wide_parts ? lane->wide_outputs : lane->expected.outputs)[v]);
        skip_ordinary_lanes();
    }

    /// One call of the rare routine.
    Clobber operator()(const RareCall& call) {
        if (lane_ >= width_)
            fault("one call too many");
        else
            receive(call);
        return clobber_;
    }

    /// Faults of the whole call, a sentence each.
    std::vector<std::string> finish(const CallResult& result) {
        if (lane_ < width_) fault("not called for lane " + std::to_string(lane_));
        for (std::size_t v = 0; v < outputs_.size(); ++v)
            for (int lane = 0; lane < width_; ++lane)
                if (result.outputs[v][lane] != outputs_[v][lane])
                    fault("lane " + std::to_string(lane) + " of output " + std::to_string(v) + " is " +
                          hex({result.outputs[v][lane]}) + " and not " + hex({outputs_[v][lane]}));
        for (const std::string& violation : result.violations) fault(violation);
        return faults_;
    }

private:
    const Family& family_;
    int width_;
    const std::vector<const LaneCase*>& lanes_;
    Clobber clobber_;
    std::vector<std::vector<std::uint64_t>> inputs_;   ///< lane 3 at width 3 as the fill makes it
    std::vector<std::vector<std::uint64_t>> outputs_;  ///< as they have to stand at this point
    int lane_ = 0;                                     ///< due next
    std::vector<std::uint8_t*> arrays_;                ///< inputs, then outputs
    std::vector<std::string> faults_;

    void fault(std::string text) {
        if (faults_.size() < 5) faults_.push_back(std::move(text));
    }

    void skip_ordinary_lanes() {
        while (lane_ < width_ && !lanes_[lane_]->expected.rare) ++lane_;
    }

    void receive(const RareCall& call) {
        if (call.routine_name() != family_.rare_routine) fault("the routine is " + std::string(call.routine_name()));
        if ((call.rsp + 8) % 16 != 0) fault("the stack is misaligned");
        check_upper_halves(call);

        std::vector<Lane> types = family_.arguments;
        for (Lane lane : family_.outputs()) types.push_back(lane);
        std::vector<std::uint8_t*> arrays;
        for (std::size_t k = 0; k < types.size(); ++k) arrays.push_back(call.pointers[k] - lane_ * lane_size(types[k]));
        if (arrays_.empty()) arrays_ = arrays;
        if (arrays != arrays_) return fault("the addresses are not those of lane " + std::to_string(lane_));

        // Whatever the routine has stored for earlier lanes has to stand beside it, and everything else as it was.
        for (std::size_t k = 0; k < types.size(); ++k) {
            const bool is_input = k < inputs_.size();
            const std::vector<std::uint64_t>& expected = is_input ? inputs_[k] : outputs_[k - inputs_.size()];
            for (std::size_t lane = 0; lane < expected.size(); ++lane) {
                std::uint64_t found = 0;
                std::memcpy(&found, arrays[k] + lane * lane_size(types[k]), lane_size(types[k]));
                if (found != expected[lane])
                    fault("at the call for lane " + std::to_string(lane_) + ", lane " + std::to_string(lane) + " of " +
                          (is_input ? "input " : "output ") + std::to_string(is_input ? k : k - inputs_.size()) +
                          " is " + hex({found}) + " and not " + hex({expected[lane]}));
            }
        }

        // Every other output is left alone.
        for (std::size_t v = 0; v < outputs_.size(); ++v) {
            if ((lane_ + v + static_cast<int>(clobber_)) % 2 == 0) continue;
            const Lane type = types[inputs_.size() + v];
            const std::uint64_t ones = ~std::uint64_t{0} >> (64 - 8 * lane_size(type));
            outputs_[v][lane_] = (0x1234567800abcd00 + 16 * lane_ + v) & ones;
            std::memcpy(call.pointers[inputs_.size() + v], &outputs_[v][lane_], lane_size(type));
        }
        ++lane_;
        skip_ordinary_lanes();
    }

    /// Where 256-bit work has been done, SSE code must find the upper halves clear.
    void check_upper_halves(const RareCall& call) {
        bool wide = false;
        for (const std::vector<Lane>& lanes : {family_.arguments, family_.outputs()})
            for (Lane lane : lanes) wide |= part_bits(lane, width_).front() == 256;
        static constexpr std::uint8_t zeros[16] = {};
        for (int reg = 0; wide && reg < 16; ++reg)
            if (std::memcmp(call.vectors[reg] + 16, zeros, 16) != 0)
                fault("the upper half of ymm" + std::to_string(reg) + " is in use at the call");
    }
};

/// Calls with every mixture of lanes. Ends at the first faulty call.
void check_handover(const Family& family, int width, const Lanes& lanes, std::uint64_t seed) {
    const void* kernel = find_recorded_kernel(family, width);
    ASSERT_TRUE(kernel);
    Caller caller(kernel, family, width);
    RandomBits random(seed);
    CallOptions options;
    for (const std::vector<bool>& kinds : lanes.mixtures(width, random)) {
        for (Ignored ignored : every_ignored) {
            const Clobber clobber = random() % 2 ? Clobber::whole : Clobber::low_halves;
            options.ignored = ignored;
            options.stack_misalignment = static_cast<int>(random() % 64);
            const std::vector<const LaneCase*> chosen = lanes.choose(kinds, random);
            Handover handover(family, width, chosen, clobber);
            on_rare_call = std::ref(handover);
            const CallResult& result = caller(arguments_of(chosen), options);
            ASSERT_EQ(handover.finish(result), std::vector<std::string>{})
                << short_name(family, width) << ", seed " << seed << ", lanes " << testing::PrintToString(kinds)
                << ", arguments " << testing::PrintToString(arguments_of(chosen));
        }
    }
}

TEST(RareProtocol, RareLanesAreHandedOver) {
    constexpr std::uint64_t seed = 1;
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        const Lanes lanes(described, seed, 2000);
        EXPECT_EQ(!lanes.rare.empty(), family.has_rare) << family.name() << ": inputs without rare lanes try nothing";
        for (int width : widths) check_handover(family, width, lanes, seed);
    }
}

}  // namespace
}  // namespace tuvo

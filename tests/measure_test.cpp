// The measuring loops and the peers: what is timed has to be the call that it claims to be.
#include "bench/measure.hpp"

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"

namespace tuvo {
namespace {

/// The lanes of a value in a record, from its first part on.
std::vector<std::uint64_t> lanes_at(const std::byte* record, int offset, Lane lane, int width) {
    std::vector<std::uint64_t> patterns(static_cast<std::size_t>(physical_lanes(width)));
    for (std::size_t k = 0; k < patterns.size(); ++k)
        std::memcpy(&patterns[k], record + offset + k * lane_size(lane), static_cast<std::size_t>(lane_size(lane)));
    return patterns;
}

/// The arguments of a call. All parts of a value have one size, so that it lies in one piece.
std::vector<std::vector<std::uint64_t>> arguments_at(const std::byte* record, const Shape& shape, const Family& family,
                                                     int width) {
    std::vector<std::vector<std::uint64_t>> arguments;
    std::size_t part = 0;
    for (Lane lane : family.arguments) {
        arguments.push_back(lanes_at(record, shape.arguments[part].offset, lane, width));
        for (int bytes = physical_lanes(width) * lane_size(lane); bytes > 0; ++part)
            bytes -= shape.arguments[part].bytes;
    }
    return arguments;
}

TEST(Measure, LoopsCallTheKernelWithItsArguments) {
    for (const Family* family : built_families()) {
        for (int width : widths) {
            const Shape shape = shape_of(*family, width);
            if (family->outputs().size() != 1) continue;
            const void* kernel = find_kernel(*family, width);
            for (const Mode mode : {Mode::throughput, Mode::large}) {
                if (mode == Mode::large && !large_range(*family)) continue;
                Contestant contestant({"", kernel, shape, width, 1}, *family, mode);
                EXPECT_GT(contestant.run(), 0);
                for (std::size_t k = 0; k < contestant.calls(); k += contestant.calls() / 3) {
                    const auto arguments = arguments_at(contestant.input(k), shape, *family, width);
                    if (mode == Mode::large) {
                        EXPECT_GE(Real::from_pattern(family->arguments[0], arguments[0][0]), Real(1e15));
                    }
                    std::vector<std::uint64_t> got = lanes_at(contestant.output(k), 0, family->results[0], width);
                    std::vector<std::uint64_t> expected = call(kernel, *family, width, arguments).outputs[0];
                    got.resize(static_cast<std::size_t>(width));
                    expected.resize(static_cast<std::size_t>(width));
                    EXPECT_EQ(got, expected) << short_name(*family, width) << " call " << k;
                }
            }
            EXPECT_GT(Contestant({"", kernel, shape, width, 1}, *family, Mode::latency).run(), 0);
        }
    }
}

// A peer that computes something else, or that is called in the wrong way, would make a fine ratio.
TEST(Measure, PeersComputeTheSameFunction) {
    if (!have_vector_peer()) GTEST_SKIP() << "SLEEF is not installed";
    int peers_seen = 0;
    for (const Family* family : built_families()) {
        if (!has_oracle(*family) || family->outputs().size() != 1) continue;
        for (int width : {1, 4, 16}) {
            const Peers peers = peers_of(*family, width);
            for (const std::optional<Entry>& peer : {peers.accurate, peers.fast, peers.scalar}) {
                if (!peer) continue;
                ++peers_seen;
                EXPECT_GE(peer->calls * peer->lanes, width) << peer->name;
                const Family& called = peer->family ? *peer->family : *family;
                Contestant contestant(*peer, *family, Mode::throughput);
                const auto arguments = arguments_at(contestant.input(1), peer->shape, called, peer->lanes);
                const auto got = lanes_at(contestant.output(1), 0, called.results[0], peer->lanes);
                for (int lane = 0; lane < peer->lanes; ++lane) {
                    std::vector<std::uint64_t> of_lane;
                    for (const auto& argument : arguments) of_lane.push_back(argument[static_cast<std::size_t>(lane)]);
                    EXPECT_LE(error_of(called, of_lane, {&got[static_cast<std::size_t>(lane)], 1}), 4)
                        << peer->name << " " << hex(of_lane);
                }
            }
        }
    }
    EXPECT_GT(peers_seen, 0);
}

// An emulator overlaps nothing.
TEST(Measure, LatencyLoopWaitsForTheResult) {
    if (emulated()) GTEST_SKIP() << "no processor to overlap independent calls";
    const Family& family = *find_family("logf");
    const Entry entry{"", find_kernel(family, 4), shape_of(family, 4), 4, 1};
    Contestant independent(entry, family, Mode::throughput), dependent(entry, family, Mode::latency);
    double throughput = INFINITY, latency = INFINITY;
    for (int k = 0; k < 20; ++k) {
        throughput = std::min(throughput, independent.run());
        latency = std::min(latency, dependent.run());
    }
    EXPECT_GT(latency, 1.5 * throughput);
}

}  // namespace
}  // namespace tuvo

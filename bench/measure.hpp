// Timing of entries by the measuring loops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "bench/peers.hpp"

namespace tuvo {

enum class Mode : std::uint8_t {
    throughput,  ///< independent calls, from array to array in the first-level cache
    latency,     ///< each call's arguments wait for the last call's results
    large,       ///< throughput for arguments of the large range
};

/// A function that returns at once, for the cost of a call and of the loop around it.
const void* empty_call();

/// One entry with its inputs and the loop that fits its shape. Not to be shared between threads.
class Contestant {
public:
    /// `family` tells what the arguments are; its own kernel or a peer's entry stands in `entry`.
    Contestant(Entry entry, const Family& family, Mode mode);

    /// Runs for some microseconds. Returns ticks of the time stamp counter for `entry.calls` calls. Ticks are a base
    /// for ratios within a run; they are not the cycles of the core.
    double run();

    /// The record of arguments of each call, and what the last run of a throughput loop made of it.
    std::size_t calls() const { return calls_; }
    const std::byte* input(std::size_t call) const {
        return input_ + call * static_cast<std::size_t>(entry_.shape.input_bytes);
    }
    const std::byte* output(std::size_t call) const {
        return output_ + call * static_cast<std::size_t>(entry_.shape.output_bytes);
    }

private:
    using Loop = void (*)(const void* kernel, const void* input, void* output, std::size_t calls, std::size_t passes);
    Entry entry_;
    Loop loop_;
    std::size_t calls_, passes_ = 1;
    std::unique_ptr<std::byte[]> memory_;
    std::byte* input_;
    std::byte* output_;
};

}  // namespace tuvo

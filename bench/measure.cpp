#include "bench/measure.hpp"

#include <x86intrin.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>

namespace tuvo {
namespace {

/// The table behind the loops in the assembly text; ends with a null name.
struct NamedLoops {
    const char* key;
    void (*by_mode[2])(const void*, const void*, void*, std::size_t, std::size_t);
};
extern "C" const NamedLoops tuvo_loops[];
extern "C" void tuvo_empty_call();

constexpr std::size_t cached_bytes = 16384;  // half of the smallest first-level cache
constexpr double run_ticks = 30000;

std::uint64_t ticks() {
    _mm_lfence();
    const std::uint64_t now = __rdtsc();
    _mm_lfence();
    return now;
}

void fill(std::byte* record, const Shape& shape, const Family& family, int lanes, Mode mode, std::mt19937& random) {
    std::size_t part = 0;
    for (std::size_t k = 0; k < family.arguments.size(); ++k) {
        const Lane lane = family.arguments[k];
        const auto [low, high] =
            mode == Mode::large ? large_range(family).value() : input_range(family, static_cast<int>(k));
        std::byte* at = record + shape.arguments[part].offset;
        const int bytes = physical_lanes(lanes) * lane_size(lane);
        for (int offset = 0; offset < bytes; offset += lane_size(lane)) {
            const double value = std::uniform_real_distribution(low, high)(random);
            const auto store = [&](auto converted) { std::memcpy(at + offset, &converted, sizeof converted); };
            if (lane == Lane::f32)
                store(static_cast<float>(value));
            else if (lane == Lane::f64)
                store(value);
            else if (lane_size(lane) == 4)
                store(static_cast<std::int32_t>(value));
            else
                store(static_cast<std::int64_t>(value));
        }
        for (int done = 0; done < bytes; ++part) done += shape.arguments[part].bytes;
    }
}

}  // namespace

const void* empty_call() { return reinterpret_cast<const void*>(tuvo_empty_call); }

Contestant::Contestant(Entry entry, const Family& family, Mode mode) : entry_(std::move(entry)), loop_(nullptr) {
    const Shape& shape = entry_.shape;
    for (const NamedLoops* loops = tuvo_loops; loops->key; ++loops)
        if (loops->key == shape.key()) loop_ = loops->by_mode[mode == Mode::latency];
    if (!loop_) throw std::logic_error("no loop for calls of the shape " + shape.key());

    calls_ = cached_bytes / static_cast<std::size_t>(shape.input_bytes + shape.output_bytes);
    const std::size_t input_bytes = calls_ * static_cast<std::size_t>(shape.input_bytes);
    // A latency loop may read a whole register where an argument is a single lane, at the end too.
    memory_.reset(new std::byte[cached_bytes + 256]());
    const auto misaligned = reinterpret_cast<std::uintptr_t>(memory_.get()) % 64;
    input_ = memory_.get() + (64 - misaligned);
    output_ = input_ + (input_bytes + 63) / 64 * 64;
    std::mt19937 random(1);
    for (std::size_t call = 0; call < calls_; ++call)
        fill(input_ + call * static_cast<std::size_t>(shape.input_bytes), shape,
             entry_.family ? *entry_.family : family, entry_.lanes, mode, random);

    run();
    const double once = run() / entry_.calls * static_cast<double>(calls_);
    passes_ = std::max<std::size_t>(1, static_cast<std::size_t>(run_ticks / once));
}

double Contestant::run() {
    const std::uint64_t start = ticks();
    loop_(entry_.address, input_, output_, calls_, passes_);
    return static_cast<double>(ticks() - start) * entry_.calls / static_cast<double>(calls_ * passes_);
}

}  // namespace tuvo

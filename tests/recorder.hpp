// The kernels of the library with stand-ins in place of the rare routines: they tell how a routine is called, and leave
// every register that a routine may change in disorder.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string_view>

#include "frame/description/operations.hpp"

namespace tuvo {

/// Registers at the entry of a rare routine. `tests/recorder.S` knows this layout.
struct RareCall {
    std::uint64_t routine;      ///< number; see `routine_name`
    std::uint8_t* pointers[4];  ///< rdi, rsi, rdx, rcx
    std::uint64_t rsp;          ///< points to the return address
    std::uint64_t padding[2];
    std::uint8_t vectors[16][32];

    /// "logf_rare".
    std::string_view routine_name() const;
};

/// What a stand-in does with the vector registers, all of which a routine may change: it overwrites their low halves
/// as SSE code does, or clears the upper halves besides.
enum class Clobber : int { low_halves = 0, whole = 1 };

/// Called by every stand-in. May store outputs, and may throw through the kernel.
extern std::function<Clobber(const RareCall&)> on_rare_call;

/// Address of the export of `family` at `width`, calling stand-ins; null if it is not built. Throws std::runtime_error
/// if the kernels cannot be loaded.
const void* find_recorded_kernel(const Family& family, int width);

}  // namespace tuvo

// Calls of kernels as generated code makes them, with a check of everything that a call promises.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "frame/description/operations.hpp"

namespace tuvo {

/// Whether an emulator runs the program. A few tests lean on what only processors do.
bool emulated();

/// What lies in lanes that a kernel must ignore.
enum class Ignored : std::uint8_t { zero, signalling_nan, infinity, negative, huge, subnormal, all_ones };
/// Every one of them, for loops.
inline constexpr std::array every_ignored{Ignored::zero, Ignored::signalling_nan, Ignored::infinity, Ignored::negative,
                                          Ignored::huge, Ignored::subnormal,      Ignored::all_ones};
/// Its bit pattern in a floating-point lane; integer lanes take the pattern of the floating-point lane of their size.
std::uint64_t ignored_pattern(Ignored ignored, Lane lane);

/// The defaults are awkward on purpose: odd addresses and signalling NaNs.
struct CallOptions {
    /// Stack pointer modulo 64 at the call instruction, in bytes; 0 suits any C code.
    int stack_misalignment = 1;
    /// Address modulo 64 of the out-target and of the result buffer, in bytes.
    int pointer_misalignment = 1;
    /// Lanes above the width, lane 3 at width 3, unused halves of registers that carry arguments.
    Ignored ignored = Ignored::signalling_nan;
    /// Control and status bits at entry: all exceptions masked, none raised, round to nearest.
    std::uint32_t mxcsr = 0x1f80;
    /// All exceptions masked, round to nearest, extended precision.
    std::uint16_t x87_control = 0x037f;
};

struct CallResult {
    /// Bit patterns by output, in the order of `Family::outputs()`, then by lane; four lanes at width 3.
    std::vector<std::vector<std::uint64_t>> outputs;
    /// Breaches of the call contract, a sentence each; empty for a sound kernel.
    std::vector<std::string> violations;
    /// Exception flags of MXCSR after the call (bits 0 to 5).
    unsigned exception_flags = 0;
};

/// All registers that a call can read or change. `tests/probe.S` knows this layout.
struct MachineState {
    std::uint64_t general[16];  ///< rax rbx rcx rdx rsi rdi rbp rsp r8 ... r15; rsp is not loaded
    std::uint8_t vectors[16][32];
    std::uint32_t mxcsr;
    std::uint16_t x87_control;
    std::uint16_t x87_status;
    std::uint16_t x87_tags;  ///< 0xffff when the x87 stack is empty
    std::uint64_t flags;
    std::uint64_t expected_rsp;  ///< stack pointer that the kernel has to return with
};

/// One export, ready to be called many times: all buffers are kept between calls. Not to be shared between threads.
class Caller {
public:
    /// `kernel` is the address of the export of `family` at `width`; the family must outlive the caller.
    Caller(const void* kernel, const Family& family, int width);

    /// Calls once (twice if a stored value looks unwritten). `arguments` holds, per argument, the bit patterns of at
    /// least `width` lanes; further lanes are ignored. The result stands until the next call. Throws
    /// std::invalid_argument if arguments are missing or too short, or an option is out of range.
    const CallResult& operator()(std::span<const std::vector<std::uint64_t>> arguments,
                                 const CallOptions& options = {});

private:
    static constexpr std::size_t guard_bytes = 64;
    static constexpr std::size_t stack_bytes = 448;
    static constexpr std::size_t target_bytes = 256 + 3 * guard_bytes;

    /// Memory that the kernel may write in the middle of, surrounded by guard bytes.
    struct Target {
        alignas(64) std::array<std::uint8_t, target_bytes> bytes;
        std::size_t used = 0;
        std::uint8_t* start = nullptr;
    };

    void run(std::span<const std::vector<std::uint64_t>> arguments, const CallOptions& options, std::uint8_t filler);
    void place_arguments(std::span<const std::vector<std::uint64_t>> arguments, Ignored ignored);
    void read_outputs();
    void check_registers();
    void check_memory(std::uint8_t filler);
    std::vector<std::string> untouched_lanes(std::uint8_t filler) const;
    void violation(std::string text) { result_.violations.push_back(std::move(text)); }

    const void* kernel_;
    const Family& family_;
    int width_;
    std::vector<Lane> outputs_;
    bool memory_;
    bool packed_;
    bool returns_wide_;
    Preserved preserved_;
    MachineState before_;
    MachineState after_;
    Target buffer_;      ///< of the memory form
    Target out_target_;  ///< of the out-pointer
    std::size_t stack_used_ = 0;
    alignas(64) std::array<std::uint8_t, stack_bytes> stack_;
    CallResult result_;
};

/// Calls once.
CallResult call(const void* kernel, const Family& family, int width,
                std::span<const std::vector<std::uint64_t>> arguments, const CallOptions& options = {});

/// Calls as often as it takes to run all lanes of `arguments` (equally many lanes in each), `width` lanes at a time;
/// the last call is filled up with copies of the last lane. The result holds exactly the lanes given, the union of the
/// flags, and the violations of the first call that has any.
CallResult call_all(const void* kernel, const Family& family, int width,
                    std::span<const std::vector<std::uint64_t>> arguments, const CallOptions& options = {});

}  // namespace tuvo

// Unwind information of kernels: at every single instruction, on the common and the rare path, and for exceptions.
#include <signal.h>
#include <ucontext.h>
#include <unwind.h>

#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/recorder.hpp"

extern "C" {
const void* tuvo_stepped_kernel = nullptr;
/// Goes on to the kernel with the trap flag set, so that each instruction from its first one on is followed by SIGTRAP.
void tuvo_step_into_kernel();
}

asm(R"(
        .text
tuvo_step_into_kernel:
        pushfq
        orq     $0x100, (%rsp)
        popfq
        jmp     *tuvo_stepped_kernel(%rip)
)");

namespace tuvo {
namespace {

/// A register that a caller may rely on: its number in unwind information and in a signal's context.
struct Watched {
    int unwind_number;
    int context_index;
    const char* name;
};
constexpr Watched watched[] = {{3, REG_RBX, "rbx"},  {6, REG_RBP, "rbp"},  {12, REG_R12, "r12"}, {13, REG_R13, "r13"},
                               {14, REG_R14, "r14"}, {15, REG_R15, "r15"}, {4, REG_RSI, "rsi"},  {5, REG_RDI, "rdi"}};
constexpr int system_v_registers = 6;  // the first of them

/// The caller as the kernel's first instruction sees it, and what is wrong at later ones.
struct Walk {
    int preserved = 0;  ///< how many of the watched registers the call preserves
    bool entered = false;
    std::uintptr_t kernel = 0, stack = 0, return_address = 0;
    std::uint64_t registers[std::size(watched)] = {};
    std::uintptr_t at = 0;  ///< instruction that is about to run
    bool found = false;
    std::vector<std::string> faults;

    void fault(const std::string& text) {
        if (faults.size() < 5) faults.push_back("at byte " + std::to_string(at - kernel) + " " + text);
    }
};
Walk walk;

/// Looks for the caller's frame: its address, its stack pointer and its registers.
_Unwind_Reason_Code visit(_Unwind_Context* frame, void*) {
    if (_Unwind_GetIP(frame) != walk.return_address) return _URC_NO_REASON;
    walk.found = true;
    if (_Unwind_GetCFA(frame) != walk.stack + 8) walk.fault("the caller's stack pointer is wrong");
    for (int k = 0; k < walk.preserved; ++k)
        if (_Unwind_GetGR(frame, watched[k].unwind_number) != walk.registers[k])
            walk.fault(std::string("the caller's ") + watched[k].name + " is wrong");
    return _URC_NORMAL_STOP;
}

void on_trap(int, siginfo_t*, void* context) {
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    walk.at = registers[REG_RIP];
    if (!walk.entered) {
        walk.entered = true;
        walk.kernel = walk.at;
        walk.stack = registers[REG_RSP];
        walk.return_address = *reinterpret_cast<std::uintptr_t*>(walk.stack);
        for (std::size_t k = 0; k < std::size(watched); ++k) walk.registers[k] = registers[watched[k].context_index];
    }
    if (walk.at == walk.return_address) {
        registers[REG_EFL] &= ~0x100;
        return;
    }
    walk.found = false;
    _Unwind_Backtrace(visit, nullptr);
    if (!walk.found) walk.fault("the caller is not found");
}

/// Calls the kernel instruction by instruction.
void step_through(const void* kernel, const Family& family, int width, const std::vector<const LaneCase*>& lanes) {
    walk = {};
    walk.preserved = preserved(family, width) == Preserved::nothing_more ? system_v_registers : std::size(watched);
    tuvo_stepped_kernel = kernel;
    const void* step = reinterpret_cast<const void*>(tuvo_step_into_kernel);
    const CallResult result = call(step, family, width, arguments_of(lanes));
    EXPECT_EQ(result.violations, std::vector<std::string>{}) << short_name(family, width);
    EXPECT_EQ(walk.faults, std::vector<std::string>{}) << short_name(family, width);
    EXPECT_EQ(walk.kernel, reinterpret_cast<std::uintptr_t>(kernel));
}

class StepByStep : public testing::Test {
protected:
    void SetUp() override {
        struct sigaction action {};
        action.sa_sigaction = on_trap;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGTRAP, &action, &before_);
    }
    void TearDown() override { sigaction(SIGTRAP, &before_, nullptr); }

private:
    struct sigaction before_;
};

TEST_F(StepByStep, TheCallerIsFoundFromEveryInstruction) {
    if (emulated()) GTEST_SKIP() << "an emulator's signal frames can't be unwound";
    for (const DescribedFamily& described : described_families()) {
        const Lanes lanes(described, 1, 1000);
        RandomBits random(1);
        for (int width : widths) {
            const void* kernel = find_kernel(*described.family, width);
            ASSERT_TRUE(kernel);
            std::vector<std::vector<bool>> mixtures = lanes.mixtures(width, random);
            // All lanes of one kind, lane 0 alone of another, and a random mixture.
            if (mixtures.size() > 4) mixtures.erase(mixtures.begin() + 3, mixtures.end() - 1);
            for (const std::vector<bool>& kinds : mixtures)
                step_through(kernel, *described.family, width, lanes.choose(kinds, random));
            if (HasFailure()) return;
        }
    }
}

TEST(Unwind, ExceptionsPassThroughKernels) {
    on_rare_call = [](const RareCall&) -> Clobber { throw std::runtime_error("from inside of a rare routine"); };
    for (const DescribedFamily& described : described_families()) {
        if (!described.family->has_rare) continue;
        const Lanes lanes(described, 1, 1000);
        RandomBits random(1);
        for (int width : widths) {
            const auto arguments = arguments_of(lanes.choose(std::vector<bool>(width, true), random));
            Caller caller(find_recorded_kernel(*described.family, width), *described.family, width);
            EXPECT_THROW(caller(arguments), std::runtime_error) << short_name(*described.family, width);
        }
    }
}

}  // namespace
}  // namespace tuvo

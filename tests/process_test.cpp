// Kernels in processes with a life of their own: many threads, signals at any moment, loading and unloading.
#include <csignal>
#include <ctime>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/command.hpp"
#include "tests/compare_lanes.hpp"

namespace tuvo {
namespace {

std::atomic<int> interruptions{0};

/// Leaves other values in every vector register, and a full x87 stack. The system restores them for the kernel that was
/// interrupted, which is to say that a kernel may not count on anything below its red zone.
void use_all_registers(int) {
    interruptions.fetch_add(1, std::memory_order_relaxed);
    asm volatile(
        "vpcmpeqd %%xmm0, %%xmm0, %%xmm0\n vinsertf128 $1, %%xmm0, %%ymm0, %%ymm0\n"
        "vmovaps %%ymm0, %%ymm1\n vmovaps %%ymm0, %%ymm2\n vmovaps %%ymm0, %%ymm3\n vmovaps %%ymm0, %%ymm4\n"
        "vmovaps %%ymm0, %%ymm5\n vmovaps %%ymm0, %%ymm6\n vmovaps %%ymm0, %%ymm7\n vmovaps %%ymm0, %%ymm8\n"
        "vmovaps %%ymm0, %%ymm9\n vmovaps %%ymm0, %%ymm10\n vmovaps %%ymm0, %%ymm11\n vmovaps %%ymm0, %%ymm12\n"
        "vmovaps %%ymm0, %%ymm13\n vmovaps %%ymm0, %%ymm14\n vmovaps %%ymm0, %%ymm15\n"
        "fninit\n fldpi\n fldpi\n fldpi\n fldpi\n fldpi\n fldpi\n fldpi\n fldpi\n fninit\n" ::
            : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11",
              "xmm12", "xmm13", "xmm14", "xmm15", "memory");
}

/// Interrupts this thread every millisecond.
class Interrupter {
public:
    Interrupter() {
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGRTMIN;
        event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
        const itimerspec every{{0, 1'000'000}, {0, 1'000'000}};
        if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0 || timer_settime(timer_, 0, &every, nullptr) != 0)
            throw std::runtime_error("no timer");
    }
    ~Interrupter() { timer_delete(timer_); }
    Interrupter(const Interrupter&) = delete;

private:
    timer_t timer_{};
};

struct Work {
    const Family* family;
    std::vector<LaneCase> lanes;
    std::vector<std::vector<std::uint64_t>> expected;
};

TEST(Process, ThreadsUnderSignalsGetTheSameValues) {
    std::vector<Work> work;
    for (const DescribedFamily& described : described_families()) {
        std::vector<LaneCase> lanes = lane_cases(described, 5, 48);
        auto expected = expected_outputs(*described.family, lanes);
        work.push_back({described.family, std::move(lanes), std::move(expected)});
    }
    struct sigaction action {}, before {};
    action.sa_handler = use_all_registers;
    action.sa_flags = SA_RESTART;
    sigaction(SIGRTMIN, &action, &before);

    std::mutex mutex;
    std::string faults;
    constexpr std::size_t count = 6;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < count; ++t)
        threads.emplace_back([&, t] {
            const Interrupter interrupter;
            std::string own;
            // Each thread starts elsewhere, so that different kernels run at a time, and equal ones, too.
            for (std::size_t k = t * work.size() / count; own.empty() && std::chrono::steady_clock::now() < deadline; ++k) {
                const Work& item = work[k % work.size()];
                for (int width : widths) compare_lanes(*item.family, width, item.lanes, item.expected, k, own);
            }
            const std::lock_guard lock(mutex);
            faults += own;
        });
    for (std::thread& thread : threads) thread.join();
    sigaction(SIGRTMIN, &before, nullptr);
    EXPECT_EQ(faults, "");
    EXPECT_GT(interruptions, 1000);
}

std::size_t mappings() {
    std::ifstream maps("/proc/self/maps");
    return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(maps), {}, '\n'));
}

TEST(Process, LoadsAndUnloadsAsOftenAsOneLikes) {
    // A copy, since the tests' own is loaded for good.
    const TemporaryFolder folder;
    const std::string path = folder.path / "copy.so";
    std::filesystem::copy_file(TUVO_LIBRARY, path);
    const Family& family = *find_family("logf");
    const std::string name = export_name(family, 4);
    const std::vector<std::vector<std::uint64_t>> arguments{{0x3f800000, 0xbf800000, 0x7f800000, 0x3f800000}};
    std::size_t at_first = 0;
    for (int turn = 0; turn < 10'000; ++turn) {
        void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_TRUE(library) << dlerror();
        const CallResult result = call(dlsym(library, name.c_str()), family, 4, arguments);
        ASSERT_EQ(result.outputs[0][0], 0u);
        ASSERT_EQ(result.outputs[0][2], 0x7f800000u);
        ASSERT_EQ(dlclose(library), 0);
        if (turn == 10) at_first = mappings();
    }
    EXPECT_FALSE(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD)) << "it is still loaded";
    EXPECT_LE(mappings(), at_first);
}

}  // namespace
}  // namespace tuvo

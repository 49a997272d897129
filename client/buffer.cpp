#include "client/buffer.hpp"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include "client/failure.hpp"

namespace tuvo::client {
namespace {

/// Bytes on either side that belong to no other mapping: programs that miss by an index of 32 bits mostly end here.
constexpr std::size_t guard = std::size_t{1} << 32;

std::size_t up_to(std::size_t bytes, std::size_t unit) { return (bytes + unit - 1) / unit * unit; }

std::size_t page() {
    static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

/// What the handler reads: set before it is installed, and only looked at while a kernel runs.
const std::string* watched_kernel;
std::span<const Watched> watched;
struct sigaction action_before;

void stop(int, siginfo_t* signal, void* context) {
    constexpr std::uint64_t write_bit = 2;  // of the processor's page fault
    const auto* registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    const char* verb = registers[REG_ERR] & write_bit ? "writes" : "reads";
    char text[600];
    int length = std::snprintf(text, sizeof text, "tuvo-client: kernel '%s' touches memory of none of its arguments\n",
                               watched_kernel->c_str());
    for (const Watched& entry : watched) {
        if (!entry.buffer->covers(signal->si_addr)) continue;
        const std::ptrdiff_t offset = static_cast<const std::byte*>(signal->si_addr) - entry.buffer->data();
        length =
            std::snprintf(text, sizeof text,
                          "tuvo-client: kernel '%s' %s byte %td of %s, which has %zu bytes; give it more values, or "
                          "run fewer work-items (--size)\n",
                          watched_kernel->c_str(), verb, offset, entry.name.c_str(), entry.buffer->size());
        break;
    }
    const auto size = std::min(static_cast<std::size_t>(length), sizeof text - 1);
    if (write(STDERR_FILENO, text, size) < 0) _exit(3);
    _exit(2);
}

}  // namespace

Buffer::Buffer(std::size_t bytes) : Buffer(bytes, bytes) {}

Buffer::Buffer(std::size_t bytes, std::size_t room) : bytes_(bytes) {
    const std::size_t usable = up_to(room, page());
    mapped_ = guard + usable + guard;
    mapping_ = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    std::byte* const first = mapping_ == MAP_FAILED ? nullptr : static_cast<std::byte*>(mapping_) + guard;
    if (!first || (usable > 0 && mprotect(first, usable, PROT_READ | PROT_WRITE) != 0)) {
        const int error = errno;
        if (first) munmap(mapping_, mapped_);
        throw Failure("cannot get memory for " + std::to_string(bytes) + " bytes: " + std::strerror(error));
    }
    data_ = first + usable - room;
}

Buffer::Buffer(Buffer&& other) noexcept
    : mapping_(std::exchange(other.mapping_, nullptr)),
      mapped_(other.mapped_),
      data_(other.data_),
      bytes_(other.bytes_) {}

Buffer& Buffer::operator=(Buffer&& other) noexcept {
    std::swap(mapping_, other.mapping_);
    std::swap(mapped_, other.mapped_);
    std::swap(data_, other.data_);
    std::swap(bytes_, other.bytes_);
    return *this;
}

Buffer::~Buffer() {
    if (mapping_) munmap(mapping_, mapped_);
}

Buffer Buffer::padded_to(std::size_t unit) const {
    Buffer copy(bytes_, up_to(bytes_, unit));
    std::memcpy(copy.data_, data_, bytes_);
    return copy;
}

bool Buffer::covers(const void* address) const {
    const auto* const start = static_cast<const std::byte*>(mapping_);
    return address >= start && address < start + mapped_;
}

BoundsWatch::BoundsWatch(const std::string& kernel, std::span<const Watched> buffers) {
    watched_kernel = &kernel;
    watched = buffers;
    struct sigaction action {};
    action.sa_sigaction = stop;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &action_before);
}

BoundsWatch::~BoundsWatch() { sigaction(SIGSEGV, &action_before, nullptr); }

}  // namespace tuvo::client

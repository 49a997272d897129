// Memory of a program's arrays, with guards on both sides.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace tuvo::client {

/// Zeroed memory that a kernel works on. Its last byte is the last of a page, and neither the pages behind it nor those
/// before its first page can be touched: a kernel that runs past the end stops at the first byte beyond. So it is
/// aligned no further than its size is.
class Buffer {
public:
    /// Throws `Failure` if there isn't so much memory.
    explicit Buffer(std::size_t bytes);
    Buffer(Buffer&& other) noexcept;
    Buffer& operator=(Buffer&& other) noexcept;
    ~Buffer();

    std::byte* data() { return data_; }
    const std::byte* data() const { return data_; }
    std::size_t size() const { return bytes_; }

    /// A copy with zeros behind it, up to a multiple of `unit` bytes, as part of the memory; `size()` stays.
    Buffer padded_to(std::size_t unit) const;

    /// Whether the address is the buffer's or its guards'.
    bool covers(const void* address) const;

private:
    Buffer(std::size_t bytes, std::size_t room);
    void* mapping_;
    std::size_t mapped_;
    std::byte* data_;
    std::size_t bytes_;
};

/// A buffer that a kernel works on, and what the user calls it.
struct Watched {
    const Buffer* buffer;
    std::string name;  ///< "argument 2, 'out:f32:-:4'"
};

/// While it lives, a touch of memory that can't be touched ends the process with status 2 and one line that tells whose
/// bounds were left. One at a time.
class BoundsWatch {
public:
    BoundsWatch(const std::string& kernel, std::span<const Watched> buffers);
    ~BoundsWatch();
    BoundsWatch(const BoundsWatch&) = delete;
    BoundsWatch& operator=(const BoundsWatch&) = delete;
};

}  // namespace tuvo::client

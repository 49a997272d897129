// Kernel arguments as they are written on the command line.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "client/program.hpp"

namespace tuvo::client {

/// The forms of an argument, for `--help`.
extern const char* const argument_help;

/// Memory that a kernel works on: zeroed, and aligned to 128 bytes, the size of the largest vector. It is padded, for
/// the last float3 may be stored with all four lanes.
class Buffer {
public:
    explicit Buffer(std::size_t bytes) : chunks_(bytes / sizeof(Chunk) + 1), bytes_(bytes) {}
    std::byte* data() { return chunks_.data()->bytes; }
    const std::byte* data() const { return chunks_.data()->bytes; }
    std::size_t size() const { return bytes_; }

private:
    struct alignas(128) Chunk {
        std::byte bytes[128];
    };
    std::vector<Chunk> chunks_;
    std::size_t bytes_;
};

/// The bytes of a file. Throws `Failure` if it can't be read.
Buffer read_file(const std::string& path);

/// A kernel argument: the memory behind a pointer, or a value itself.
struct Argument {
    std::string text;
    Scalar scalar = Scalar::f32;
    Buffer memory{0};
    std::string output;  ///< file to write the memory to afterwards, "-" for stdout, or empty
    bool pointer = false;
    bool local = false;

    std::size_t count() const { return memory.size() / static_cast<std::size_t>(traits(scalar).bytes); }
};

/// Reads one argument, with the file that it names. Throws `Failure` if it has no known form or a file can't be read.
Argument parse_argument(const std::string& text);

/// Throws `Failure` if the arguments don't fit the kernel's parameters in number, kind or type.
void check_arguments(const KernelSignature& kernel, const std::vector<Argument>& arguments);

/// Writes the memory of an `out` argument to its file, or to stdout with one value on a line.
void write_output(const Argument& argument);

}  // namespace tuvo::client

// Kernel arguments as they are written on the command line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/buffer.hpp"
#include "client/program.hpp"

namespace tuvo::client {

/// The forms of an argument, for `--help`.
extern const char* const argument_help;

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

/// Throws `Failure` if the arguments don't fit the kernel's parameters in number, kind or type. Memory behind a pointer
/// to vectors of three gets the room that the last of them takes.
void fit_arguments(const KernelSignature& kernel, std::vector<Argument>& arguments);

/// Runs the kernel over the global ids 0 to `size` - 1. A touch of memory beyond an argument's ends the process with
/// status 2 and a line that names the argument.
void run_on_arguments(const Program& program, const KernelSignature& kernel, std::vector<Argument>& arguments,
                      std::uint64_t size);

/// Writes the memory of an `out` argument to its file, or to stdout with one value on a line.
void write_output(const Argument& argument);

}  // namespace tuvo::client

// Kernels of descriptions that no family uses, generated, assembled and loaded, to try the generator itself.
#pragma once

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame/description/notation.hpp"

namespace tuvo {

/// A family that the operation table doesn't have. Its rare routine, if it has one, stores the complement of its first
/// argument in each output, after writing over everything that a function may change.
struct MadeUp {
    Family family;
    Program program;
};

/// `name` must be unique within a library and be a C identifier. `lanes` are the lanes of arguments, results and
/// out-value; `blocks` the number of constant blocks.
MadeUp make_up(std::string name, std::vector<Lane> arguments, std::vector<Lane> results, std::optional<Lane> out,
               bool rare, int blocks, const Description& description);

/// Generates all widths of the families, assembles and loads them. Throws std::runtime_error if the tools fail.
class MadeUpLibrary {
public:
    explicit MadeUpLibrary(const std::vector<const MadeUp*>& families);
    ~MadeUpLibrary();
    MadeUpLibrary(const MadeUpLibrary&) = delete;
    MadeUpLibrary& operator=(const MadeUpLibrary&) = delete;

    const void* kernel(const MadeUp& made_up, int width) const;
    /// The text of all kernels, to look for instructions.
    const std::string& text() const { return text_; }

private:
    std::filesystem::path folder_;
    std::string text_;
    void* handle_ = nullptr;
};

/// Calls every width with random lanes drawn from `draw` (a bit pattern for an argument's lane), and compares each lane
/// with the interpreter, bit for bit. Also checks the call contract. Returns the faults found, a sentence each, at most
/// a handful.
std::vector<std::string> compare_with_interpreter(const MadeUp& made_up, const MadeUpLibrary& library, int calls,
                                                  std::mt19937_64& random);

/// A bit pattern for a lane: ordinary numbers of all sizes, small integers, special values, any bits.
std::uint64_t draw_pattern(Lane lane, std::mt19937_64& random);

}  // namespace tuvo

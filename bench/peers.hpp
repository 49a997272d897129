// What a family is measured beside: the entries of other libraries that do the same, found by the operation's name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bench/shapes.hpp"

namespace tuvo {

/// One entry point, ready for the measuring loops.
struct Entry {
    std::string name;
    const void* address;
    Shape shape;
    int lanes;                       ///< of one call
    int calls;                       ///< that it takes to do what one call of the kernel does
    const Family* family = nullptr;  ///< whose arguments it takes, where they are not those of the kernel's
};

struct Peers {
    std::optional<Entry> accurate;  ///< the vector library's entry of 1 ulp; of 0.5 or 1.5 ulp, or exact, where it has
                                    ///< no such; else the processor's divide and square root
    std::optional<Entry> fast;      ///< its entry of 3.5 ulp
    std::optional<Entry> xsimd, eigen;  ///< what those libraries of headers make of it
    std::optional<Entry> scalar;        ///< the C library's function, or a compiled loop where it has none
};

/// The peers of a kernel. Vector entries are those for AVX at 256 bits and for SSE4 at 128 bits, by their own names:
/// nothing that dispatches on the processor or needs more than AVX. Peers that are not installed are absent.
Peers peers_of(const Family& family, int width);

/// Whether the vector library is there.
bool have_vector_peer();

/// The range that inputs of an operation are drawn from: ordinary arguments that no kernel or peer treats specially.
struct Range {
    double low, high;
};
Range input_range(const Family& family, int argument);
/// A second range, for a family whose kernels reduce arguments of that size out of line; nothing for others.
std::optional<Range> large_range(const Family& family);

}  // namespace tuvo

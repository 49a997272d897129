// Rare routines of one or two arguments called as the library holds them, by patterns: value, status and flags.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include <xmmintrin.h>

#include "tests/rare_routines.hpp"

namespace tuvo {

struct RareResult {
    std::uint64_t pattern;  ///< of the result, in the low bits
    int status;
    unsigned flags;  ///< invalid, division by zero, overflow, underflow

    bool operator==(const RareResult&) const = default;
    friend void PrintTo(const RareResult& result, std::ostream* out) {
        *out << "0x" << std::hex << result.pattern << ", status " << result.status << ", flags " << result.flags;
    }
};

/// `before` is what stands in the result's place, and stays if the routine leaves it.
inline RareResult call_rare(const Family& family, const std::vector<std::uint64_t>& arguments,
                            std::uint64_t before = 0) {
    const RareRoutine routine = find_rare_routine(family);
    const unsigned saved = _mm_getcsr();
    _mm_setcsr(0x1f80);
    RareResult result{before, 0, 0};
    void* const out = &result.pattern;
    result.status = arguments.size() == 1 ? routine(&arguments[0], out, nullptr, nullptr)
                                          : routine(&arguments[0], &arguments[1], out, nullptr);
    result.flags =
        _mm_getcsr() & (_MM_EXCEPT_INVALID | _MM_EXCEPT_DIV_ZERO | _MM_EXCEPT_OVERFLOW | _MM_EXCEPT_UNDERFLOW);
    _mm_setcsr(saved);
    return result;
}

}  // namespace tuvo

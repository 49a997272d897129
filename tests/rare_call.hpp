// Rare routines of one argument, called directly: value, status and exception flags.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <type_traits>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "frame/description/rare.hpp"

namespace tuvo {

inline void PrintTo(RareStatus status, std::ostream* out) { *out << "status " << static_cast<int>(status); }

/// The exception flags that tell what a result is.
inline constexpr unsigned all_but_inexact =
    _MM_EXCEPT_INVALID | _MM_EXCEPT_DIV_ZERO | _MM_EXCEPT_OVERFLOW | _MM_EXCEPT_UNDERFLOW;

template <class T>
using UnaryRoutine = RareStatus (*)(const T*, T*);
template <class T>
using PatternOf = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

template <class T>
struct RareOutcome {
    PatternOf<T> pattern;
    RareStatus status;
    unsigned flags;  ///< `all_but_inexact` of them

    bool operator==(const RareOutcome&) const = default;
    friend void PrintTo(const RareOutcome& outcome, std::ostream* out) {
        *out << std::hex << outcome.pattern << ", status " << static_cast<int>(outcome.status) << ", flags "
             << outcome.flags;
    }
};

template <class T>
RareOutcome<T> call(UnaryRoutine<T> routine, std::type_identity_t<PatternOf<T>> x) {
    const T argument = std::bit_cast<T>(x);
    T result = 42;
    const unsigned saved = _mm_getcsr();
    _mm_setcsr(saved & ~_MM_EXCEPT_MASK);
    const RareStatus status = routine(&argument, &result);
    const unsigned flags = _mm_getcsr() & all_but_inexact;
    _mm_setcsr(saved);
    return {bits(result), status, flags};
}

template <class T>
void expect_domain_error(UnaryRoutine<T> routine, std::type_identity_t<PatternOf<T>> x) {
    constexpr auto quiet = PatternOf<T>{1} << (sizeof(T) == 4 ? 22 : 51);
    const RareOutcome<T> got = call(routine, x);
    EXPECT_TRUE(std::isnan(std::bit_cast<T>(got.pattern)) && (got.pattern & quiet))
        << std::hex << x << " gave " << got.pattern;
    EXPECT_EQ(got.status, RareStatus::domain) << std::hex << x;
    EXPECT_EQ(got.flags, unsigned{_MM_EXCEPT_INVALID}) << std::hex << x;
}

/// The pole gives minus infinity.
template <class T>
void expect_pole(UnaryRoutine<T> routine, std::type_identity_t<PatternOf<T>> x) {
    const RareOutcome<T> got = call(routine, x);
    EXPECT_EQ(got.pattern, bits(-static_cast<T>(INFINITY))) << std::hex << x;
    EXPECT_EQ(got.status, RareStatus::pole) << std::hex << x;
    EXPECT_EQ(got.flags, unsigned{_MM_EXCEPT_DIV_ZERO}) << std::hex << x;
}

template <class T>
void expect_ordinary(UnaryRoutine<T> routine, std::type_identity_t<PatternOf<T>> x,
                     std::type_identity_t<PatternOf<T>> expected) {
    const RareOutcome<T> got = call(routine, x);
    EXPECT_EQ(got.pattern, expected) << std::hex << x;
    EXPECT_EQ(got.status, RareStatus::ordinary) << std::hex << x;
    EXPECT_EQ(got.flags, 0u) << std::hex << x;
}

}  // namespace tuvo

// Arguments for the powers. An exponent drawn at random sends nearly every base beyond the range; here it is chosen for
// its base, so that results spread over the whole range, crowd at its ends, and come near 1.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

#include "tests/oracle.hpp"

namespace tuvo {

inline bool is_power(const Family& family) {
    return family.operation == "pow" || family.operation == "powr" || family.operation == "pown" ||
           family.operation == "rootn";
}

/// A pattern of the second argument for the base `x`.
inline std::uint64_t exponent_for(const Family& family, std::uint64_t x, RandomBits& random) {
    const Lane lane = family.arguments[1];
    const bool single = family.element == Lane::f32;
    if (family.operation == "rootn") {
        const std::uint64_t few = random() % 8 + 1, any = random() >> (32 + random() % 31);
        const std::uint64_t n = random() % 2 ? few : any % 16 ? any : 0x7fffffff + (any & 1);
        return (random() % 2 ? n : -n) & 0xffffffff;
    }
    const double base = single ? double(std::bit_cast<float>(static_cast<std::uint32_t>(x))) : std::bit_cast<double>(x);
    const double top = single ? 128 : 1024, bottom = single ? 150 : 1075;  // binary exponents of the range
    const double position = double(random() >> 11) * 0x1p-53;
    double exponent = 0;
    switch (random() % 4) {
    case 0: exponent = (top + bottom) * position - bottom; break;
    case 1: exponent = random() % 2 ? top - 3 * position : -bottom + (bottom - top + 6) * position; break;
    case 2: exponent = std::ldexp(random() % 2 ? position : -position, static_cast<int>(random() % 12) - 8); break;
    default: exponent = (position < 0.5 ? top : -top) * (0.85 + 0.15 * position); break;
    }
    double y = exponent / std::log2(std::abs(base));
    if (lane == Lane::i32)
        return static_cast<std::uint32_t>(static_cast<std::int64_t>(std::abs(y) < 0x1p31 ? std::rint(y) : 0x1p31));
    return lane == Lane::f32 ? std::bit_cast<std::uint32_t>(static_cast<float>(y)) : std::bit_cast<std::uint64_t>(y);
}

}  // namespace tuvo

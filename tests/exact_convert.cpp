// Conversions by integer arithmetic: a number is a significand times a power of two, and rounding drops its low bits.
#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "tests/exact.hpp"

namespace tuvo {
namespace {

using Wide = unsigned __int128;

/// significand 2^-drop, rounded to an integer.
Wide rounded(Wide significand, int drop, Rounding word, bool negative) {
    if (drop <= 0) return significand << -drop;
    const Wide kept = drop < 128 ? significand >> drop : 0;
    const Wide rest = drop < 128 ? significand - (kept << drop) : significand;
    const Wide half = drop <= 128 ? Wide{1} << (drop - 1) : 0;  // 0: the rest is below half
    const bool nearest_up = half != 0 && (rest > half || (rest == half && kept % 2 == 1));
    const bool up = word == Rounding::rte   ? nearest_up
                    : word == Rounding::rtn ? negative && rest != 0
                    : word == Rounding::rtp ? !negative && rest != 0
                                            : false;
    return kept + up;
}

struct Number {
    bool negative, nan, infinite;
    std::uint64_t significand;  ///< times 2^exponent
    int exponent;
};
Number decode(Lane lane, std::uint64_t pattern) {
    const int fraction_bits = lane == Lane::f32 ? 23 : 52, size = 8 * lane_size(lane);
    const std::uint64_t top = (std::uint64_t{1} << (size - 1 - fraction_bits)) - 1;
    const std::uint64_t fraction = pattern & ((std::uint64_t{1} << fraction_bits) - 1);
    const std::uint64_t field = pattern >> fraction_bits & top;
    const int lowest = 2 - int(top / 2 + 1) - fraction_bits;  // exponent of subnormals
    Number x{(pattern >> (size - 1)) != 0, field == top && fraction != 0, field == top && fraction == 0, fraction,
             lowest};
    if (field != 0) {
        x.significand |= std::uint64_t{1} << fraction_bits;
        x.exponent += int(field) - 1;
    }
    return x;
}

std::uint64_t to_integer(const Family& family, std::uint64_t pattern) {
    const Lane target = family.results[0];
    const Number x = decode(family.arguments[0], pattern);
    const bool is_signed = target == Lane::i32 || target == Lane::i64, saturates = family.saturation == Saturation::sat;
    const int bits = 8 * lane_size(target);
    const std::uint64_t ones = ~std::uint64_t{0} >> (64 - bits), lowest = ones ^ ones >> 1;
    if (x.nan) {
        if (!saturates) return lowest;
        // The one conversion that takes a NaN for a number beyond all others, of its sign.
        return target == Lane::u32 && !x.negative ? ones : 0;
    }
    const bool huge = x.infinite || x.exponent > 64;  // beyond every target, and beyond a shift of 128 bits
    const Wide magnitude = huge ? Wide{1} << 100 : rounded(x.significand, -x.exponent, family.rounding, x.negative);
    const Wide limit = Wide{is_signed ? lowest : ones} + !is_signed;  // 2^31, 2^32, 2^63, 2^64
    const bool negative = x.negative && (is_signed || saturates);
    if (negative && !is_signed) return 0;
    if (magnitude >= limit + negative) return !saturates ? lowest : negative ? lowest : std::uint64_t(limit - 1);
    return (negative ? -std::uint64_t(magnitude) : std::uint64_t(magnitude)) & ones;
}

/// significand 2^exponent in the format; overflow goes where the rounding word sends it.
std::uint64_t in_format(Lane lane, bool negative, std::uint64_t significand, int exponent, Rounding word) {
    const int precision = lane == Lane::f32 ? 24 : 53, lowest = lane == Lane::f32 ? -149 : -1074;
    const int drop = std::max({0, int(std::bit_width(significand)) - precision, lowest - exponent});
    double value = std::ldexp(double(std::uint64_t(rounded(significand, drop, word, negative))), exponent + drop);
    if (lane == Lane::f32 && value > std::numeric_limits<float>::max()) {
        const bool outward = word == Rounding::rte || word == (negative ? Rounding::rtn : Rounding::rtp);
        value = outward ? std::numeric_limits<double>::infinity() : std::numeric_limits<float>::max();
    }
    if (negative) value = -value;
    return lane == Lane::f32 ? std::bit_cast<std::uint32_t>(float(value)) : std::bit_cast<std::uint64_t>(value);
}

std::uint64_t to_floating(const Family& family, std::uint64_t pattern) {
    const Lane source = family.arguments[0], target = family.results[0];
    if (is_floating(source)) {
        const Number x = decode(source, pattern);
        const std::uint64_t sign = x.negative ? 0x80000000 : 0;
        if (x.nan) return sign | 0x7fc00000 | (x.significand >> 29 & 0x007fffff);
        if (x.infinite) return sign | 0x7f800000;
        return in_format(target, x.negative, x.significand, x.exponent, family.rounding);
    }
    const std::uint64_t extended = source == Lane::i32 ? std::uint64_t(std::int64_t(std::int32_t(pattern))) : pattern;
    const bool negative = (source == Lane::i32 || source == Lane::i64) && std::int64_t(extended) < 0;
    return in_format(target, negative, negative ? -extended : extended, 0, family.rounding);
}

}  // namespace

ExactOutputs exact_convert(const Family& family, std::span<const std::uint64_t> arguments) {
    if (!family.stem.starts_with("cvt")) return std::nullopt;
    return {{is_floating(family.results[0]) ? to_floating(family, arguments[0]) : to_integer(family, arguments[0])}};
}

}  // namespace tuvo

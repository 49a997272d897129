// Conversions: what the comparison with exact results in the default mode can't show.
#include <array>
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "frame/description/families.hpp"
#include "tests/call.hpp"
#include "tests/exact.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

std::vector<const DescribedFamily*> conversions() {
    std::vector<const DescribedFamily*> found;
    for (const DescribedFamily& described : described_families())
        if (described.family->stem.starts_with("cvt")) found.push_back(&described);
    return found;
}

// What lies outside the target's range, cell by cell. The columns are floating-point values.
struct Limits {
    Lane target;
    Saturation saturation;
    std::uint64_t positive_nan, negative_nan, too_large, too_small, minus_three;
};
constexpr std::uint64_t high32 = 0x80000000, ones32 = 0xffffffff, high64 = 0x8000000000000000, ones64 = ~0ull;
constexpr auto nosat = Saturation::nosat, sat = Saturation::sat;
constexpr Limits limits[] = {
    {Lane::i32, nosat, high32, high32, high32, high32, ones32 - 2},
    {Lane::i32, sat, 0, 0, high32 - 1, high32, ones32 - 2},
    {Lane::u32, nosat, high32, high32, high32, high32, 3},
    {Lane::u32, sat, ones32, 0, ones32, 0, 0},
    {Lane::i64, nosat, high64, high64, high64, high64, ones64 - 2},
    {Lane::i64, sat, 0, 0, high64 - 1, high64, ones64 - 2},
    {Lane::u64, nosat, high64, high64, high64, high64, 3},
    {Lane::u64, sat, 0, 0, ones64, 0, 0},
};

TEST(Conversions, OutOfRangeAtEveryWidth) {
    int cells = 0;
    for (const DescribedFamily* described : conversions()) {
        const Family& family = *described->family;
        const bool single = family.arguments[0] == Lane::f32;
        const auto pattern = [&](double x) -> std::uint64_t {
            return single ? std::bit_cast<std::uint32_t>(float(x)) : std::bit_cast<std::uint64_t>(x);
        };
        const std::uint64_t infinity = pattern(INFINITY), sign = pattern(-0.0);
        for (const Limits& row : limits) {
            if (family.results[0] != row.target || family.saturation != row.saturation) continue;
            const double end =
                std::ldexp(1, 8 * lane_size(row.target) - (row.target == Lane::i32 || row.target == Lane::i64));
            const double below = std::nextafter(-end, -INFINITY) - 1;  // for doubles, and 32 bits: the next integer
            const std::pair<std::uint64_t, std::uint64_t> cases[] = {
                {infinity | 1, row.positive_nan},
                {pattern(NAN), row.positive_nan},
                {sign | infinity | 1, row.negative_nan},
                {pattern(-NAN), row.negative_nan},
                {pattern(end), row.too_large},
                {infinity, row.too_large},
                {pattern(single ? -2 * end : below), row.too_small},
                {sign | infinity, row.too_small},
                {pattern(-3), row.minus_three},
                {sign, 0},
            };
            for (int width : widths) {
                for (const auto& [argument, expected] : cases) {
                    const Patterns lanes(static_cast<std::size_t>(width), argument);
                    const CallResult result = call(find_kernel(family, width), family, width, std::array{lanes});
                    EXPECT_EQ(result.violations, std::vector<std::string>{});
                    for (int lane = 0; lane < width; ++lane)
                        EXPECT_EQ(result.outputs[0][static_cast<std::size_t>(lane)], expected)
                            << short_name(family, width) << " of " << hex({argument});
                    ++cells;
                }
            }
        }
    }
    EXPECT_EQ(cells, 64 * 6 * 10);
}

// Rounding control in the order of the processor's field: nearest, down, up, toward zero.
constexpr Rounding modes[] = {Rounding::rte, Rounding::rtn, Rounding::rtp, Rounding::rtz};

/// The family with another rounding word, and unsigned: a magnitude is rounded as the processor rounds.
const Family& magnitude_family(const Family& family, Rounding word) {
    for (const Family& other : families())
        if (other.stem.starts_with("cvt") && other.rounding == word && other.results == family.results &&
            other.arguments[0] == (family.arguments[0] == Lane::i32   ? Lane::u32
                                   : family.arguments[0] == Lane::i64 ? Lane::u64
                                                                      : family.arguments[0]))
            return other;
    throw std::logic_error("no such conversion");
}

TEST(Conversions, OnlyToNearestEvenFollowsTheProcessorsMode) {
    int families_seen = 0;
    for (const DescribedFamily* described : conversions()) {
        const Family& family = *described->family;
        const Lane source = family.arguments[0], target = family.results[0];
        const bool follows = is_floating(target) && family.rounding == Rounding::rte;
        const int bits = 8 * lane_size(source), target_bits = 8 * lane_size(target);
        Patterns arguments =
            stratified_patterns(source, 5, described->accuracy.thresholds, source == Lane::f64 ? 1 : 8);
        const auto is_negative = [&](std::uint64_t x) {
            return (source == Lane::i32 || source == Lane::i64) && x >> (bits - 1) != 0;
        };
        const auto magnitude = [&](std::uint64_t x) { return (is_negative(x) ? -x : x) & ~0ull >> (64 - bits); };
        // From 2^46 on, three pieces are added in two roundings.
        if (follows && bits == 64 && target == Lane::f32 && !is_floating(source))
            std::erase_if(arguments, [&](std::uint64_t x) { return magnitude(x) >> 46 != 0; });
        ASSERT_GT(arguments.size(), 500u);
        ++families_seen;
        for (unsigned mode = 0; mode < 4; ++mode) {
            CallOptions options;
            options.mxcsr |= mode << 13;
            const CallResult result = call_all(find_kernel(family, 8), family, 8, std::array{arguments}, options);
            ASSERT_EQ(result.violations, std::vector<std::string>{}) << family.name();
            for (std::size_t k = 0; k < arguments.size(); ++k) {
                const std::uint64_t x = arguments[k];
                const Family& reference = follows ? magnitude_family(family, modes[mode]) : family;
                const bool mirrored = follows && is_negative(x);
                const std::uint64_t argument = mirrored ? magnitude(x) : x;
                std::uint64_t expected = (*exact_convert(reference, {&argument, 1}))[0];
                if (mirrored) expected |= 1ull << (target_bits - 1);
                // Differences of equal numbers are negative zeros when the processor rounds down.
                if (x == 0 && mode == 1 && is_floating(target) && source != Lane::f64 && result.outputs[0][k] != 0)
                    expected = 1ull << (target_bits - 1);
                ASSERT_EQ(result.outputs[0][k], expected) << family.name() << " of " << hex({x}) << ", mode " << mode;
            }
        }
    }
    EXPECT_EQ(families_seen, 100);
}

}  // namespace
}  // namespace tuvo

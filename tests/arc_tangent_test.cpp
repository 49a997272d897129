// Arc tangents: tables, special values and the ends of the vector paths, the rare routines called directly.
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "inverse/arc_tables.hpp"
#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

std::uint64_t pattern_of(Lane lane, double x) {
    return lane == Lane::f32 ? std::bit_cast<std::uint32_t>(static_cast<float>(x)) : std::bit_cast<std::uint64_t>(x);
}
std::uint64_t sign_of(Lane lane) { return std::uint64_t{1} << (8 * lane_size(lane) - 1); }

TEST(ArcTangentTables, FollowTheirRules) {
    const RawTable quarters = atan_quarter_table(), big = atan_big_table();
    ASSERT_EQ(quarters.patterns.size(), 32u);
    EXPECT_EQ(quarters.patterns[0], 0u);
    EXPECT_EQ(quarters.patterns[4], 0x3fe921fb54442d18u);
    EXPECT_EQ(quarters.patterns[31], pattern_of(Lane::f64, std::atan(7.75)));
    ASSERT_EQ(big.patterns.size(), 2 * 114u);
    EXPECT_EQ(rare_table("atan2_big_table").patterns, big.patterns);
    for (std::size_t i = 0; i < 114; ++i) {
        // The point as the routines cut it from a quotient, whatever that is within its half binade.
        const std::uint64_t high = 0x3fc00000 + (i << 19) + (i * 4657 & 0x7ffff);
        const Real c = Real::from_pattern(Lane::f64, ((high & 0xfff80000) | 0x40000) << 32);
        const Real hi = Real::from_pattern(Lane::f64, big.patterns[2 * i]);
        const Real lo = Real::from_pattern(Lane::f64, big.patterns[2 * i + 1]);
        EXPECT_LE(hi.significant_bits(), 26) << i;
        EXPECT_LE(abs(lo), power_of_two(hi.exponent() - 26)) << i;
        EXPECT_LE(abs(hi + lo - atan(c)), power_of_two(hi.exponent() - 26 - 53)) << i;
    }
}

TEST(ArcTangent, InfinitiesAreAtTheLimit) {
    constexpr double infinity = HUGE_VAL;
    for (const char* name : {"atanf", "atanf_native", "atan", "atan_native"}) {
        const Family& family = *find_family(name);
        const Lane lane = family.element;
        for (double x : {infinity, -infinity, lane == Lane::f32 ? 3e38 : 1e308})
            EXPECT_EQ(outputs_of(family, Patterns{pattern_of(lane, x)}),
                      Patterns{pattern_of(lane, std::copysign(M_PI_2, x))})
                << name << " " << x;
    }
    for (const char* name : {"atanpif", "atanpi_native"}) {
        const Family& family = *find_family(name);
        EXPECT_EQ(outputs_of(family, Patterns{pattern_of(family.element, -infinity)}),
                  Patterns{pattern_of(family.element, -0.5)});
    }
}

/// Numbers at which something changes, with both signs: zeros, the least and greatest of all kinds, the ends of the
/// vector paths, neighbours of 1, points between two entries of the tables, NaNs.
Patterns telling(Lane lane) {
    const bool single = lane == Lane::f32;
    const std::uint64_t infinity = single ? 0x7f800000 : 0x7ff0000000000000;
    const std::uint64_t normal = single ? 0x00800000 : 0x0010000000000000, one = pattern_of(lane, 1);
    const std::uint64_t least = single ? 0x01000000 : 0x0030000000000000;
    const std::uint64_t limit = single ? 0x7d000000 : 0x7e00000000000000;
    Patterns patterns{0,
                      1,
                      2,
                      normal / 3,
                      normal - 1,
                      normal,
                      normal + 1,
                      least - 1,
                      least,
                      least + 1,
                      one - 1,
                      one,
                      one + 1,
                      limit - 1,
                      limit,
                      limit + 1,
                      infinity - normal,
                      infinity - 1,
                      infinity,
                      infinity + 1 + normal / 2,
                      infinity + 1};
    for (double x : {0.124, 0.125, 0.13, 0.25, 0.3, 0.5, 0.7, 1.5, 2.9, 7.874, 7.876, 1e3, 1e15, 1e17, 1e22, 1e-9})
        patterns.push_back(pattern_of(lane, x));
    for (std::size_t k = 0, count = patterns.size(); k < count; ++k) patterns.push_back(patterns[k] | sign_of(lane));
    return patterns;
}

/// The measured maxima of the rare routines.
double rare_bound(const Family& family) {
    if (family.element == Lane::f32 || family.operation == "atanpi") return 0.5001;
    return family.operation == "atan2" ? 0.511 : 1.72;  // half turns are a rounded angle times a rounded 1/pi
}

TEST(ArcTangent, EveryPairOfTellingArguments) {
    for (const char* name : {"atan2f", "atan2f_native", "atan2pif", "atan2pif_native", "atan2", "atan2_native",
                             "atan2pi", "atan2pi_native"}) {
        const DescribedFamily& described = *find_described(name);
        const Family& family = *described.family;
        const Lane lane = family.element;
        const Program program = record_family(described);
        std::vector<Patterns> pairs(2);
        for (std::uint64_t y : telling(lane))
            for (std::uint64_t x : telling(lane)) pairs[0].push_back(y), pairs[1].push_back(x);
        for (int width : {4, 16}) {
            const CallResult got = call_all(find_kernel(family, width), family, width, pairs);
            EXPECT_EQ(got.violations, std::vector<std::string>{}) << name;
            for (std::size_t k = 0; k < pairs[0].size(); ++k) {
                const Patterns arguments{pairs[0][k], pairs[1][k]};
                const std::uint64_t result = got.outputs[0][k];
                const Real exact = oracle(family.operation, arguments, lane).value();
                const Real value = Real::from_pattern(lane, result);
                ASSERT_EQ(value.is_nan(), exact.is_nan()) << name << " " << hex(arguments);
                if (exact.is_nan()) continue;
                // Also of a zero, which the angle is only with a positive x.
                ASSERT_EQ(value.is_negative(), (arguments[0] & sign_of(lane)) != 0) << name << " " << hex(arguments);
                const bool by_rare_routine = interpret(program, arguments).rare;
                const double bound = by_rare_routine ? rare_bound(family) : described.accuracy.ulp;
                ASSERT_LE(ulp_error(lane, result, exact), bound) << name << " " << hex(arguments);
            }
        }
    }
}

TEST(ArcTangent, RareLanes) {
    const auto is_rare = [](const char* name, const Patterns& arguments) {
        return interpret(record_family(*find_described(name)), arguments).rare;
    };
    for (const char* name : {"atan2f", "atan2pif_native", "atan2_native", "atan2pi"}) {
        const Family& family = *find_family(name);
        const bool single = family.element == Lane::f32, in_turns = family.operation == "atan2pi";
        const std::uint64_t least = single ? 0x01000000 : 0x0030000000000000;
        const std::uint64_t limit = single ? 0x7d000000 : 0x7e00000000000000;
        const std::uint64_t nan = single ? 0xffc00000 : 0xfff8000000000000, one = pattern_of(family.element, 1);
        for (std::uint64_t x : {least, limit - 1, one}) {
            EXPECT_FALSE(is_rare(name, {x, one}) || is_rare(name, {one, x})) << name << std::hex << " " << x;
            for (std::uint64_t rare : {least - 1, limit, nan, nan ^ sign_of(family.element)})
                EXPECT_TRUE(is_rare(name, {x, rare}) && is_rare(name, {rare, x})) << name << std::hex << " " << x;
            // A zero beside a number is finished ahead of the rare routine, but not in half turns; a NaN never.
            EXPECT_EQ(is_rare(name, {x, 0}), in_turns) << name;
            EXPECT_EQ(is_rare(name, {sign_of(family.element), x}), in_turns) << name;
            EXPECT_TRUE(is_rare(name, {nan, 0}) && is_rare(name, {0, nan})) << name;
        }
    }
    for (const char* name : {"atanpif_native", "atanpi"}) {
        const bool single = find_family(name)->element == Lane::f32;
        const std::uint64_t least = single ? 0x81000000 : 0x8030000000000000;
        const std::uint64_t limit = single ? 0xfd000000 : 0xfe00000000000000;
        EXPECT_FALSE(is_rare(name, {least}) || is_rare(name, {limit - 1})) << name;
        EXPECT_TRUE(is_rare(name, {least - 1}) && is_rare(name, {limit}) && is_rare(name, {0})) << name;
    }
    for (const char* name : {"atanf_native", "atan_native"}) {
        const std::uint64_t infinity = pattern_of(find_family(name)->element, -HUGE_VAL);
        EXPECT_TRUE(is_rare(name, {infinity})) << name;
        EXPECT_FALSE(is_rare(name, {infinity - 1}) || is_rare(name, {infinity + 1}) || is_rare(name, {0})) << name;
    }
}

TEST(ArcTangentRare, Accuracy) {
    RandomBits random(1);
    for (const char* name : {"atan2f", "atan2pif", "atan2", "atan2pi", "atanpif", "atanpi"}) {
        const Family& family = *find_family(name);
        const Lane lane = family.element;
        const int fraction_bits = lane == Lane::f32 ? 23 : 52;
        double largest = 0;
        Patterns worst;
        for (std::uint64_t y : stratified_patterns(lane, 1, {}, lane == Lane::f32 ? 32 : 4)) {
            Patterns arguments{y};
            if (family.arguments.size() == 2) {
                // Quotients of every size for which the routine has a way of its own.
                const std::uint64_t difference = random() % 4 ? random() % 9 - 4 : random() % 160 - 80;
                const std::uint64_t fraction = random() & ((std::uint64_t{1} << fraction_bits) - 1);
                arguments.push_back(((y - (difference << fraction_bits)) ^ fraction) & (sign_of(lane) * 2 - 1));
            } else if (const double a = std::fabs(Real::from_pattern(lane, y).to_double());
                       a > (lane == Lane::f32 ? 0x1p-53 : 0x1p-1020) && a < 0x1p54) {
                continue;  // kernels finish these
            }
            const Real exact = oracle(family.operation, arguments, lane).value();
            if (exact.is_nan()) continue;
            const RareResult got = call_rare(family, arguments);
            EXPECT_EQ(got.status, 0) << name << " " << hex(arguments);
            const double error = ulp_error(lane, got.pattern, exact);
            if (error > largest) largest = error, worst = arguments;
        }
        EXPECT_LE(largest, rare_bound(family)) << name << " " << hex(worst);
    }
}

TEST(ArcTangentRare, Flags) {
    constexpr unsigned invalid = _MM_EXCEPT_INVALID, underflow = _MM_EXCEPT_UNDERFLOW;
    struct Case {
        const char* family;
        Patterns arguments;
        RareResult expected;
    };
    const Case cases[] = {
        {"atan2f", {0x00000003, 0x40400000}, {1, 0, underflow}},
        {"atan2f", {0x80000001, 0x7f000000}, {0x80000000, 0, underflow}},
        {"atan2f", {0x00000001, 0xbf800000}, {0x40490fdb, 0, 0}},
        {"atan2f", {0x00000001, 0x00000001}, {0x3f490fdb, 0, 0}},
        {"atan2f", {0x7fa00000, 0x00000000}, {0x7fe00000, 0, invalid}},
        {"atan2pif", {0x00000001, 0xffc00001}, {0xffc00001, 0, 0}},
        {"atan2", {0x0000000000000003, 0x4008000000000000}, {1, 0, underflow}},
        {"atan2", {0xfff4000000000000, 0x7ff8000000000000}, {0xfffc000000000000, 0, invalid}},
        {"atan2pi", {0x8000000000000000, 0x8000000000000000}, {0xbff0000000000000, 0, 0}},
        {"atanpif", {0x80000003}, {0x80000001, 0, underflow}},
        {"atanpif", {0x7f800001}, {0x7fc00001, 0, invalid}},
        {"atanpi", {0x0000000000000003}, {1, 0, underflow}},
        {"atanpi", {0x8000000000000000}, {0x8000000000000000, 0, 0}},
        {"atanpi", {0xfff8000000000123}, {0xfff8000000000123, 0, 0}},
        {"atanf_native", {0xff800000}, {0xbfc90fdb, 0, 0}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(call_rare(*find_family(c.family), c.arguments), c.expected) << c.family << " " << hex(c.arguments);
}

}  // namespace
}  // namespace tuvo

// Arc sines and cosines: ends and middle of the interval, which lanes go to the rare routines, those called directly.
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "tests/accuracy.hpp"
#include "tests/inputs.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

std::uint64_t pattern_of(Lane lane, double x) {
    return lane == Lane::f32 ? std::bit_cast<std::uint32_t>(static_cast<float>(x)) : std::bit_cast<std::uint64_t>(x);
}
std::uint64_t sign_of(Lane lane) { return std::uint64_t{1} << (8 * lane_size(lane) - 1); }

struct Operation {
    const char* name;
    bool takes_ends;  ///< the vector path does
    double at_zero, at_one, at_minus_one;
};
constexpr Operation operations[] = {
    {"asin", true, 0, M_PI_2, -M_PI_2},
    {"acos", true, M_PI_2, 0, M_PI},
    {"asinpi", false, 0, 0.5, -0.5},
    {"acospi", false, 0.5, 0, 1},
};

/// Calls `check` with each operation's families and their lane type.
template <typename Check>
void for_all(Check check) {
    for (const Operation& operation : operations)
        for (const char* suffix : {"f", "f_native", "", "_native"}) {
            const std::string name = std::string(operation.name) + suffix;
            SCOPED_TRACE(name);
            check(operation, *find_described(name), find_family(name)->element);
        }
}

TEST(ArcSineCosine, EndsAndMiddle) {
    for_all([](const Operation& operation, const DescribedFamily& described, Lane lane) {
        const auto result = [&](std::uint64_t x) { return outputs_of(*described.family, Patterns{x})[0]; };
        const bool even = operation.at_zero != 0;
        EXPECT_EQ(result(0), pattern_of(lane, operation.at_zero));
        EXPECT_EQ(result(sign_of(lane)), pattern_of(lane, even ? operation.at_zero : -0.0));
        EXPECT_EQ(result(pattern_of(lane, 1)), pattern_of(lane, operation.at_one));
        EXPECT_EQ(result(pattern_of(lane, -1)), pattern_of(lane, operation.at_minus_one));
        for (std::uint64_t x : {pattern_of(lane, 1) + 1, pattern_of(lane, -1) + 1, pattern_of(lane, -2),
                                pattern_of(lane, HUGE_VAL), pattern_of(lane, NAN), pattern_of(lane, -HUGE_VAL) + 1})
            EXPECT_TRUE(Real::from_pattern(lane, result(x)).is_nan()) << std::hex << x;
    });
}

TEST(ArcSineCosine, RareLanes) {
    for_all([](const Operation& operation, const DescribedFamily& described, Lane lane) {
        const Program program = record_family(described);
        for (std::uint64_t sign : {std::uint64_t{0}, sign_of(lane)}) {
            const auto is_rare = [&](std::uint64_t x) { return interpret(program, Patterns{x | sign}).rare; };
            const std::uint64_t one = pattern_of(lane, 1);
            EXPECT_FALSE(is_rare(0) || is_rare(one - 1));
            EXPECT_EQ(is_rare(one), !operation.takes_ends);
            EXPECT_TRUE(is_rare(one + 1) && is_rare(pattern_of(lane, HUGE_VAL)));
            EXPECT_EQ(is_rare(pattern_of(lane, NAN)), lane == Lane::f64 && std::string(operation.name) == "acos");
        }
    });
}

TEST(ArcSineCosineRare, EveryKindOfArgument) {
    constexpr int ordinary = 0, domain = 1;
    constexpr unsigned invalid = _MM_EXCEPT_INVALID;
    for_all([](const Operation& operation, const DescribedFamily& described, Lane lane) {
        const Family& family = *described.family;
        const std::uint64_t before = pattern_of(lane, 42), one = pattern_of(lane, 1);
        const std::uint64_t infinity = pattern_of(lane, HUGE_VAL), quiet = pattern_of(lane, NAN) ^ infinity;
        const auto call = [&](std::uint64_t x) { return call_rare(family, {x}, before); };
        for (std::uint64_t sign : {std::uint64_t{0}, sign_of(lane)}) {
            const std::uint64_t made = infinity | quiet | sign_of(lane);
            for (std::uint64_t x : {one + 1, infinity - 1, infinity})
                EXPECT_EQ(call(sign | x), (RareResult{made, domain, invalid})) << std::hex << x;
            const std::uint64_t nan = sign | infinity | quiet | 5, signalling = nan ^ quiet;
            EXPECT_EQ(call(nan), (RareResult{nan, ordinary, 0}));
            EXPECT_EQ(call(signalling), (RareResult{nan, ordinary, invalid}));
            if (operation.takes_ends) continue;
            const double at_end = sign ? operation.at_minus_one : operation.at_one;
            EXPECT_EQ(call(sign | one), (RareResult{pattern_of(lane, at_end), ordinary, 0}));
            // Inside the interval the vector's result stands.
            for (std::uint64_t x : {std::uint64_t{0}, std::uint64_t{1}, one / 2, one - 1})
                EXPECT_EQ(call(sign | x), (RareResult{before, ordinary, 0})) << std::hex << x;
        }
    });
}

}  // namespace
}  // namespace tuvo

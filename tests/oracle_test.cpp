// The oracle is what every accuracy figure rests on, so it is tested by cases that can be told by hand.
#include "tests/oracle.hpp"

#include <bit>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace tuvo {
namespace {

constexpr double wrong = std::numeric_limits<double>::infinity();
constexpr std::uint32_t largest = 0x7f7fffff;
constexpr std::uint32_t infinity = 0x7f800000;
constexpr std::uint32_t nan_pattern = 0x7fc00000;

double error(std::uint32_t got, const Real& exact) { return ulp_error(Lane::f32, got, exact); }

TEST(Real, RoundsToPatternsAsTheFormatDoes) {
    EXPECT_EQ((1 + power_of_two(-24)).to_pattern(Lane::f32), 0x3f800000u);  // ties to even
    EXPECT_EQ((1 + 3 * power_of_two(-24)).to_pattern(Lane::f32), 0x3f800002u);
    EXPECT_EQ((3 * power_of_two(-150)).to_pattern(Lane::f32), 2u);  // subnormals tie as well
    EXPECT_EQ(power_of_two(-150).to_pattern(Lane::f32), 0u);
    EXPECT_EQ((power_of_two(-126) - power_of_two(-149) * Real(0.75)).to_pattern(Lane::f32), 0x007fffffu);
    EXPECT_EQ((power_of_two(128) - power_of_two(103)).to_pattern(Lane::f32), infinity);
    EXPECT_EQ((-power_of_two(1100)).to_pattern(Lane::f64), 0xfff0000000000000u);
    EXPECT_EQ(Real::from_pattern(Lane::f64, 0x8000000000000000).to_pattern(Lane::f64), 0x8000000000000000u);
    EXPECT_EQ(Real::from_pattern(Lane::u64, ~0ull), power_of_two(64) - 1);
    EXPECT_EQ(Real::from_pattern(Lane::i32, 0xffffffff), Real(-1));
    EXPECT_EQ(Real(-2.5).rounded_to_grid(0), Real(-2));
    EXPECT_THROW(Real(1).to_pattern(Lane::i32), std::invalid_argument);
}

TEST(Oracle, UlpIsThatOfTheExactValue) {
    EXPECT_EQ(error(0x3f800001, 1), 1);
    EXPECT_EQ(error(0x3f7fffff, 1), 0.5);  // below a power of two the floats are closer
    EXPECT_EQ(error(0x3f800000, 1 - power_of_two(-25)), 0.5);
    EXPECT_EQ(error(3, power_of_two(-150)), 2.5);
    EXPECT_EQ(error(0x80000000, power_of_two(-300)), std::ldexp(1.0, -151));
    EXPECT_EQ(error(0x80000000, 0), 0);
    EXPECT_EQ(error(1, 0), 1);
    EXPECT_EQ(ulp_error(Lane::f64, 0x3ff0000000000001, 1), 1);
    EXPECT_EQ(ulp_error(Lane::i32, 0xffffffff, 2), 3);
}

TEST(Oracle, InfinityEndsTheFormat) {
    EXPECT_EQ(error(infinity, power_of_two(200)), 0);
    EXPECT_EQ(error(largest, power_of_two(200)), 1);
    EXPECT_EQ(error(infinity, power_of_two(128) - power_of_two(102)), 0.25);
    EXPECT_EQ(error(infinity, power_of_two(127)), 0x1p23);
    EXPECT_EQ(error(0xff800000, power_of_two(200)), 0x2p24);
    EXPECT_EQ(error(0xff800000, log(Real(0))), 0);
    EXPECT_EQ(error(infinity, log(Real(0))), wrong);
    EXPECT_EQ(error(0xff7fffff, log(Real(0))), wrong);
    EXPECT_EQ(error(nan_pattern, log(Real(-1))), 0);
    EXPECT_EQ(error(0, log(Real(-1))), wrong);
    EXPECT_EQ(error(nan_pattern, 0), wrong);
}

TEST(Oracle, KnowsItsOperations) {
    const std::uint64_t two = 0x40000000;
    EXPECT_EQ(oracle("log2", {&two, 1}, Lane::f32), Real(1));
    EXPECT_EQ(oracle("log", {&two, 1}, Lane::f32)->to_double(), 0x1.62e42fefa39efp-1);
    EXPECT_EQ(oracle("log10", {&two, 1}, Lane::f32)->to_double(), 0x1.34413509f79ffp-2);
    EXPECT_EQ(oracle("log1p", {&two, 1}, Lane::f32)->to_double(), 0x1.193ea7aad030bp+0);
    EXPECT_FALSE(oracle("no such operation", {&two, 1}, Lane::f32));
    EXPECT_THROW(FloatErrorScan("no such operation"), std::invalid_argument);
}

// The scan's shortcut through double must tell what MPFR tells, for results of every quality.
TEST(Oracle, ScanAgreesWithTheExactError) {
    RandomBits random(1);
    FloatErrorScan scan("log1p"), first_half("log1p"), second_half("log1p");
    double largest_error = 0;
    const std::vector<std::uint32_t> inputs = stratified_floats(1, {}, 4);
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const std::uint64_t x = inputs[i];
        const Real exact = *oracle("log1p", {&x, 1}, Lane::f32);
        std::uint32_t got = static_cast<std::uint32_t>(exact.to_pattern(Lane::f32));
        if (exact.is_finite()) got += static_cast<std::uint32_t>(random() % 100 ? random() % 5 : random() % 1000);
        const double expected = error(got, exact);
        largest_error = std::max(largest_error, expected);
        const double told = scan.add(x, got);
        const Real binade = exact.is_finite() && !exact.is_zero() ? power_of_two(exact.exponent()) : Real(1);
        const Real ratio = exact / binade;
        const bool near_power_of_two = ratio < 1 + power_of_two(-49) || ratio > 2 - power_of_two(-49);
        EXPECT_NEAR(told < 0.75 * expected && near_power_of_two ? 2 * told : told, expected, 1e-6) << std::hex << x;
        (i % 2 ? first_half : second_half).add(x, got);
    }
    EXPECT_EQ(scan.max_error(), largest_error);
    const std::uint64_t worst = scan.worst_input();
    EXPECT_EQ(error(scan.worst_got(), *oracle("log1p", {&worst, 1}, Lane::f32)), largest_error);
    first_half.merge(second_half);
    EXPECT_EQ(first_half.max_error(), largest_error);
    EXPECT_EQ(scan.add(nan_pattern, 0), wrong);
    EXPECT_EQ(scan.max_error(), wrong);
}

TEST(Oracle, ExtendedScanAgreesWithTheExactError) {
    RandomBits random(2);
    for (const auto& [operation, lane] : {std::pair{"atan2pi", Lane::f64}, {"atan2", Lane::f32}, {"acos", Lane::f64}}) {
        ExtendedErrorScan scan(operation, lane);
        double largest_error = 0;
        const std::vector<std::uint64_t> inputs = stratified_patterns(lane, 1, {}, 1);
        for (std::size_t i = 0; i < inputs.size(); i += 3) {
            std::vector<std::uint64_t> arguments{inputs[i]};
            if (operation != std::string("acos")) arguments.push_back(inputs[i] + (random() & 0xffffff));
            const Real exact = *oracle(operation, arguments, lane);
            std::uint64_t got = exact.to_pattern(lane);
            if (exact.is_finite()) got += random() % 100 ? random() % 5 : random() % 1000;
            const double expected = ulp_error(lane, got, exact), told = scan.add(arguments, got);
            largest_error = std::max(largest_error, expected);
            // Within rounding of a power of two the ulp may be half of that.
            EXPECT_NEAR(told < 0.75 * expected ? 2 * told : told, expected, 0.01) << operation << std::hex << inputs[i];
        }
        EXPECT_EQ(scan.max_error(), largest_error) << operation;
    }
    EXPECT_FALSE(ExtendedErrorScan::knows("no such operation"));
}

TEST(Oracle, InputsCoverTheFormat) {
    const std::uint32_t thresholds[] = {0x41234567, 0xbf7fffff};
    const std::vector<std::uint32_t> inputs = stratified_floats(7, thresholds);
    EXPECT_EQ(inputs, stratified_floats(7, thresholds));
    EXPECT_NE(inputs, stratified_floats(8, thresholds));
    std::vector<int> by_exponent(512);
    for (std::uint32_t x : inputs) ++by_exponent[x >> 23];
    for (int field = 0; field < 512; ++field) EXPECT_GE(by_exponent[field], field % 256 == 255 ? 6 : 64) << field;
    for (std::uint32_t x : {0x00000000u, 0x80000000u, 0x7f800001u, 0xff800000u, largest, 0x00000001u, 0x007fffffu,
                            0x00800000u, 0x41234563u, 0x4123456bu, 0xc1234567u, 0xbf800001u, 0x3f800001u})
        EXPECT_NE(std::find(inputs.begin(), inputs.end(), x), inputs.end()) << std::hex << x;
}

TEST(Oracle, InputsCoverTheOtherTypes) {
    const std::vector<std::uint64_t> doubles = stratified_patterns(Lane::f64, 7, {}, 2);
    std::vector<int> by_exponent(4096);
    for (std::uint64_t x : doubles) ++by_exponent[x >> 52];
    for (int field = 0; field < 4096; ++field) EXPECT_GE(by_exponent[field], field % 2048 == 2047 ? 6 : 11) << field;
    auto expect_found = [](const std::vector<std::uint64_t>& inputs, std::initializer_list<std::uint64_t> patterns) {
        for (std::uint64_t x : patterns)
            EXPECT_NE(std::find(inputs.begin(), inputs.end(), x), inputs.end()) << std::hex << x;
    };
    expect_found(doubles, {0, 1, 0x8000000000000000, 0x7fefffffffffffff, 0xfff0000000000000, 0x3ff0000000000001,
                           0xbfefffffffffffff, 0x7ff8000000000000, 0x7ff0000000000001});
    const std::uint64_t threshold = 100;
    const std::vector<std::uint64_t> ints = stratified_patterns(Lane::i32, 7, {&threshold, 1});
    expect_found(ints, {0, 1, 0xffffffff, 0x7fffffff, 0x80000000, 99, 101, 0xffffff9c});
    for (std::uint64_t x : ints) EXPECT_LE(x, 0xffffffffu);
    expect_found(stratified_patterns(Lane::u64, 7), {0, 1, ~0ull, 1ull << 63, (1ull << 63) - 1, 1ull << 31});
}

}  // namespace
}  // namespace tuvo

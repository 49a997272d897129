// The inverse hyperbolic functions: their rare routines, the edges of their domains, and where their steps change.
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

#include "tests/accuracy.hpp"
#include "tests/handed_over.hpp"
#include "tests/inputs.hpp"
#include "tests/oracle.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Row = std::vector<std::uint64_t>;

/// The patterns of a type.
struct Patterns {
    Lane lane;
    std::uint64_t sign, infinity, quiet, one, two, half, largest;

    std::string name(const char* operation) const { return std::string(operation) + (lane == Lane::f32 ? "f" : ""); }
};
constexpr Patterns types[] = {
    {Lane::f32, 0x80000000, 0x7f800000, 0x00400000, 0x3f800000, 0x40000000, 0x3f000000, 0x7f7fffff},
    {Lane::f64, 0x8000000000000000, 0x7ff0000000000000, 0x0008000000000000, 0x3ff0000000000000, 0x4000000000000000,
     0x3fe0000000000000, 0x7fefffffffffffff}};

std::uint64_t result_of(const Family& family, std::uint64_t x) { return outputs_of(family, {&x, 1})[0]; }

TEST(InverseHyperbolicRare, SpecialValuesStatusAndFlags) {
    constexpr unsigned invalid = _MM_EXCEPT_INVALID;
    for (const Patterns& t : types) {
        struct Case {
            const char* operation;
            std::uint64_t x;
            RareResult expected;
        };
        const Case cases[] = {
            {"asinh", t.infinity, {t.infinity, 0, 0}},
            {"asinh", t.sign | t.infinity, {t.sign | t.infinity, 0, 0}},
            {"acosh", t.one, {0, 0, 0}},
            {"acosh", t.infinity, {t.infinity, 0, 0}},
            {"atanh", t.one, {t.infinity, 2, 0}},
            {"atanh", t.sign | t.one, {t.sign | t.infinity, 2, 0}},
        };
        for (const auto& [operation, x, expected] : cases)
            EXPECT_EQ(call_rare(*find_family(t.name(operation)), {x}), expected) << operation << std::hex << x;

        const auto domain_error = [&](const char* operation, std::uint64_t x) {
            const RareResult got = call_rare(*find_family(t.name(operation)), {x});
            EXPECT_GE(got.pattern & ~t.sign, t.infinity | t.quiet) << operation << std::hex << x;
            EXPECT_EQ(got, (RareResult{got.pattern, 1, invalid})) << operation << std::hex << x;
        };
        for (std::uint64_t x : {t.half, std::uint64_t{0}, t.sign, t.sign | t.two, t.sign | t.infinity, t.one - 1})
            domain_error("acosh", x);
        for (std::uint64_t x : {t.one + 1, t.sign | t.two, t.infinity, t.sign | t.infinity}) domain_error("atanh", x);

        // A NaN keeps its payload and is quieted.
        for (const char* operation : {"asinh", "acosh", "atanh"}) {
            const Family& family = *find_family(t.name(operation));
            const std::uint64_t nan = t.sign | t.infinity | 5;
            EXPECT_EQ(call_rare(family, {nan}), (RareResult{nan | t.quiet, 0, invalid})) << operation;
            EXPECT_EQ(call_rare(family, {nan | t.quiet}), (RareResult{nan | t.quiet, 0, 0})) << operation;
        }
    }
}

TEST(InverseHyperbolic, LanesHandedOver) {
    for (const Patterns& t : types)
        for (const char* tier : {"", "_native"}) {
            const auto family = [&](const char* operation) -> const Family& {
                return *find_family(t.name(operation) + tier);
            };
            const std::uint64_t nan = t.infinity | 1;
            EXPECT_EQ(handed_over(family("asinh"), {0, t.sign | t.largest, t.largest, 1}), Row{});
            EXPECT_EQ(handed_over(family("asinh"), {t.infinity, t.one, t.sign | t.infinity, nan}),
                      (Row{t.infinity, t.sign | t.infinity, nan}));
            EXPECT_EQ(handed_over(family("acosh"), {t.one + 1, t.largest}), Row{});
            EXPECT_EQ(handed_over(family("acosh"), {t.one, t.infinity, t.sign | t.two, nan}),
                      (Row{t.one, t.infinity, t.sign | t.two, nan}));
            EXPECT_EQ(handed_over(family("atanh"), {0, t.one - 1, t.sign | (t.one - 1), 1}), Row{});
            EXPECT_EQ(handed_over(family("atanh"), {t.one, t.sign | t.one, t.two, nan}),
                      (Row{t.one, t.sign | t.one, t.two, nan}));
        }
}

// atanh adds the square to tiny arguments, so that -0 loses its sign.
TEST(InverseHyperbolic, ZerosAndTinyArguments) {
    for (const Patterns& t : types)
        for (const char* tier : {"", "_native"}) {
            const Family &sine = *find_family(t.name("asinh") + tier), &tangent = *find_family(t.name("atanh") + tier);
            EXPECT_EQ(result_of(sine, 0), 0u);
            EXPECT_EQ(result_of(sine, t.sign), t.sign);
            EXPECT_EQ(result_of(tangent, 0), 0u);
            EXPECT_EQ(result_of(tangent, t.sign), 0u);
            const std::uint64_t largest = t.lane == Lane::f32 ? 0x38000000 : 0x3e20000000000000;
            for (const Family* family : {&sine, &tangent})
                for (std::uint64_t x = t.sign | largest; x > t.sign; x -= (x - t.sign) / 64 + 1)
                    ASSERT_LE(error_of(*family, {&x, 1}, outputs_of(*family, {&x, 1})), 1.0)
                        << family->name() << std::hex << x;
        }
}

// For large arguments the square overflows, and the large lanes' logarithm takes over at 2^30. Results climb steadily
// over that place, and up to the largest number.
TEST(InverseHyperbolic, LargeArguments) {
    for (const Patterns& t : types) {
        const std::uint64_t switch_over = t.lane == Lane::f32 ? 0x4e800000 : 0x41d0000000000000;
        for (const char* operation : {"asinh", "acosh"})
            for (const char* tier : {"", "_native"}) {
                const Family& family = *find_family(t.name(operation) + tier);
                const std::uint64_t below = result_of(family, switch_over - 1), above = result_of(family, switch_over);
                const std::uint64_t native = t.lane == Lane::f32 ? 4096 : 1 << 22, allowed = *tier ? native : 2;  // ulp
                EXPECT_LE(below, above + allowed) << family.name();
                EXPECT_LE(above, below + allowed) << family.name();
                std::uint64_t last = 0;
                for (std::uint64_t x = switch_over; x <= t.largest; x += (t.largest - switch_over) / 1000) {
                    const std::uint64_t y = result_of(family, x);
                    ASSERT_LE(last, y) << family.name() << std::hex << x;
                    ASSERT_LE(y, t.infinity) << family.name() << std::hex << x;
                    last = y;
                }
                // log(2 largest).
                const double most = Real::from_pattern(t.lane, result_of(family, t.largest)).to_double();
                EXPECT_NEAR(most, t.lane == Lane::f32 ? 89.415986 : 710.4758600739439, 1e-4) << family.name();
            }
    }
}

}  // namespace
}  // namespace tuvo

// Quotients and remainders where a product in double precision comes closest to the wrong side of an integer, and for
// arguments on which a processor's own division would trap.
#include <immintrin.h>

#include <bit>
#include <utility>

#include <gtest/gtest.h>

#include "tests/call.hpp"
#include "tests/exact.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"

namespace tuvo {
namespace {

/// Runs pairs through the kernels of quotient and remainder, eight at a time, as C calls them.
class Divisions : public testing::TestWithParam<const char*> {
protected:
    void check(std::uint32_t x, std::uint32_t y) {
        x_[used_] = x, y_[used_] = y;
        if (++used_ == 8) flush();
    }
    void TearDown() override {
        flush();
        EXPECT_GT(pairs_, 300000u);
    }

    const bool is_signed_ = GetParam()[0] == 'i';

private:
    using Eight = std::array<std::uint32_t, 8>;
    using Kernel = __m256i (*)(__m256i, __m256i);

    void flush() {
        const std::size_t count = std::exchange(used_, 0);
        if (HasFatalFailure()) return;
        const __m256i x = std::bit_cast<__m256i>(x_), y = std::bit_cast<__m256i>(y_);
        const auto quotients = std::bit_cast<Eight>(quotient_(x, y)),
                   remainders = std::bit_cast<Eight>(remainder_(x, y));
        for (std::size_t k = 0; k < count; ++k) {
            const std::uint64_t arguments[] = {x_[k], y_[k]};
            ASSERT_EQ(quotients[k], exact_intdiv(*division_, arguments)->front()) << x_[k] << " by " << y_[k];
            ASSERT_EQ(remainders[k], exact_intdiv(*modulus_, arguments)->front()) << x_[k] << " by " << y_[k];
        }
        pairs_ += count;
    }

    const Family* division_ = find_family(GetParam());
    const Family* modulus_ = find_family(is_signed_ ? "irem" : "urem");
    Kernel quotient_ = reinterpret_cast<Kernel>(const_cast<void*>(find_kernel(*division_, 8)));
    Kernel remainder_ = reinterpret_cast<Kernel>(const_cast<void*>(find_kernel(*modulus_, 8)));
    Eight x_{}, y_{};
    std::size_t used_ = 0, pairs_ = 0;
};

/// The powers of two with their neighbours, of both signs.
std::vector<std::uint32_t> near_powers_of_two() {
    std::vector<std::uint32_t> values;
    for (int exponent = 0; exponent < 32; ++exponent)
        for (std::uint32_t distance = 0; distance < 9; ++distance) {
            values.push_back((std::uint32_t{1} << exponent) + distance - 4);
            values.push_back(-values.back());
        }
    return values;
}

TEST_P(Divisions, AreExactNearPowersOfTwo) {
    for (std::uint32_t x : near_powers_of_two())
        for (std::uint32_t y : near_powers_of_two()) check(x, y);
}

TEST_P(Divisions, AreExactByTheUnitsAndTheLargest) {
    RandomBits random(1);
    for (std::uint32_t y : {1u, 0xffffffffu, 0x80000000u, 0x7fffffffu, 0x80000001u, 0u})
        for (int k = 0; k < 300000; ++k) check(static_cast<std::uint32_t>(random() >> (32 + k % 32)), y);
}

// The quotient of a multiple is an integer, which no rounding may miss; one less is the fraction closest to the next.
TEST_P(Divisions, AreExactBesideMultiples) {
    RandomBits random(2);
    for (int k = 0; k < 4096; ++k) {
        const std::uint32_t y = std::max(1u, static_cast<std::uint32_t>(random()) >> k % 31);
        const std::uint32_t magnitude = is_signed_ ? std::min(y, -y) : y;
        const std::uint32_t most = (is_signed_ ? 0x80000000 : 0xffffffff) / magnitude;
        for (std::uint32_t i = 0; i < 256; ++i) {
            // All multiples where they are few; else the largest ones and random ones.
            const std::uint32_t factor =
                i < 128 ? most - std::min(most, i) : static_cast<std::uint32_t>(random() % (most + 1ull));
            for (std::uint32_t distance = 0; distance < 3; ++distance) check(factor * y + distance - 1, y);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Signed, Divisions, testing::Values("idiv", "udiv"),
                         [](const auto& info) { return std::string(info.param); });

TEST(IntegerDivision, YieldsTheStatedValuesAtEveryWidthInEveryRoundingMode) {
    constexpr std::uint64_t seven = 7, minus_seven = 0xfffffff9, two = 2, minus_two = 0xfffffffe, top = 0x80000000;
    struct Case {
        const char* family;
        std::uint64_t x, y;
        std::vector<std::uint64_t> outputs;
    };
    const Case cases[] = {
        {"idivrem", seven, two, {3, 1}},
        {"idivrem", minus_seven, two, {0xfffffffd, 0xffffffff}},
        {"idivrem", seven, minus_two, {0xfffffffd, 1}},
        {"idivrem", minus_seven, minus_two, {3, 0xffffffff}},
        {"idivrem", top, 0xffffffff, {top, 0}},
        {"idivrem", minus_seven, 0, {top, minus_seven}},
        {"udivrem", minus_seven, 0, {0, minus_seven}},
        {"udivrem", 0xffffffff, two, {0x7fffffff, 1}},
        {"udivrem", 0xffffffff, 1, {0xffffffff, 0}},
        {"udivrem", 0xfffffffe, 0x7fffffff, {2, 0}},
    };
    for (const Case& c : cases)
        for (int width : widths)
            for (unsigned rounding = 0; rounding < 4; ++rounding) {
                CallOptions options;
                options.mxcsr |= rounding << 13;
                const Family& family = *find_family(c.family);
                const std::vector<std::vector<std::uint64_t>> arguments{std::vector(width, c.x),
                                                                        std::vector(width, c.y)};
                const CallResult result = call(find_kernel(family, width), family, width, arguments, options);
                for (std::size_t v = 0; v < 2; ++v)
                    for (int lane = 0; lane < width; ++lane)
                        EXPECT_EQ(result.outputs[v][lane], c.outputs[v])
                            << c.family << width << ": " << c.x << " by " << c.y << ", rounding " << rounding;
            }
}

}  // namespace
}  // namespace tuvo

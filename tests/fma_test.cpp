// The fused multiply-add: its rare routines called directly, against MPFR, in every rounding mode of the x87 control
// word and of MXCSR; flags; and the kernels' way to them.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "frame/description/real.hpp"
#include "tests/call.hpp"
#include "tests/exact.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/rare_routines.hpp"

namespace tuvo {
namespace {

/// Values of the processor's rounding fields, and how MPFR calls them.
constexpr unsigned nearest = 0, down = 1, up = 2, toward_zero = 3;
constexpr std::array<mpfr_rnd_t, 4> directions{MPFR_RNDN, MPFR_RNDD, MPFR_RNDU, MPFR_RNDZ};
constexpr unsigned underflow = _MM_EXCEPT_UNDERFLOW, overflow = _MM_EXCEPT_OVERFLOW, invalid = _MM_EXCEPT_INVALID;

std::uint16_t x87_control(unsigned rounding) { return static_cast<std::uint16_t>(0x37f | rounding << 10); }

using Arguments = std::vector<std::uint64_t>;

struct Outcome {
    std::uint64_t pattern = 0;
    unsigned flags = 0;
};

/// The plain product and sum of the type.
template <class T, class Pattern>
void multiply_and_add(Pattern a, Pattern b, Pattern c) {
    const volatile T x = std::bit_cast<T>(a), y = std::bit_cast<T>(b), z = std::bit_cast<T>(c);
    const volatile T product = x * y, sum = product + z;
    static_cast<void>(sum);
}

/// One of the two formats, and what to try in it.
class Fma : public testing::TestWithParam<Lane> {
protected:
    const Lane lane = GetParam();
    const int fraction_bits = lane == Lane::f32 ? 23 : 52, bias = lane == Lane::f32 ? 127 : 1023;
    const std::uint64_t sign = std::uint64_t{1} << (8 * lane_size(lane) - 1);
    const std::uint64_t fraction = (std::uint64_t{1} << fraction_bits) - 1;
    const std::uint64_t smallest_normal = fraction + 1, one = std::uint64_t(bias) << fraction_bits;
    const std::uint64_t infinity = one * 2 + smallest_normal, largest = infinity - 1;
    const RareRoutine routine = find_rare_routine(*find_family(lane == Lane::f32 ? "fmaf" : "fma"));

    /// 2^exponent.
    std::uint64_t power(int exponent) const { return std::uint64_t(exponent + bias) << fraction_bits; }

    /// `whole`: with the plain operations ahead of the routine, and every flag.
    Outcome run(const Arguments& arguments, unsigned x87, unsigned mxcsr = nearest, bool whole = false) const {
        std::uint16_t saved_control;
        const std::uint16_t control = x87_control(x87);
        const unsigned saved = _mm_getcsr();
        asm volatile("fnstcw %0" : "=m"(saved_control));
        asm volatile("fldcw %0" : : "m"(control));
        _mm_setcsr(0x1f80 | mxcsr << 13);
        Outcome outcome;
        const auto low = [&](int k) { return static_cast<std::uint32_t>(arguments[k]); };
        if (whole && lane == Lane::f32) multiply_and_add<float>(low(0), low(1), low(2));
        if (whole && lane == Lane::f64) multiply_and_add<double>(arguments[0], arguments[1], arguments[2]);
        const int status = routine(&arguments[0], &arguments[1], &arguments[2], &outcome.pattern);
        outcome.flags = _mm_getcsr() & (whole ? 0x3f : underflow | overflow | invalid);
        _mm_setcsr(saved);
        asm volatile("fldcw %0" : : "m"(saved_control));
        EXPECT_EQ(status, 0);
        return outcome;
    }

    /// Where the processor's product and sum are right as they are, and follow MXCSR.
    bool is_easy(const Arguments& arguments) const {
        for (int k = 0; k < 3; ++k) {
            const std::uint64_t magnitude = arguments[k] & ~sign;
            if (magnitude == 0 || magnitude >= infinity || (k < 2 && magnitude == one)) return true;
        }
        return false;
    }

    void expect_result(const Arguments& arguments, unsigned x87, unsigned mxcsr) const {
        const auto is_nan = [&](std::uint64_t value) { return (value & ~sign) > infinity; };
        if (emulated() && std::ranges::count_if(arguments, is_nan) > 1) return;  // another of them survives there
        const unsigned direction = is_easy(arguments) ? mxcsr : x87;
        std::uint64_t expected = exact_fused_multiply_add(lane, arguments, directions[direction]);
        // An overflow is an operation of the processor.
        const bool stays_finite = mxcsr == toward_zero || mxcsr == (expected & sign ? up : down);
        if ((expected & ~sign) == infinity && stays_finite) --expected;
        ASSERT_EQ(run(arguments, x87, mxcsr).pattern, expected)
            << "x87 mode " << x87 << ", MXCSR mode " << mxcsr << ", arguments " << hex(arguments);
    }

    /// A number of about 2^exponent, or what is left of it at the ends of the range. Its significand is random, has few
    /// bits at the top, few at the bottom, or nearly all.
    std::uint64_t random_number(int exponent, RandomBits& random) const {
        std::uint64_t bits = random() & fraction;
        const std::uint64_t kind = random() % 5;
        if (kind == 0) bits &= ~(fraction >> (1 + random() % 12));
        if (kind == 1) bits &= 15;
        if (kind == 2) bits = fraction & ~(bits & (fraction >> (random() % fraction_bits)));
        if (exponent > bias) return largest - random() % 4;
        if (exponent > -bias) return power(exponent) | bits;
        return exponent < -bias - fraction_bits ? random() % 4 : (bits | smallest_normal) >> (1 - exponent - bias);
    }

    /// Arguments where roundings go wrong: the addend close to the product, or at any distance up to where it is lost,
    /// and the result anywhere, more often at the ends of the range.
    Arguments random_arguments(RandomBits& random) const {
        const auto within = [&](int low, int high) { return low + static_cast<int>(random() % (high - low + 1)); };
        const int digits = fraction_bits + 1, kind = within(0, 7);
        int product = within(1 - bias, bias);
        if (kind == 1) product = within(-bias - digits, -bias + digits);
        if (kind == 2) product = within(bias - 2, bias + 1);
        const int first = within(std::max(1 - bias, product - bias), std::min(bias, product + bias + digits));
        const int distance = random() % 2 ? within(-2, 2) : within(-3 * digits, 3 * digits);
        Arguments arguments{random_number(first, random), random_number(product - first, random),
                            random_number(product + distance, random)};
        if (kind >= 6) {  // cancellation, down to nothing
            const std::uint64_t rounded =
                exact_fused_multiply_add(lane, Arguments{arguments[0], arguments[1], 0}, MPFR_RNDZ);
            if ((rounded & ~sign) < infinity) arguments[2] = (rounded ^ sign) + within(0, 2) * within(0, 1);
        }
        for (std::uint64_t& argument : arguments) argument ^= random() & sign;
        return arguments;
    }
};

INSTANTIATE_TEST_SUITE_P(Formats, Fma, testing::Values(Lane::f32, Lane::f64),
                         [](const auto& info) { return info.param == Lane::f32 ? "float" : "double"; });

TEST_P(Fma, RoundsOnceInEveryMode) {
    RandomBits random(1);
    for (unsigned k = 0; k < 300000 && !HasFatalFailure(); ++k) {
        const Arguments arguments = random_arguments(random);
        for (unsigned mode = 0; mode < 4; ++mode) expect_result(arguments, mode, (k + mode) % 4);
    }
}

// All combinations of the values that are told apart, with NaNs of different payloads, signalling ones among them.
TEST_P(Fma, SpecialArguments) {
    Arguments values;
    for (std::uint64_t value : {std::uint64_t{0}, std::uint64_t{1}, smallest_normal, one, power(1), largest, infinity,
                                infinity + smallest_normal / 2 + 5, infinity + 9})
        values.insert(values.end(), {value, value | sign});
    for (std::uint64_t a : values)
        for (std::uint64_t b : values)
            for (std::uint64_t c : values)
                for (unsigned mode = 0; mode < 4; ++mode) expect_result({a, b, c}, mode, nearest);
}

// Underflow goes with results that are inexact and subnormal, or the smallest normal beside a tie; overflow and invalid
// come from the processor's own operations.
TEST_P(Fma, Flags) {
    const std::uint64_t half = power(-1), tiny = smallest_normal, above = one + 1;
    const std::uint64_t square = exact_fused_multiply_add(lane, Arguments{above, above, 0}, MPFR_RNDN);
    struct Case {
        Arguments arguments;
        std::array<unsigned, 4> flags;  ///< by x87 mode
    };
    const Case cases[] = {
        {{tiny, half, tiny - 2}, {0, 0, 0, 0}},  // exact
        {{above, above, sign | square}, {0, 0, 0, 0}},
        {{tiny | 1, half, 1}, {underflow, underflow, underflow, underflow}},
        // little and half a place below the smallest normal, half a place and nearly a whole above
        {{tiny | 2, one - 2, sign | 1}, {0, underflow, 0, underflow}},
        {{tiny | 1, half, tiny / 2 - 1}, {underflow, underflow, 0, underflow}},
        {{tiny | 1, half, tiny / 2}, {underflow, 0, 0, underflow}},
        {{tiny | 1, one - 1, tiny}, {0, 0, 0, 0}},
        {{largest, power(1), 1}, {overflow, overflow, overflow, overflow}},
        {{largest - 1, above, one}, {overflow, 0, overflow, 0}},  // by rounding up
        {{infinity, 0, one}, {invalid, invalid, invalid, invalid}},
        {{infinity, one, sign | infinity}, {invalid, invalid, invalid, invalid}},
        {{infinity, 0, infinity + smallest_normal / 2}, {0, 0, 0, 0}},
        {{infinity | 1, half, half}, {invalid, invalid, invalid, invalid}},
        {{largest, largest, infinity}, {0, 0, 0, 0}},
    };
    for (const Case& c : cases)
        for (unsigned mode = 0; mode < 4; ++mode)
            EXPECT_EQ(run(c.arguments, mode).flags, c.flags[mode])
                << "x87 mode " << mode << ", arguments " << hex(c.arguments);
}

/// In every mode of both control words the kernel gives the routine's values, and raises nothing that the plain
/// operations and the routine don't. TUVO_LANES is how many lanes, for longer runs.
TEST_P(Fma, KernelsGiveTheRoutinesValuesAndNoFurtherFlag) {
    constexpr int width = 8;
    const char* const wanted = std::getenv("TUVO_LANES");
    const long lanes = wanted ? std::atol(wanted) : 400'000;
    const Family& family = *find_family(lane == Lane::f32 ? "fmaf" : "fma");
    Caller caller(find_kernel(family, width), family, width);
    RandomBits random(static_cast<std::uint64_t>(lanes));
    std::vector<Arguments> arguments(3, Arguments(width));
    for (long k = 0; k < lanes && !HasFatalFailure(); k += width) {
        for (int i = 0; i < width; ++i) {
            const int kind = static_cast<int>(random() % 16), first = static_cast<int>(random() % 40) - 20;
            const auto far = [&] { return static_cast<int>(random() % (2 * bias + 80)) - bias - 60; };
            const auto few = [&](int bits) { return fraction & ~(fraction >> bits) & random(); };
            Arguments own{random_number(first, random), random_number(-first / 2, random),
                          random_number(first / 2, random)};
            if (kind == 0) own = {random() & ~sign, random() & ~sign, random() & ~sign};
            if (kind <= 1) own[random() % 3] = random_number(far(), random);
            if (kind == 2)
                own = {random_number(far() / 2, random), random_number(far() / 2, random),
                       random_number(far(), random)};
            if (kind == 3) own[random() % 3] = random() % 2 ? 0 : one;
            if (kind == 4) own[random() % 3] = infinity - 4 + random() % 8;
            if (kind >= 5 && kind <= 8)  // ties, and nearly so
                own = {one | few(fraction_bits / 2 + kind - 6), one | few(fraction_bits / 2 + 1),
                       power(static_cast<int>(random() % 60) - (lane == Lane::f32 ? 30 : 58)) |
                           few(static_cast<int>(random() % 8))};
            if (kind >= 9 && kind <= 11) {  // cancellation
                const double product =
                    Real::from_pattern(lane, own[0]).to_double() * Real::from_pattern(lane, own[1]).to_double();
                own[2] = (lane == Lane::f32 ? std::bit_cast<std::uint32_t>(static_cast<float>(product))
                                            : std::bit_cast<std::uint64_t>(product)) +
                         random() % 3;
                own[2] ^= sign;
            } else {
                for (std::uint64_t& argument : own) argument ^= random() & sign;
            }
            for (int j = 0; j < 3; ++j) arguments[j][i] = own[j] & (sign | (sign - 1));
        }
        // Mostly the mode in which there is a vector path.
        const unsigned modes = k % (4 * width) ? 0 : static_cast<unsigned>(random() % 16);
        CallOptions options;
        options.x87_control = x87_control(modes & 3);
        options.mxcsr = 0x1f80 | (modes >> 2) << 13;
        const CallResult& result = caller(arguments, options);
        unsigned flags = 0;
        for (int i = 0; i < width; ++i) {
            const Arguments own{arguments[0][i], arguments[1][i], arguments[2][i]};
            const Outcome outcome = run(own, modes & 3, modes >> 2, true);
            ASSERT_EQ(result.outputs[0][i], outcome.pattern) << "modes " << modes << ", arguments " << hex(own);
            flags |= outcome.flags;
        }
        ASSERT_EQ(result.exception_flags & ~flags, 0u)
            << "modes " << modes << ", flags " << flags << ", arguments " << hex(arguments[0]) << "; "
            << hex(arguments[1]) << "; " << hex(arguments[2]);
        ASSERT_TRUE(result.violations.empty()) << result.violations[0];
    }
}

// At every width and in both forms of a call, each lane is rounded by the x87 control word as it stands at the call.
TEST(FmaKernels, RoundByTheControlWordOfTheCall) {
    RandomBits random(2);
    for (const char* name : {"fmaf", "fmaf_rm", "fma"}) {
        const Family& family = *find_family(name);
        std::vector<Arguments> arguments(3, Arguments(16));
        for (Arguments& argument : arguments)  // from 2 to 4, of either sign
            for (std::uint64_t& x : argument)
                x = family.element == Lane::f32 ? 0x40000000 | (random() & 0x807fffff)
                                                : 0x4000000000000000 | (random() & 0x800fffffffffffff);
        for (int width : widths) {
            for (unsigned mode = 0; mode < 4; ++mode) {
                CallOptions options;
                options.x87_control = x87_control(mode);
                const CallResult result = call(find_kernel(family, width), family, width, arguments, options);
                for (int lane = 0; lane < width; ++lane) {
                    const Arguments own{arguments[0][lane], arguments[1][lane], arguments[2][lane]};
                    EXPECT_EQ(result.outputs[0][lane], exact_fused_multiply_add(family.element, own, directions[mode]))
                        << short_name(family, width) << ", lane " << lane << ", x87 mode " << mode;
                }
            }
        }
    }
}

}  // namespace
}  // namespace tuvo

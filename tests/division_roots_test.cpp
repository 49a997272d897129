// Division, roots and the hypotenuse: their tables, their rare routines called directly, and which lanes go there.
#include <cmath>
#include <functional>

#include <xmmintrin.h>

#include <gtest/gtest.h>

#include "divroot/root_tables.hpp"
#include "frame/real.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"

extern "C" {
int divf_rare(const float*, const float*, float*);
int div_rare(const double*, const double*, double*);
int invf_rare(const float*, float*);
int inv_rare(const double*, double*);
int sqrtf_rare(const float*, float*);
int rsqrtf_rare(const float*, float*);
int rsqrt_rare(const double*, double*);
int hypotf_rare(const float*, const float*, float*);
int hypot_rare(const double*, const double*, double*);

extern const std::uint64_t rsqrtf_table[65], rsqrt_table[65];
extern const std::uint64_t sqrtf_seed_table[512], hypotf_seed_table[512], hypot_seed_table[512];
}

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

// Tables.

TEST(RootTables, FollowTheirRules) {
    struct Table {
        RawTable data;
        int cells, fraction_bits;
        Patterns linked[3];
        std::vector<std::pair<int, double>> rows;
    };
    const auto linked = [](const auto& data) { return Patterns(std::begin(data), std::end(data)); };
    const Table tables[] = {
        {rsqrt_table(),
         32,
         12,
         {linked(::rsqrtf_table), linked(::rsqrt_table)},
         {{0, 1.0}, {1, 0.9847412109375}, {32, 0.7071533203125}, {33, 0.6962890625}, {64, 0.5}}},
        {sqrt_seed_table(),
         256,
         10,
         {linked(::sqrtf_seed_table), linked(::hypotf_seed_table), linked(::hypot_seed_table)},
         {{0, 1.0}, {1, 0.998046875}, {255, 0.7080078125}, {256, 0.70703125}, {511, 0.50048828125}}},
    };
    for (const Table& table : tables) {
        for (const Patterns& copy : table.linked) EXPECT_TRUE(copy.empty() || copy == table.data.patterns);
        for (const auto& [index, value] : table.rows)
            EXPECT_EQ(table.data.patterns[index], __builtin_bit_cast(std::uint64_t, value));
        for (int i = 0; i < static_cast<int>(table.data.patterns.size()); ++i) {
            const bool odd = table.cells == 32 ? i > 32 : i >= 256;
            const Real point = (1 + Real(i - odd * table.cells) / table.cells) * (odd ? 2 : 1);
            const Real entry = Real::from_pattern(Lane::f64, table.data.patterns[i]);
            EXPECT_LE(abs(entry * sqrt(point) - 1), power_of_two(-table.fraction_bits - 1) * Real(1.42)) << i;
            EXPECT_LE(entry.significant_bits(), table.fraction_bits + 1) << i;
            EXPECT_LE((entry * entry).significant_bits(), 53) << i;
        }
    }
}

// Rare routines.

struct Outcome {
    std::uint64_t pattern;
    int status;
    unsigned flags;
};

/// A rare routine with its arguments as patterns.
struct Routine {
    const char* operation;
    Lane lane;
    std::function<int(const Patterns&, std::uint64_t&)> call;

    Outcome operator()(const Patterns& arguments) const {
        const unsigned saved = _mm_getcsr();
        _mm_setcsr(0x1f80);
        Outcome outcome{};
        outcome.status = call(arguments, outcome.pattern);
        outcome.flags =
            _mm_getcsr() & (_MM_EXCEPT_INVALID | _MM_EXCEPT_DIV_ZERO | _MM_EXCEPT_OVERFLOW | _MM_EXCEPT_UNDERFLOW);
        _mm_setcsr(saved);
        return outcome;
    }
};

template <typename T, typename... Arguments>
Routine routine(const char* operation, int (*function)(Arguments...)) {
    return {operation, sizeof(T) == 4 ? Lane::f32 : Lane::f64, [=](const Patterns& patterns, std::uint64_t& out) {
                // A float lies in the low half of its pattern.
                const auto at = [&](std::size_t k) { return reinterpret_cast<const T*>(&patterns[k]); };
                if constexpr (sizeof...(Arguments) == 2)
                    return function(at(0), reinterpret_cast<T*>(&out));
                else
                    return function(at(0), at(1), reinterpret_cast<T*>(&out));
            }};
}

const Routine divisions[] = {routine<float>("div", divf_rare), routine<double>("div", div_rare),
                             routine<float>("inv", invf_rare), routine<double>("inv", inv_rare)};
const Routine roots[] = {routine<float>("sqrt", sqrtf_rare), routine<float>("rsqrt", rsqrtf_rare),
                         routine<double>("rsqrt", rsqrt_rare)};
const Routine hypotenuses[] = {routine<float>("hypot", hypotf_rare), routine<double>("hypot", hypot_rare)};

/// A float's value in the lane's type; NaNs keep their upper payload bits.
std::uint64_t value(Lane lane, float x) {
    return lane == Lane::f32 ? __builtin_bit_cast(std::uint32_t, x) : __builtin_bit_cast(std::uint64_t, double(x));
}

constexpr float infinity = HUGE_VALF;
const float quiet = __builtin_nanf("0x123000");

struct Special {
    std::vector<float> arguments;
    float result;
    int status;
    unsigned flags;
};

void check(const Routine& routine, std::initializer_list<Special> cases) {
    for (const Special& c : cases) {
        Patterns arguments;
        for (float x : c.arguments) arguments.push_back(value(routine.lane, x));
        const Outcome got = routine(arguments);
        const bool made_nan = std::isnan(c.result) && (c.flags & _MM_EXCEPT_INVALID);
        const std::uint64_t expected = value(routine.lane, made_nan ? -__builtin_nanf("") : c.result);
        EXPECT_EQ(got.pattern, expected) << routine.operation << " " << testing::PrintToString(c.arguments);
        EXPECT_EQ(got.status, c.status) << routine.operation << " " << testing::PrintToString(c.arguments);
        EXPECT_EQ(got.flags, c.flags) << routine.operation << " " << testing::PrintToString(c.arguments);
    }
}

constexpr int ordinary = 0, domain = 1, pole = 2;

TEST(DivisionRare, SpecialValues) {
    for (const Routine& routine : divisions) {
        if (routine.operation == std::string("inv"))
            check(routine, {{{0.0f}, infinity, pole, _MM_EXCEPT_DIV_ZERO},
                            {{-0.0f}, -infinity, pole, _MM_EXCEPT_DIV_ZERO},
                            {{-infinity}, -0.0f, ordinary, 0},
                            {{quiet}, quiet, ordinary, 0},
                            {{-0.5f}, -2.0f, ordinary, 0}});
        else
            check(routine, {{{-1.0f, 0.0f}, -infinity, pole, _MM_EXCEPT_DIV_ZERO},
                            {{0.0f, -0.0f}, quiet, pole, _MM_EXCEPT_INVALID},
                            {{quiet, 0.0f}, quiet, pole, 0},
                            {{infinity, infinity}, quiet, ordinary, _MM_EXCEPT_INVALID},
                            {{1.0f, quiet}, quiet, ordinary, 0},
                            {{6.0f, -3.0f}, -2.0f, ordinary, 0}});
    }
}

TEST(RootsRare, SpecialValues) {
    for (const Routine& routine : roots) {
        check(routine, {{{quiet}, quiet, ordinary, 0},
                        {{-1.0f}, quiet, domain, _MM_EXCEPT_INVALID},
                        {{-infinity}, quiet, domain, _MM_EXCEPT_INVALID},
                        {{-0x1p-149f}, quiet, domain, _MM_EXCEPT_INVALID}});
        if (routine.operation == std::string("sqrt"))
            check(routine, {{{0.0f}, 0.0f, ordinary, 0},
                            {{-0.0f}, -0.0f, ordinary, 0},
                            {{infinity}, infinity, ordinary, 0},
                            {{0x1p-148f}, 0x1p-74f, ordinary, 0}});
        else
            check(routine, {{{0.0f}, infinity, pole, _MM_EXCEPT_DIV_ZERO},
                            {{-0.0f}, -infinity, pole, _MM_EXCEPT_DIV_ZERO},
                            {{infinity}, 0.0f, ordinary, 0},
                            {{0x1p-148f}, 0x1p74f, ordinary, 0}});
    }
}

TEST(HypotenuseRare, SpecialValues) {
    const float other = __builtin_nanf("0x321000");
    for (const Routine& routine : hypotenuses) {
        check(routine, {{{-infinity, quiet}, infinity, ordinary, 0},
                        {{quiet, -infinity}, infinity, ordinary, 0},
                        {{infinity, 1.0f}, infinity, ordinary, 0},
                        {{1.0f, -infinity}, infinity, ordinary, 0},
                        {{quiet, 1.0f}, quiet, ordinary, 0},
                        {{0.0f, quiet}, quiet, ordinary, 0},
                        {{other, quiet}, other, ordinary, 0},
                        {{-0.0f, -0.0f}, 0.0f, ordinary, 0},
                        {{-3.0f, -4.0f}, 5.0f, ordinary, 0},
                        {{0x1p-149f, 0.0f}, 0x1p-149f, ordinary, 0}});
    }
    const Outcome too_large = hypotenuses[1]({0x7fefffffffffffff, 0x7fefffffffffffff});
    EXPECT_EQ(too_large.pattern, 0x7ff0000000000000);
    EXPECT_EQ(too_large.flags, unsigned{_MM_EXCEPT_OVERFLOW});
}

/// The largest error of a routine. NaNs, infinities and what the special cases say aside.
double largest_error(const Routine& routine, const std::vector<Patterns>& arguments) {
    double largest = 0;
    for (const Patterns& lane : arguments) {
        const std::optional<Real> exact = oracle(routine.operation, lane, routine.lane);
        if (!exact->is_finite()) continue;
        const Outcome got = routine(lane);
        EXPECT_EQ(got.status, ordinary) << routine.operation << " " << hex(lane);
        largest = std::max(largest, ulp_error(routine.lane, got.pattern, *exact));
    }
    return largest;
}

// Measured maxima over these arguments, rounded up. Division is correctly rounded.
TEST(DivisionRootsRare, Accuracy) {
    const auto measured = [](const Routine& routine) {
        const bool binary = routine.operation == std::string("hypot") || routine.operation == std::string("div");
        const Patterns drawn = stratified_patterns(routine.lane, 1, {}, routine.lane == Lane::f32 ? 64 : 8);
        RandomBits random(2);
        std::vector<Patterns> arguments;
        for (std::uint64_t x : drawn) {
            arguments.push_back({x});
            if (!binary) continue;
            // The second is any, or of nearly the same size: where the heads of both count, and where only one does.
            const int shift = routine.lane == Lane::f32 ? 23 : 52;
            const std::uint64_t near = x + ((random() % 64 - 32) << shift) + (random() & 0xfffff);
            arguments.back().push_back(random() % 2 ? near : drawn[random() % drawn.size()]);
        }
        return largest_error(routine, arguments);
    };
    for (const Routine& routine : divisions) EXPECT_LE(measured(routine), 0.5) << routine.operation;
    const double bounds_of_roots[] = {0.5, 0.5, 0.5001};
    for (int k = 0; k < 3; ++k) EXPECT_LE(measured(roots[k]), bounds_of_roots[k]) << roots[k].operation << k;
    const double bounds_of_hypotenuses[] = {0.5, 0.8829};
    for (int k = 0; k < 2; ++k) EXPECT_LE(measured(hypotenuses[k]), bounds_of_hypotenuses[k]) << k;
}

// The last entry serves significands close below 2 with an odd exponent; one index more would be outside the table.
TEST(RootsRare, LastEntryOfTheTable) {
    EXPECT_LE(largest_error(roots[2], {{0x400fffffffffffff}, {0x400fc00000000000}}), 0.51);
    EXPECT_LE(largest_error(roots[1], {{0x407fffff}}), 0.51);
}

// Kernels.

TEST(DivisionRoots, RareLanes) {
    struct Case {
        const char* family;
        std::vector<std::uint32_t> ordinary, rare;  ///< patterns of floats, or high words of doubles
    };
    const Case cases[] = {
        {"divf_native", {0x00800000, 0x7e7fffff, 0xfe7fffff}, {0, 0x007fffff, 0x807fffff, 0x7e800000, 0xff800000}},
        {"invf_half", {0x00800000, 0x7e7fe800, 0xfe7fe800}, {0x80000000, 0x007fffff, 0x7e7fe801, 0xfe7fe801}},
        {"div", {0x00100000, 0x3f800000, 0xfff00000}, {0, 0x80000000, 0x000fffff}},
        {"div_native", {0x000fffff, 0x3ff00000, 0x7ff00000}, {0, 0x80000000, 0x3f800000, 0xbf000000}},
        {"inv", {0x00100000, 0x7ff00000}, {0x80000000, 0x000fffff}},
        {"sqrtf_half", {0x00800000, 0x7f7fffff}, {0, 0x007fffff, 0x7f800000, 0x80800000, 0xffffffff}},
        {"rsqrtf", {0x00800000, 0x7f7fffff}, {0x80000000, 0x007fffff, 0x7f800000, 0xbf800000, 0x7fc00000}},
        {"rsqrt", {0x03500000, 0x7fcfffff}, {0, 0x034fffff, 0x7fd00000, 0x83500000, 0xbff00000, 0xfff00000}},
        {"rsqrt_native", {0x00300000, 0x034fffff, 0x7fcfffff}, {0, 0x002fffff, 0x7fd00000, 0xbff00000}},
        // both arguments alike, at the limits of their squares' sum
        {"hypotf", {0x2e9617e7, 0x4fca62be}, {0, 0x2e9617df, 0x4fca62c6, 0x7f800000, 0xff800001}},
        {"hypot", {0x3dd00000, 0x41f6a09e}, {0, 0x3dcfffff, 0x41f6a0a0, 0x7ff00000, 0xfff80000}},
    };
    for (const Case& c : cases) {
        const DescribedFamily& described = *find_described(c.family);
        const Program program = record_family(described);
        const Lane lane = described.family->element;
        const auto is_rare = [&](std::uint32_t pattern) {
            const std::uint64_t wide = lane == Lane::f32 ? pattern : std::uint64_t{pattern} << 32;
            return interpret(program, Patterns(described.family->arguments.size(), wide)).rare;
        };
        for (std::uint32_t pattern : c.ordinary)
            EXPECT_FALSE(is_rare(pattern)) << c.family << std::hex << " " << pattern;
        for (std::uint32_t pattern : c.rare) EXPECT_TRUE(is_rare(pattern)) << c.family << std::hex << " " << pattern;
    }
}

// What families without a rare path give outside their domain.
TEST(DivisionRoots, UnrepairedLanes) {
    const auto result = [](const char* name, std::vector<float> arguments) {
        const Family& family = *find_family(name);
        std::vector<Patterns> lanes;
        for (float x : arguments) lanes.push_back(Patterns(4, value(family.element, x)));
        const std::uint64_t pattern = call(find_kernel(family, 4), family, 4, lanes).outputs[0][3];
        return Real::from_pattern(family.element, pattern).to_float();
    };
    EXPECT_EQ(result("inv_native", {0.0f}), infinity);
    EXPECT_EQ(result("inv_native", {infinity}), -infinity);  // the exponent wraps
    EXPECT_EQ(result("inv_native", {-infinity}), infinity);
    EXPECT_TRUE(std::isnan(result("sqrtf_native", {0.0f})));
    EXPECT_TRUE(std::isnan(result("sqrtf_native", {infinity})));
    EXPECT_EQ(result("sqrtf_half", {0.0f}), 0.0f);
    EXPECT_EQ(result("hypotf_native", {0.0f, -0.0f}), 0.0f);
    EXPECT_TRUE(std::isnan(result("hypotf_native", {infinity, 1.0f})));
    EXPECT_EQ(result("hypotf", {-3.0f, -4.0f}), 5.0f);
    EXPECT_EQ(result("hypotf", {0x3p99f, -0x4p99f}), 0x5p99f);
    EXPECT_EQ(result("hypotf", {0x4p-140f, 0x3p-140f}), 0x5p-140f);
}

}  // namespace
}  // namespace tuvo

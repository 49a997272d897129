// The error functions: their tables, values at the edges, the rare routines of erfc, and results that are subnormal.
#include <bit>
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "special/error_function_tables.hpp"
#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"
#include "tests/rare_outcome.hpp"

namespace tuvo {
namespace {

using Patterns = std::vector<std::uint64_t>;

std::uint64_t single(double x) { return std::bit_cast<std::uint32_t>(static_cast<float>(x)); }
std::uint64_t twice(double x) { return std::bit_cast<std::uint64_t>(x); }

TEST(ErrorFunctionTables, EntriesAndTheirEnds) {
    const RawTable erff = erf_kernel_table(Lane::f32, {128, 503}), erfc = erfc_kernel_table(Lane::f64, {128, 3487}, 128);
    ASSERT_EQ(erff.patterns.size(), 2u * 504);
    EXPECT_EQ(erff.patterns[0], 0u);
    EXPECT_EQ(erff.patterns[1], single(1.1283791670955126));
    for (int k = 0; k < 504; ++k) {
        EXPECT_EQ(erff.patterns[2 * k], single(std::erf(k / 128.0))) << k;
        EXPECT_EQ(erff.patterns[2 * k + 1], single(M_2_SQRTPI * std::exp(-k / 128.0 * k / 128.0))) << k;
    }
    ASSERT_EQ(erfc.patterns.size(), 2u * 3488);
    EXPECT_EQ(erfc.patterns[0], twice(0x1p128));
    EXPECT_EQ(erfc.patterns[1], twice(0x1p128 * 1.1283791670955126));
    // Every entry but the last keeps all bits of a normal number.
    for (std::size_t k = 0; k < 2 * 3487; ++k) EXPECT_GT(erfc.patterns[k], twice(0x1p-1022)) << k;
    for (std::size_t k = 2 * 3487; k < 2 * 3488; ++k) EXPECT_EQ(erfc.patterns[k], 0u);
}

TEST(ErrorFunctions, ValuesAtTheEdges) {
    const double infinity = INFINITY, nan = NAN;
    struct Case {
        double x, expected;
    };
    const auto expect = [](const std::string& operation, const std::vector<Case>& cases) {
        for (const bool is_float : {true, false})
            for (const char* tier : {"", "_native"}) {
                const Family& family = *find_family(operation + (is_float ? "f" : "") + tier);
                for (const auto& [x, expected] : cases) {
                    const std::uint64_t argument = is_float ? single(x) : twice(x);
                    const std::uint64_t got = outputs_of(family, {&argument, 1})[0];
                    const double value =
                        is_float ? std::bit_cast<float>(static_cast<std::uint32_t>(got)) : std::bit_cast<double>(got);
                    if (std::isnan(expected))
                        EXPECT_TRUE(std::isnan(value)) << family.name() << ' ' << x;
                    else
                        EXPECT_TRUE(value == expected && (value != 0 || std::signbit(value) == std::signbit(expected)))
                            << family.name() << ' ' << x << " gave " << value;
                }
            }
    };
    expect("erf", {{0.0, 0.0}, {7.0, 1}, {-7.0, -1}, {1e30, 1}, {infinity, 1}, {-infinity, -1}, {nan, nan}, {-nan, nan}});
    expect("erfc", {{0.0, 1},
                    {-0.0, 1},
                    {1e-30, 1},
                    {-1e-30, 1},
                    {-7, 2},
                    {-30, 2},
                    {-1e30, 2},
                    {-infinity, 2},
                    {28, 0.0},
                    {1e30, 0.0},
                    {infinity, 0.0},
                    {nan, nan}});
    // erf keeps the sign of zero; only the short double form adds two zeros of different signs at its end.
    const std::uint64_t zero = 0x8000000000000000, zerof = 0x80000000;
    for (const char* family : {"erff", "erff_native"}) EXPECT_EQ(outputs_of(*find_family(family), {&zerof, 1})[0], zerof);
    EXPECT_EQ(outputs_of(*find_family("erf"), {&zero, 1})[0], zero);
    EXPECT_EQ(outputs_of(*find_family("erf_native"), {&zero, 1})[0], 0u);
    // So small that all but the slope at zero vanishes.
    const std::uint64_t tiny = single(0x1p-40);
    EXPECT_EQ(outputs_of(*find_family("erff"), {&tiny, 1})[0], single(0x1p-40 * 1.128379225730896));
}

TEST(ErrorFunctionsRare, EveryKindOfArgument) {
    struct Case {
        const char* family;
        std::uint64_t x;
        RareResult expected;
    };
    const unsigned underflow = _MM_EXCEPT_UNDERFLOW, invalid = _MM_EXCEPT_INVALID;
    const Case cases[] = {
        {"erfcf", 0x7fc12345, {0x7fc12345, 0, 0}},
        {"erfcf", 0xff812345, {0xffc12345, 0, invalid}},
        {"erfcf", 0x7f800000, {0, 0, 0}},
        {"erfcf", 0x4120ddfb, {1, 0, underflow}},  // 1.00001 times the tie
        {"erfcf", 0x4120ddfc, {0, 4, underflow}},
        {"erfcf", 0x7f7fffff, {0, 4, underflow}},
        {"erfc", 0x7ff8000000012345, {0x7ff8000000012345, 0, 0}},
        {"erfc", 0x7ff0000000012345, {0x7ff8000000012345, 0, invalid}},
        {"erfc", 0x7ff0000000000000, {0, 0, 0}},
        {"erfc", 0x403b39dc41e48bfd, {0, 4, underflow}},
        {"erfc", 0x7fefffffffffffff, {0, 4, underflow}},
    };
    for (const auto& [family, x, expected] : cases)
        EXPECT_EQ(call_rare(*find_family(family), {x}), expected) << family << std::hex << " 0x" << x;
}

// The last results before zero, which the table holds scaled.
TEST(ErrorFunctions, SubnormalResults) {
    for (const char* name : {"erfc", "erfcf"}) {
        const Family& family = *find_family(name);
        const bool is_float = name == std::string("erfcf");
        Patterns arguments;
        const double first = is_float ? 9.19 : 26.54, last = is_float ? 10.0541944503784 : 27.22601711110836;
        for (int k = 0; k < 400; ++k) {
            const double x = last - (last - first) * k * k / 160000;
            arguments.push_back(is_float ? single(x) : twice(x));
        }
        const CallResult got = call_all(find_kernel(family, 16), family, 16, {{arguments}});
        for (std::size_t k = 0; k < arguments.size(); ++k)
            EXPECT_LE(error_of(family, {&arguments[k], 1}, {&got.outputs[0][k], 1}), 1.0) << hex({arguments[k]});
    }
}

}  // namespace
}  // namespace tuvo

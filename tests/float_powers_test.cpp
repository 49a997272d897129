// The float powers: their tables, the rare routines called directly, and what the kernels do at the edges.
#include <gtest/gtest.h>

#include "frame/description/real.hpp"
#include "powers/reciprocal_logarithms.hpp"

namespace tuvo {
namespace {

TEST(FloatPowerTables, ReciprocalLogarithms) {
    const RawTable table = reciprocal_logarithms();
    ASSERT_EQ(table.patterns.size(), 513u);
    EXPECT_EQ(table.patterns[0], 0x8000000000000000u);
    EXPECT_EQ(table.patterns[512], 0u);
    // The logarithm of a power of two belongs to the exponent: entries on both sides of the turn are half of it.
    for (int i = 0; i <= 512; ++i) {
        const Real entry = Real::from_pattern(Lane::f64, table.patterns[i]), r = 512 + i;
        EXPECT_LE(abs(exp(-entry) * (i > 212 ? 1024 : 512) / r - 1), power_of_two(-54)) << i;
        EXPECT_LE(abs(entry), Real(0.3476)) << i;
    }
}

}  // namespace
}  // namespace tuvo

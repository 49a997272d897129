#include "explog/double_logarithm_tables.hpp"

#include "explog/logarithm_tables.hpp"

namespace tuvo {
namespace {

constexpr int least = 512, greatest = 1024;  // of the integers R

Real f64(std::uint64_t pattern) { return Real::from_pattern(Lane::f64, pattern); }

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(Lane::f64)); }

/// The multiple of 2^`exponent` next to x on the side of zero.
Real cut_to_grid(const Real& x, int exponent) {
    const Real nearest = x.rounded_to_grid(exponent);
    if (abs(nearest) <= abs(x)) return nearest;
    return x.is_negative() ? nearest + power_of_two(exponent) : nearest - power_of_two(exponent);
}

RawTable kernel_table(Real (*log)(const Real&)) {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int r = least; r <= greatest; ++r) append(table, log(Real(r > 724 ? greatest : least) / r));
    return table;
}

/// The short reciprocal of 1 + (i + 1/2) / 256.
Real short_reciprocal(int i) { return (Real(512) / (512 + 2 * i + 1)).rounded_to_grid(-11); }

}  // namespace

RawTable log_kernel_table() { return kernel_table(log); }

RawTable log2_kernel_table() { return kernel_table(log2); }

RawTable log10_kernel_table() { return kernel_table(log10); }

RawTable log1p_kernel_table() {
    // The kernel adds f times these to hi and lo, with f the raw exponent field; so 1023 times them is taken off here.
    const Real ln2_hi = f64(0x3fe62e42fefa0000), ln2_lo = f64(0x3d7cf79abc9e0000);
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int r = least; r <= greatest; ++r) {
        // A whole ln 2 is the entry for arguments just below 1, where f = 1022. It takes the split constants
        // themselves, so that both sums are exact zeros there and do not drown a small result. On the grid of the other
        // entries the sum of f ln2_hi and hi has at most 50 bits.
        const Real value = log(Real(greatest) / r);
        const Real hi = r == least ? ln2_hi : cut_to_grid(value, -40);
        const Real lo = r == least ? ln2_lo : value - hi;
        append(table, hi - 1023 * ln2_hi);
        append(table, lo - 1023 * ln2_lo);
    }
    return table;
}

// The grids keep E (log 2)_hi + hi exact for every exponent E, and its sum with the exact part of the residual, too.

RawTable log_rare_table() { return reciprocal_table(Lane::f64, 1, 1024, log, -37, -42); }

RawTable log10_rare_table() { return reciprocal_table(Lane::f64, f64(0x3fdbc00000000000), 128, log10, -42, -42); }

RawTable log2_rare_reciprocals() {
    RawTable table{.lane = Lane::f32, .fields = 1, .patterns = {}};
    for (int i = 0; i < 256; ++i) table.patterns.push_back(short_reciprocal(i).to_pattern(Lane::f32));
    return table;
}

RawTable log2_rare_logarithms() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int i = 0; i < 256; ++i) {
        const Real value = log2(1 / short_reciprocal(i));
        const Real hi = cut_to_grid(value, value.exponent() - 20);
        append(table, value - hi);
        append(table, hi);
    }
    return table;
}

namespace {

const RareTable log_table("log_table", log_rare_table);
const RareTable log1p_table("log1p_table", log_rare_table);
const RareTable log10_table("log10_table", log10_rare_table);
const RareTable log2_rcp("log2_rcp", log2_rare_reciprocals);
const RareTable log2_log("log2_log", log2_rare_logarithms);

}  // namespace

}  // namespace tuvo

#include "explog/float_logarithm_tables.hpp"

#include "explog/logarithm_tables.hpp"

namespace tuvo {
namespace {

Real f32(std::uint32_t pattern) { return Real::from_pattern(Lane::f32, pattern); }

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(Lane::f32)); }

/// Logarithm of 2 in two floats, such that hi times any exponent field is exact.
struct SplitLog2 {
    Real hi;
    Real lo;
};

/// Appends (hi, lo) of a kernel table for `value`, in [0, log 2]. The kernel adds f times the two parts of log 2 to hi
/// and lo, with f the raw exponent field; so 127 times the parts is taken off here. The sum with hi must be exact, and
/// is: the share of `value` in hi is on a grid of 2^`grid`, coarser than that of log_2.hi.
///
/// A value of a whole log 2 is the entry for arguments just below 1, where f = 126. It takes the split constants
/// themselves, so that both sums are exact zeros there and do not drown a small result.
void append_kernel_entry(RawTable& table, const Real& value, const SplitLog2& log_2, bool is_log_2, int grid) {
    const Real hi = is_log_2 ? log_2.hi : value.rounded_to_grid(grid);
    const Real lo = is_log_2 ? log_2.lo : value - hi;
    append(table, hi - 127 * log_2.hi);
    append(table, lo - 127 * log_2.lo);
}

RawTable rare_table(const Real& scale, int steps, Real (*log)(const Real&), int grid) {
    return reciprocal_table(Lane::f32, scale, steps, log, grid, grid);
}

}  // namespace

RawTable log10f_kernel_table() {
    const SplitLog2 log_2{f32(0x3e9a2100), f32(0xb64af600)};  // 0.30103302, -3.0243304e-06
    RawTable table{.lane = Lane::f32, .fields = 2, .patterns = {}};
    for (int r = 111; r <= 222; ++r) {
        append_kernel_entry(table, log10(Real(222) / r), log_2, r == 111, -16);
        if (r < 128) table.patterns.insert(table.patterns.end(), {0, 0});
    }
    return table;
}

RawTable log1pf_kernel_table() {
    const SplitLog2 log_2{f32(0x3f317200), f32(0x35bfbe00)};  // 0.69314575, 1.4285906e-06
    RawTable table{.lane = Lane::f32, .fields = 2, .patterns = {}};
    for (int r = 128; r <= 256; ++r) append_kernel_entry(table, log(Real(256) / r), log_2, r == 128, -14);
    return table;
}

// The grids keep E (log 2)_hi + hi exact for every exponent E: a grid of 2^-17 below 128 for ln, 2^-16 below 256 for
// log2, 2^-18 below 64 for log10. With K = 1 the reduced argument is on the grid of 2^-17 too, so that its sum with the
// former is exact as well.

RawTable logf_rare_table() { return rare_table(1, 128, log, -17); }

RawTable log2f_rare_table() { return rare_table(f32(0x43b8aa40), 1024, log2, -16); }

RawTable log10f_rare_table() { return rare_table(f32(0x42de5c00), 128, log10, -18); }

namespace {

const RareTable logf_table("logf_table", logf_rare_table);
const RareTable log1pf_table("log1pf_table", logf_rare_table);
const RareTable log2f_table("log2f_table", log2f_rare_table);
const RareTable log10f_table("log10f_table", log10f_rare_table);

}  // namespace

}  // namespace tuvo

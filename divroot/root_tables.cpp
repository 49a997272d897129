#include "divroot/root_tables.hpp"

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

void append_reciprocal_root(RawTable& table, const Real& x, int fraction_bits) {
    const Real root = 1 / sqrt(x);
    table.patterns.push_back(root.rounded_to_grid(root.exponent() - fraction_bits).to_pattern(Lane::f64));
}

}  // namespace

RawTable rsqrt_table() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int i = 0; i <= 32; ++i) append_reciprocal_root(table, 1 + Real(i) / 32, 12);
    for (int i = 1; i <= 32; ++i) append_reciprocal_root(table, 2 * (1 + Real(i) / 32), 12);
    return table;
}

RawTable sqrt_seed_table() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int parity : {1, 2})
        for (int i = 0; i < 256; ++i) append_reciprocal_root(table, parity * (1 + Real(i) / 256), 10);
    return table;
}

namespace {

const RareTable rsqrt_copy("rsqrt_table", rsqrt_table);
const RareTable rsqrtf_copy("rsqrtf_table", rsqrt_table);
const RareTable sqrtf_copy("sqrtf_seed_table", sqrt_seed_table);
const RareTable hypot_copy("hypot_seed_table", sqrt_seed_table);
const RareTable hypotf_copy("hypotf_seed_table", sqrt_seed_table);

}  // namespace

}  // namespace tuvo

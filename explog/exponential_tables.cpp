#include "explog/exponential_tables.hpp"

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t fraction_mask = 0x007fffff;

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(table.lane)); }

}  // namespace

RawTable exp10f_kernel_table() {
    RawTable table{.lane = Lane::f32, .fields = 2, .patterns = {}};
    for (int j = 0; j < 128; ++j) {
        const Real power = exp2(Real(j) / 128);
        append(table, power);
        append(table, power - power.to_float());
    }
    return table;
}

RawTable expm1f_kernel_table() {
    constexpr std::uint64_t low_bits = 0x7ff;
    RawTable table{.lane = Lane::f32, .fields = 2, .patterns = {}};
    for (int j = 0; j < 64; ++j) {
        const Real power = exp2(Real(j) / 64);
        const std::uint64_t head = power.to_pattern(Lane::f32) & ~low_bits;
        table.patterns.push_back(head & fraction_mask);
        append(table, power - Real::from_pattern(Lane::f32, head));
    }
    return table;
}

RawTable expm1f_native_kernel_table() {
    RawTable table{.lane = Lane::f32, .fields = 1, .patterns = {}};
    for (int j = 0; j < 32; ++j) table.patterns.push_back(exp2(Real(j) / 32).to_pattern(Lane::f32) & fraction_mask);
    return table;
}

RawTable exp_rare_table() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int j = 0; j < 64; ++j) {
        const Real power = exp2(Real(j) / 64);
        const Real rounded = power.to_double();
        append(table, rounded);
        append(table, (power - rounded) / rounded);
    }
    return table;
}

namespace {

const RareTable exp_table("exp_table", exp_rare_table);

}  // namespace

}  // namespace tuvo

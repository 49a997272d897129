#include "explog/double_exponential_tables.hpp"

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

constexpr std::uint64_t fraction_mask = 0x000fffffffffffff;
constexpr std::uint64_t head_mask = 0xfffffffffc000000;  // the upper 26 bits of the fraction

/// 2^(j / entries).
Real power(int j, int entries) { return exp2(Real(j) / entries); }

std::uint64_t pattern(const Real& value) { return value.to_pattern(Lane::f64); }
Real f64(std::uint64_t pattern) { return Real::from_pattern(Lane::f64, pattern); }

}  // namespace

RawTable powers_table(int entries) {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int j = 0; j < entries; ++j) table.patterns.push_back(pattern(power(j, entries)));
    return table;
}

RawTable expm1_kernel_table() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int j = 0; j < 128; ++j) {
        const std::uint64_t head = pattern(power(j, 128)) & head_mask;
        table.patterns.push_back(head & fraction_mask);
        table.patterns.push_back(pattern(power(j, 128) - f64(head)));
    }
    return table;
}

RawTable expm1_native_kernel_table() {
    RawTable table = powers_table(128);
    for (std::uint64_t& entry : table.patterns) entry &= fraction_mask;
    return table;
}

}  // namespace tuvo

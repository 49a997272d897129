#include "powers/double_power_tables.hpp"

#include "frame/description/real.hpp"
#include "powers/float_power_tables.hpp"

namespace tuvo {
namespace {

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(Lane::f64)); }

/// The multiple of 2^`exponent` next to x on the side of zero.
Real cut_to_grid(const Real& x, int exponent) {
    const Real nearest = x.rounded_to_grid(exponent);
    if (abs(nearest) <= abs(x)) return nearest;
    return x.is_negative() ? nearest + power_of_two(exponent) : nearest - power_of_two(exponent);
}

/// x with `zero_bits` zeros at the end of a double's significand.
Real cut(const Real& x, int zero_bits) { return x.is_zero() ? x : cut_to_grid(x, x.exponent() - 52 + zero_bits); }

}  // namespace

RawTable double_logarithm_triples() {
    const Real c = Real::from_pattern(Lane::f64, 0x3ff7154740000000);
    RawTable table{.lane = Lane::f64, .fields = 3, .patterns = {}};
    for (int i = 0; i <= 1024; ++i) {
        const Real R = cut(c / (1 + Real(i) / 1024), 30);
        const Real log = log2(c / R) - (i >= 512 ? 1 : 0), hi = cut(log, 32);
        append(table, hi);
        append(table, log - hi);
        append(table, R);
    }
    return table;
}

RawTable double_powers_of_two() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int j = 0; j < 128; ++j) append(table, exp2(Real(j) / 128));
    return table;
}

RawTable double_power_of_two_pairs() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int j = 0; j < 128; ++j) {
        const Real exact = exp2(Real(j) / 128);
        append(table, exact);
        append(table, exact - exact.to_double());
    }
    return table;
}

RawTable centred_powers_from_one() {
    RawTable table = centred_powers();
    table.patterns[0] = Real(1).to_pattern(Lane::f64);
    return table;
}

namespace {

const RareTable powers_of_two("pow_exp2_pairs", double_power_of_two_pairs);

}  // namespace

}  // namespace tuvo

#include "inverse/arc_tables.hpp"

#include "frame/description/real.hpp"

namespace tuvo {

RawTable atan_quarter_table() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int i = 0; i < 32; ++i) table.patterns.push_back(atan(Real(i) / 4).to_pattern(Lane::f64));
    return table;
}

RawTable atan_big_table() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int i = 0; i < 114; ++i) {
        const Real value = atan(power_of_two(i / 2 - 3) * (i % 2 ? 1.75 : 1.25));
        const Real hi = value.rounded_to_grid(value.exponent() - 25);
        table.patterns.push_back(hi.to_pattern(Lane::f64));
        table.patterns.push_back((value - hi).to_pattern(Lane::f64));
    }
    return table;
}

namespace {

const RareTable big_table("atan2_big_table", atan_big_table);

}  // namespace

}  // namespace tuvo

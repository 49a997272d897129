#include "powers/float_power_tables.hpp"

#include "frame/description/real.hpp"

namespace tuvo {

RawTable centred_powers() {
    const Real bias = Real::from_pattern(Lane::f64, centring_bias);
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int j = 0; j < 2048; ++j) table.patterns.push_back((bias * exp2(Real(j) / 2048)).to_pattern(Lane::f64));
    return table;
}

RawTable float_logarithm_triples() {
    RawTable table{.lane = Lane::f32, .fields = 4, .patterns = {}};
    for (int i = 0; i <= 64; ++i) {
        const Real rcp = (Real(256) / (1 + Real(i) / 64)).rounded_to_grid(0) / 256;
        const Real log = -tuvo::log(rcp), nearest = log.rounded_to_grid(-14);
        const Real hi = nearest <= log ? nearest : nearest - power_of_two(-14);
        for (const Real& field : {hi, log - hi, rcp, Real(0)}) table.patterns.push_back(field.to_pattern(Lane::f32));
    }
    return table;
}

RawTable float_powers_of_two() {
    RawTable table{.lane = Lane::f32, .fields = 2, .patterns = {}};
    for (int j = 0; j < 128; ++j) {
        const Real exact = exp2(Real(j) / 128), hi = exact.rounded_to_grid(-22);
        for (const Real& field : {hi, exact - hi}) table.patterns.push_back(field.to_pattern(Lane::f32));
    }
    return table;
}

namespace {

const RareTable powers_of_two("powf_exp2_pairs", float_powers_of_two);

}  // namespace

}  // namespace tuvo

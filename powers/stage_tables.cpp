#include "powers/stage_tables.hpp"

namespace tuvo {
namespace {

/// The multiple of 2^`exponent` next to x on the side of zero.
Real cut_to_grid(const Real& x, int exponent) {
    const Real nearest = x.rounded_to_grid(exponent);
    if (abs(nearest) <= abs(x)) return nearest;
    return x.is_negative() ? nearest + power_of_two(exponent) : nearest - power_of_two(exponent);
}

Real reciprocal(const PowerStage& stage, int i) {
    return (stage.scale / stage_point(stage, i)).rounded_to_grid(stage.grid);
}

}  // namespace

PowerStage float_power_stage(int number) {
    switch (number) {
    case 1: return {Lane::f32, 8, 8, power_of_two(-3), -7, 1, 4};
    case 2: return {Lane::f32, 8, 2, power_of_two(-5), -6, 1, 9};
    default: return {Lane::f32, 16, 4, power_of_two(-8), -9, 1.44140625, 17};
    }
}

PowerStage double_power_stage(int number) {
    switch (number) {
    case 1: return {Lane::f64, 32, 32, power_of_two(-5), -15, 1, 16};
    case 2: return {Lane::f64, 32, 12, power_of_two(-9), -10, 1, 33};
    default:
        return {Lane::f64, 128, 40, power_of_two(-15), -22, Real::from_pattern(Lane::f64, 0x3ff7154740000000), 129};
    }
}

Real stage_point(const PowerStage& stage, int i) {
    return i <= stage.turn ? 1 + i * stage.step : 1 - (stage.last - i) * stage.step / 2;
}

RawTable stage_reciprocals(const PowerStage& stage) {
    RawTable table{.lane = stage.lane, .fields = 1, .patterns = {}};
    for (int i = 0; i <= stage.last; ++i) table.patterns.push_back(reciprocal(stage, i).to_pattern(stage.lane));
    return table;
}

RawTable stage_logarithms(const PowerStage& stage) {
    RawTable table{.lane = stage.lane, .fields = 2, .patterns = {}};
    for (int i = 0; i <= stage.last; ++i) {
        const Real log = log2(stage.scale / reciprocal(stage, i)) - (i >= stage.less_one_from ? 1 : 0);
        const int grid = stage.lane == Lane::f32 || log.is_zero() ? -17 : log.exponent() - 20;
        const Real hi = cut_to_grid(log, grid);
        table.patterns.push_back(hi.to_pattern(stage.lane));
        table.patterns.push_back((log - hi).to_pattern(stage.lane));
    }
    return table;
}

namespace {

template <PowerStage (*stage)(int), int number>
RawTable reciprocals() {
    return stage_reciprocals(stage(number));
}
template <PowerStage (*stage)(int), int number>
RawTable logarithms() {
    return stage_logarithms(stage(number));
}

const RareTable float_reciprocals_1("powf_stage1_rcp", reciprocals<float_power_stage, 1>);
const RareTable float_logarithms_1("powf_stage1_log", logarithms<float_power_stage, 1>);
const RareTable float_reciprocals_2("powf_stage2_rcp", reciprocals<float_power_stage, 2>);
const RareTable float_logarithms_2("powf_stage2_log", logarithms<float_power_stage, 2>);
const RareTable float_reciprocals_3("powf_stage3_rcp", reciprocals<float_power_stage, 3>);
const RareTable float_logarithms_3("powf_stage3_log", logarithms<float_power_stage, 3>);
const RareTable double_reciprocals_1("pow_stage1_rcp", reciprocals<double_power_stage, 1>);
const RareTable double_logarithms_1("pow_stage1_log", logarithms<double_power_stage, 1>);
const RareTable double_reciprocals_2("pow_stage2_rcp", reciprocals<double_power_stage, 2>);
const RareTable double_logarithms_2("pow_stage2_log", logarithms<double_power_stage, 2>);
const RareTable double_reciprocals_3("pow_stage3_rcp", reciprocals<double_power_stage, 3>);
const RareTable double_logarithms_3("pow_stage3_log", logarithms<double_power_stage, 3>);

}  // namespace

}  // namespace tuvo

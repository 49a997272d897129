#include "circular/double_turn_tables.hpp"

#include "circular/table_rules.hpp"

namespace tuvo {
namespace {

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(Lane::f64)); }
Real nearest_double(const Real& value) { return value.to_double(); }

struct Fit {
    std::uint64_t value_tail, slope_tail, r2, r3, r4, r5, r6, r7;
    double error;
};
constexpr Fit fits[] = {
#include "fits/tan_pole_table64.inc"
};
static_assert(std::size(fits) == 256);

}  // namespace

RawTable inv_two_pi_words64() {
    RawTable table{.lane = Lane::u64, .fields = 3, .patterns = {}};
    for (int e = 0; e < 2048; ++e) append_words(table, span_of_inverse_two_pi(e - 883, 192), 3, 64);
    return table;
}

RawTable sin_cos_turn_table64(int rotation) {
    RawTable table{.lane = Lane::f64, .fields = 4, .patterns = {}};
    for (int i = 0; i < 512; ++i) {
        const Real sine = sine_of_turn(i + rotation, 512), cosine = sine_of_turn(i + rotation + 128, 512);
        const Real cosine_head = nearest_power(cosine), sine_head = nearest_double(sine);
        append(table, cosine - cosine_head);
        append(table, cosine_head);
        append(table, sine_head);
        append(table, with_bits(sine - sine_head, 24, MPFR_RNDZ));
    }
    return table;
}

RawTable circle_points_table() {
    RawTable table{.lane = Lane::f64, .fields = 4, .patterns = {}};
    for (int i = 0; i < 64; ++i) {
        const Real sine = sine_of_turn(i, 64), cosine = sine_of_turn(i + 16, 64);
        const Real cosine_head = nearest_power(cosine), sine_head = nearest_double(sine);
        append(table, cosine - cosine_head);
        append(table, sine_head);
        append(table, with_bits(sine - sine_head, 24, MPFR_RNDN));
        append(table, cosine_head);
    }
    return table;
}

RawTable four_over_pi_slices_table() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int k = 0; k <= 50; ++k) {
        // Bits 2^(1 - 25 k) to 2^(25 - 25 k) of 4/pi, which is 8 / (2 pi).
        const bool used = k >= 1 && k <= 49;
        append(table, used ? span_of_inverse_two_pi(25 * k + 2, 25) * power_of_two(201 - 25 * k) : Real());
    }
    return table;
}

RawTable tan_pole_table64() {
    RawTable table{.lane = Lane::f64, .fields = 13, .patterns = {}};
    for (int i = 0; i < 256; ++i) {
        const auto& [u, near_pole, value, slope] = regular_tangent(i, 256);
        const Fit& fit = fits[i];
        for (const Real& field : {nearest_double(u), u - nearest_double(u), Real(near_pole), nearest_double(value)})
            append(table, field);
        table.patterns.push_back(fit.value_tail);
        append(table, nearest_power(slope));
        for (std::uint64_t fitted : {fit.slope_tail, fit.r2, fit.r3, fit.r4, fit.r5, fit.r6, fit.r7})
            table.patterns.push_back(fitted);
    }
    return table;
}

double tan_pole_fit_error64(int entry) { return fits[entry].error; }

namespace {

const RareTable rare_tables[] = {
    {"circle_points", circle_points_table},
    {"four_over_pi_slices", four_over_pi_slices_table},
};

}  // namespace

}  // namespace tuvo

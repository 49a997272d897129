#include "circular/float_turn_tables.hpp"

#include <cmath>

#include "circular/table_rules.hpp"

namespace tuvo {
namespace {

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(Lane::f32)); }
Real nearest_float(const Real& value) { return value.to_float(); }

/// The power of two nearest to |x| on the logarithmic scale, with the sign of x; of two, the larger.
Real logarithmic_power(const Real& x) {
    if (x.is_zero()) return x;
    // The logarithm's rounding to double makes the halves between two powers exact.
    const Real power = power_of_two(static_cast<int>(std::floor(log2(abs(x)).to_double() + 0.5)));
    return x.is_negative() ? -power : power;
}

struct Fit {
    std::uint32_t value_tail, slope_tail, r2, r3, r4;
    double error;
};
constexpr Fit fits[] = {
#include "fits/tan_pole_table.inc"
};
static_assert(std::size(fits) == 128);

}  // namespace

RawTable inv_two_pi_words() {
    RawTable table{.lane = Lane::u32, .fields = 3, .patterns = {}};
    for (int e = 0; e < 256; ++e) append_words(table, span_of_inverse_two_pi(e - 54, 96), 3, 32);
    return table;
}

RawTable sin_cos_turn_table(int rotation) {
    RawTable table{.lane = Lane::f32, .fields = 4, .patterns = {}};
    for (int i = 0; i < 256; ++i) {
        const Real sine = sine_of_turn(i + rotation, 256), cosine = sine_of_turn(i + rotation + 64, 256);
        const Real sine_head = nearest_float(sine), cosine_head = logarithmic_power(cosine);
        for (const Real& field : {cosine - cosine_head, sine_head, sine - sine_head, cosine_head}) append(table, field);
    }
    return table;
}

RawTable tan_pole_table() {
    RawTable table{.lane = Lane::f32, .fields = 10, .patterns = {}};
    for (int i = 0; i < 128; ++i) {
        const auto& [u, near_pole, value, slope] = regular_tangent(i, 128);
        const Fit& fit = fits[i];
        for (const Real& field : {nearest_float(u), u - nearest_float(u), Real(near_pole), nearest_float(value)})
            append(table, field);
        table.patterns.push_back(fit.value_tail);
        append(table, nearest_power(slope));
        for (std::uint32_t fitted : {fit.slope_tail, fit.r2, fit.r3, fit.r4}) table.patterns.push_back(fitted);
    }
    return table;
}

double tan_pole_fit_error(int entry) { return fits[entry].error; }

}  // namespace tuvo

#include "circular/double_turn_tables.hpp"

#include "circular/table_rules.hpp"

namespace tuvo {
namespace {

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(Lane::f64)); }
Real nearest_double(const Real& value) { return value.to_double(); }

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

}  // namespace tuvo

#include "special/error_function_tables.hpp"

#include <map>
#include <utility>

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

/// 2 / sqrt(pi) exp(-g^2).
Real slope(const Real& g) {
    Real pi;
    mpfr_const_pi(pi.mpfr(), MPFR_RNDN);
    return 2 / sqrt(pi) * exp(-(g * g));
}

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(table.lane)); }

}  // namespace

RawTable erf_kernel_table(Lane lane, Grid grid) {
    RawTable table{.lane = lane, .fields = 2, .patterns = {}};
    for (int k = 0; k <= grid.last; ++k) {
        const Real g = Real(k) / grid.per_unit;
        append(table, erf(g));
        append(table, slope(g));
    }
    return table;
}

RawTable erfc_kernel_table(Lane lane, Grid grid, int scale) {
    // The largest takes a second, and descriptions are recorded many times.
    static std::map<std::pair<Lane, int>, RawTable> made;
    RawTable& table = made[{lane, grid.last}];
    if (!table.patterns.empty()) return table;
    table = {.lane = lane, .fields = 2, .patterns = {}};
    for (int k = 0; k < grid.last; ++k) {
        const Real g = Real(k) / grid.per_unit;
        append(table, erfc(g) * power_of_two(scale));
        append(table, slope(g) * power_of_two(scale));
    }
    table.patterns.insert(table.patterns.end(), {0, 0});
    return table;
}

}  // namespace tuvo

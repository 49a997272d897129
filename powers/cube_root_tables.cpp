#include "powers/cube_root_tables.hpp"

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

Real cube_root(const Real& x) {
    Real result;
    mpfr_cbrt(result.mpfr(), x.mpfr(), MPFR_RNDN);
    return result;
}

Real root(CubeRoot which, const Real& x) { return which == CubeRoot::direct ? cube_root(x) : 1 / cube_root(x); }

/// The middle of interval i.
Real middle(int i) { return 1 + Real(2 * i + 1) / 64; }

Real cut_to_grid(const Real& x, int exponent) {
    const Real nearest = x.rounded_to_grid(exponent);
    return nearest <= x ? nearest : nearest - power_of_two(exponent);
}

void append(RawTable& table, const Real& value) { table.patterns.push_back(value.to_pattern(table.lane)); }

Real rounded(const RawTable& table, const Real& x) { return Real::from_pattern(table.lane, x.to_pattern(table.lane)); }

/// `unused` entries of zeros, then those of all remainders and intervals.
RawTable kernel_table(Lane lane, CubeRoot which, bool pairs, std::size_t unused) {
    RawTable table{.lane = lane, .fields = pairs ? 4 : 2, .patterns = {}};
    table.patterns.resize(unused * static_cast<std::size_t>(table.fields));
    for (int rem = 0; rem < 3; ++rem)
        for (int i = 0; i < 32; ++i) {
            const Real exact = root(which, middle(i) * power_of_two(rem));
            append(table, exact);
            if (pairs) append(table, exact - rounded(table, exact));
            append(table, -1 / middle(i));
            if (pairs) append(table, Real(0));
        }
    return table;
}

}  // namespace

RawTable float_cube_root_pairs(CubeRoot which) { return kernel_table(Lane::f32, which, true, 32); }
RawTable float_cube_root_values(CubeRoot which) { return kernel_table(Lane::f32, which, false, 32); }
RawTable double_cube_root_pairs(CubeRoot which) { return kernel_table(Lane::f64, which, true, 0); }
RawTable double_cube_root_values(CubeRoot which) { return kernel_table(Lane::f64, which, false, 0); }

RawTable reciprocal_cube_root_seeds() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int j = 0; j <= 96; ++j)
        append(table, (1 / cube_root((1 + Real(j % 32) / 32) * power_of_two(j / 32))).rounded_to_grid(-12));
    return table;
}

RawTable cube_root_seeds() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int i = 0; i < 32; ++i) append(table, cut_to_grid(1 / cube_root(1 + Real(i) / 32), -8));
    return table;
}

RawTable cube_root_remainders() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int rem = 0; rem < 3; ++rem) {
        const Real exact = cube_root(power_of_two(rem)), hi = cut_to_grid(exact, -25);
        append(table, hi);
        append(table, exact - hi);
    }
    return table;
}

namespace {

const RareTable cbrtf_table("cbrtf_table", [] { return float_cube_root_pairs(CubeRoot::direct); });
const RareTable rcbrt_seeds("rcbrt_seed_table", reciprocal_cube_root_seeds);
const RareTable rcbrtf_seeds("rcbrtf_seed_table", reciprocal_cube_root_seeds);
const RareTable cbrt_seeds("cbrt_seed_table", cube_root_seeds);
const RareTable cbrt_remainders("cbrt_rem_pairs", cube_root_remainders);

}  // namespace

}  // namespace tuvo

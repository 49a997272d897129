#include "special/gamma_tables.hpp"

#include <bit>
#include <cstring>

#include "special/gamma_fits.hpp"

namespace tuvo {
namespace {

RawTable doubles(int fields) { return {.lane = Lane::f64, .fields = fields, .patterns = {}}; }
/// Entries of 80-bit numbers; a field has half of one.
RawTable extended(int numbers) { return {.lane = Lane::u64, .fields = 2 * numbers, .patterns = {}}; }

void append(RawTable& table, const Real& value) {
    if (table.lane == Lane::f64) {
        table.patterns.push_back(value.to_pattern(Lane::f64));
        return;
    }
    const long double rounded = mpfr_get_ld(value.mpfr(), MPFR_RNDN);
    std::uint64_t words[2] = {};
    std::memcpy(words, &rounded, 10);
    table.patterns.insert(table.patterns.end(), {words[0], words[1]});
}
Real real(long double value) {
    Real result;
    mpfr_set_ld(result.mpfr(), value, MPFR_RNDN);
    return result;
}
void append_fit(RawTable& table, std::string_view name) {
    for (long double c : gamma_fit(name).coefficients) append(table, real(c));
}
RawTable table_of_fit(std::string_view name) {
    RawTable table = extended(1);
    append_fit(table, name);
    return table;
}

/// (x - zero) q(x), for a zero of 1 or 2. All coefficients are multiples of 2^-46, so that their sum at the zero, with
/// its powers of two, is exactly zero: results beside it would lose their last bits otherwise.
void append_with_zero(RawTable& table, std::string_view name, int zero) {
    const std::vector<long double>& q = gamma_fit(name).coefficients;
    std::vector<Real> p(q.size() + 1);
    for (std::size_t k = 0; k < q.size(); ++k) {
        p[k] = p[k] - zero * real(q[k]);
        p[k + 1] = p[k + 1] + real(q[k]);
    }
    Real sum, power = 1;
    for (std::size_t k = 0; k < p.size(); ++k, power = power * zero) {
        p[k] = p[k].rounded_to_grid(-46);
        if (k > 0) sum = sum + p[k] * power;
    }
    p[0] = -sum;
    for (const Real& c : p) append(table, c);
}

Real digamma(const Real& x) {
    Real result;
    mpfr_digamma(result.mpfr(), x.mpfr(), MPFR_RNDN);
    return result;
}

}  // namespace

RawTable lgammaf_binades() {
    RawTable table = doubles(11);
    for (int n = 0; n <= 10; ++n) append_fit(table, "lgammaf binade " + std::to_string(n));
    return table;
}

RawTable lgammaf_two_to_four() {
    RawTable table = doubles(1);
    append_fit(table, "lgammaf 2 to 4");
    return table;
}

RawTable lgammaf_quarters() {
    RawTable table = doubles(9);
    append_with_zero(table, "lgammaf 1 to 1.25", 1);
    append_fit(table, "lgammaf 1.25 to 1.5");
    append_fit(table, "lgammaf 1.5 to 1.75");
    append_with_zero(table, "lgammaf 1.75 to 2", 2);
    return table;
}

RawTable lgammaf_zeros() {
    const double rows[][3] = {
        {-2.4570297382208004, -2.4570247382208006, -2.4570197382208008},
        {-2.7476876467274125, -2.7476826467274127, -2.747677646727413},
        {-3.1435858883499797, -3.14358088834998, -3.14357588834998},
        {-3.955314284858597, -3.955294284858598, -3.955256462097168},
    };
    RawTable table = doubles(7);
    for (const auto& row : rows) {
        for (double bound : row) append(table, bound);
        const Real zero = row[1], h = power_of_two(-80);
        const Real before = digamma(zero - h), middle = digamma(zero), after = digamma(zero + h);
        append(table, lgamma(zero));
        append(table, middle);
        append(table, (after - before) / (2 * h) / 2);
        append(table, (after - 2 * middle + before) / (h * h) / 6);
    }
    return table;
}

RawTable gamma_log_table() {
    RawTable table = extended(2);
    for (int i = 0; i < 128; ++i) {
        const Real c = (256 / Real(257 + 2 * i)).rounded_to_grid(-10);
        append(table, c);
        append(table, -log(c));
    }
    return table;
}

RawTable lgamma_binades() {
    RawTable table = extended(24);
    for (int n = 0; n <= 6; ++n) append_fit(table, "lgamma binade " + std::to_string(n));
    return table;
}

RawTable lgamma_from_9_4() { return table_of_fit("lgamma 2.25 to 4"); }

RawTable lgamma_about_2() { return table_of_fit("lgamma 1.75 to 2.25"); }

RawTable lgamma_about_least() { return table_of_fit("lgamma 1.25 to 1.75"); }

RawTable lgamma_about_1() { return table_of_fit("lgamma 0.875 to 1.25"); }

RawTable lgamma_reflection() { return table_of_fit("lgamma reflection"); }

RawTable lgamma_zeros() {
    RawTable table = extended(20);
    for (std::size_t k = 0; k < negative_gamma_zeros().size(); ++k) {
        const auto& [zero, reach] = negative_gamma_zeros()[k];
        const Real head = zero.to_double();
        for (const Real& value : {zero - reach, head, zero - head, zero + reach}) append(table, value);
        append_fit(table, "lgamma zero " + std::to_string(k));
    }
    return table;
}

RawTable tgammaf_segments() {
    RawTable table = doubles(13);
    for (const char* name : {"tgammaf 2 kept", "tgammaf 8", "tgammaf 16", "tgammaf 24", "tgammaf 32"})
        append_fit(table, name);
    append_fit(table, "tgammaf 40");
    table.patterns.back() = Real(1).to_pattern(Lane::f64);  // the routine takes the leading factor off apart
    return table;
}

RawTable tgammaf_small() {
    RawTable table = doubles(8);
    for (const char* name : {"tgammaf 1 to 1.25", "tgammaf 1.25 to 1.5", "tgammaf 1.5 to 1.75", "tgammaf 1.75 to 2"})
        append_fit(table, name);
    return table;
}

RawTable tgamma_segments() {
    RawTable table = extended(24);
    for (int base : {2, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176})
        append_fit(table, "tgamma " + std::to_string(base));
    return table;
}

RawTable tgamma_small() {
    RawTable table = extended(16);
    for (int k = 0; k < 4; ++k) append_fit(table, "tgamma small " + std::to_string(k));
    return table;
}

RawTable tgamma_sine() { return table_of_fit("tgamma sine"); }

namespace {

const RareTable registered[] = {
    {"lgammaf_binades", lgammaf_binades},
    {"lgammaf_two_to_four", lgammaf_two_to_four},
    {"lgammaf_quarters", lgammaf_quarters},
    {"lgammaf_zeros", lgammaf_zeros},
    {"gamma_log_table", gamma_log_table},
    {"lgamma_binades", lgamma_binades},
    {"lgamma_from_9_4", lgamma_from_9_4},
    {"lgamma_about_2", lgamma_about_2},
    {"lgamma_about_least", lgamma_about_least},
    {"lgamma_about_1", lgamma_about_1},
    {"lgamma_reflection", lgamma_reflection},
    {"lgamma_zeros", lgamma_zeros},
    {"tgammaf_segments", tgammaf_segments},
    {"tgammaf_small", tgammaf_small},
    {"tgamma_segments", tgamma_segments},
    {"tgamma_small", tgamma_small},
    {"tgamma_sine", tgamma_sine},
};

}  // namespace

}  // namespace tuvo

#include "special/gamma_tables.hpp"

#include <cstring>
#include <numeric>

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

RawTable gamma_log_factors() {
    RawTable table = doubles(1);
    for (int i = 0; i < 128; ++i) {
        // 64 cells below 1, and 64 twice as wide above it. Those on both sides of 1 have a factor of 1.
        const Real middle = i < 64 ? 1 - Real(2 * (63 - i) + 1) / 512 : 1 + Real(2 * (i - 64) + 1) / 256;
        append(table, i == 63 || i == 64 ? Real(1) : (1 / middle).rounded_to_grid(-10));
    }
    return table;
}

namespace {

RawTable log_values(RawTable table) {
    for (std::uint64_t factor : gamma_log_factors().patterns) {
        const Real value = log(Real::from_pattern(Lane::f64, factor));
        append(table, value.is_zero() ? value : -value);
    }
    return table;
}

}  // namespace

RawTable gamma_log_values() { return log_values(extended(1)); }

RawTable lgammaf_log_values() { return log_values(doubles(1)); }

const std::vector<MixedTable>& mixed_gamma_tables() {
    static const std::vector<MixedTable> tables = [] {
        const auto numbered = [](const std::string& name, const std::vector<int>& numbers) {
            std::vector<std::string> names;
            for (int n : numbers) names.push_back(name + " " + std::to_string(n));
            return names;
        };
        std::vector<int> zeros(26);
        std::iota(zeros.begin(), zeros.end(), 0);
        return std::vector<MixedTable>{
            {"lgamma_binades", numbered("lgamma binade", {0, 1, 2, 3, 4, 5, 6})},
            {"lgamma_from_9_4", {"lgamma 2.25 to 4"}},
            {"lgamma_about_2", {"lgamma 1.75 to 2.25"}},
            {"lgamma_about_least", {"lgamma 1.25 to 1.75"}},
            {"lgamma_about_1", {"lgamma 0.875 to 1.25"}},
            {"lgamma_reflection", {"lgamma reflection"}},
            {"lgamma_zeros", numbered("lgamma zero", zeros)},
            {"tgamma_segments", numbered("tgamma", {2, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176})},
            {"tgamma_small", numbered("tgamma small", {0, 1, 2, 3})},
            {"tgamma_sine", {"tgamma sine"}},
        };
    }();
    return tables;
}

RawTable MixedTable::wide() const {
    RawTable table = extended(FitTarget::wide_coefficients);
    for (const std::string& fit : fits)
        for (int k = 0; k < FitTarget::wide_coefficients; ++k) append(table, real(gamma_fit(fit).coefficients.at(k)));
    return table;
}

RawTable MixedTable::others() const {
    const std::size_t first = FitTarget::wide_coefficients;
    RawTable table = doubles(static_cast<int>(gamma_fit(fits[0]).coefficients.size() - first));
    for (const std::string& fit : fits)
        for (std::size_t k = first; k < gamma_fit(fit).coefficients.size(); ++k)
            append(table, real(gamma_fit(fit).coefficients[k]));
    return table;
}

RawTable lgamma_surroundings() {
    RawTable table = doubles(3);
    for (const auto& [zero, reach] : negative_gamma_zeros())
        for (const Real& value : {zero - reach, zero, zero + reach}) append(table, value);
    return table;
}

RawTable lgamma_zero_rests() {
    RawTable table = extended(1);
    for (const auto& [zero, reach] : negative_gamma_zeros()) append(table, zero - zero.to_double());
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

namespace {

const RareTable registered[] = {
    {"lgammaf_binades", lgammaf_binades},
    {"lgammaf_two_to_four", lgammaf_two_to_four},
    {"lgammaf_quarters", lgammaf_quarters},
    {"lgammaf_zeros", lgammaf_zeros},
    {"lgammaf_log_values", lgammaf_log_values},
    {"gamma_log_factors", gamma_log_factors},
    {"gamma_log_values", gamma_log_values},
    {"lgamma_surroundings", lgamma_surroundings},
    {"lgamma_zero_rests", lgamma_zero_rests},
    {"tgammaf_segments", tgammaf_segments},
    {"tgammaf_small", tgammaf_small},
};

const bool mixed_registered = [] {
    for (const MixedTable& table : mixed_gamma_tables()) {
        rare_tables().emplace(table.symbol + "_wide", table.wide());
        rare_tables().emplace(table.symbol, table.others());
    }
    return true;
}();

}  // namespace

}  // namespace tuvo

#include "special/gamma_tables.hpp"

#include <algorithm>
#include <cmath>
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

Real digamma(const Real& x) {
    Real result;
    mpfr_digamma(result.mpfr(), x.mpfr(), MPFR_RNDN);
    return result;
}

/// The zero of log |gamma| between a and b, where it has different signs: in doubles first, then by its slope.
Real zero_between(double a, double b) {
    const bool negative_at_a = std::lgamma(a) < 0;
    for (int k = 0; k < 60; ++k) {
        const double middle = (a + b) / 2;
        ((std::lgamma(middle) < 0) == negative_at_a ? a : b) = middle;
    }
    Real zero = a;
    for (int k = 0; k < 7; ++k) zero = zero - lgamma(zero) / digamma(zero);
    return zero;
}

/// The sum of 1 / (a + n)^k over all n from 0 on, by Euler's and Maclaurin's formula, for large a.
Real sum_of_powers(const Real& a, int k) {
    static const std::vector<Real> factors = [] {
        std::vector<Real> found;
        Real pi, power = 1;
        mpfr_const_pi(pi.mpfr(), MPFR_RNDN);
        for (int j = 1; j <= 24; ++j) {
            Real zeta;
            mpfr_zeta_ui(zeta.mpfr(), static_cast<unsigned long>(2 * j), MPFR_RNDN);
            power = power / (4 * pi * pi);
            found.push_back((j % 2 ? 2 : -2) * zeta * power);
        }
        return found;
    }();
    Real power = 1;
    for (int i = 0; i < k; ++i) power = power / a;
    Real sum = power * a / (k - 1) + power / 2, term = power * k / a;
    for (std::size_t j = 0; j < factors.size(); ++j) {
        sum = sum + factors[j] * term;
        const int next = k + 2 * static_cast<int>(j) + 1;
        term = term * next * (next + 1) / (a * a);
    }
    return sum;
}

constexpr int cell_terms = 13;

/// Coefficients of log |gamma(c + t)| in rising powers of t. From the second on they are those of the slope, (-1)^k / k
/// times the sum of 1 / (c + n)^k over all n from 0 on.
std::vector<Real> log_gamma_series(const Real& c, int terms = cell_terms) {
    std::vector<Real> series(terms);
    Real a = c;
    for (; a < 48; a = a + 1) {
        const Real inverse = 1 / a;
        Real power = inverse;
        for (int k = 2; k < terms; ++k) series[k] = series[k] + (power = power * inverse);
    }
    for (int k = 2; k < terms; ++k) series[k] = (k % 2 ? -1 : 1) * (series[k] + sum_of_powers(a, k)) / k;
    series[0] = lgamma(c);
    series[1] = digamma(c);
    return series;
}

/// The exponential of a series.
std::vector<Real> exponential(const std::vector<Real>& series) {
    std::vector<Real> result{exp(series[0])};
    for (int k = 1; k < cell_terms; ++k) {
        Real sum;
        for (int j = 1; j <= k; ++j) sum = sum + j * series[j] * result[k - j];
        result.push_back(sum / k);
    }
    return result;
}

/// The value's first six bits.
Real head_of(const Real& value) { return value.is_zero() ? value : value.rounded_to_grid(value.exponent() - 5); }

/// A row of a cell: the middle, the first two coefficients with what they lack, and the others.
void append_cell(RawTable& table, const Real& middle, const std::vector<Real>& series) {
    const Real constant = series[0].to_double(), slope = head_of(series[1]);
    for (const Real& value : {middle, constant, series[0] - constant, slope, series[1] - slope}) append(table, value);
    for (int k = 2; k < cell_terms; ++k) append(table, series[k]);
}

}  // namespace

RawTable lgamma_cells() {
    RawTable table = doubles(cell_terms + 3);
    const auto add = [&](double low, double width) {
        // Beside a zero the series is that about the zero, and has none but its own terms.
        const double high = low + width;
        const double middle = low == 1 || low == 2 ? low : high == 1 || high == 2 ? high : low + width / 2;
        append_cell(table, middle, log_gamma_series(middle));
    };
    for (int i = 48; i < 64; ++i) add(0.5 + i / 128.0, 1 / 128.0);
    for (double binade : {1.0, 2.0})
        for (int i = 0; i < 64; ++i) add(binade * (1 + i / 64.0), binade / 64);
    for (double binade = 4; binade < 8192; binade *= 2)
        for (int i = 0; i < 16; ++i) add(binade * (1 + i / 16.0), binade / 16);
    return table;
}

RawTable tgamma_cells() {
    RawTable table = doubles(cell_terms + 3);
    for (int base = 1; base <= 176; base += base < 16 ? 1 : 16)
        for (int i = 0; i < 16; ++i) {
            const double middle = (2 * i + 1) / 32.0;
            std::vector<Real> series = log_gamma_series(base + middle);
            if (base == 176) series[0] = series[0] - 120 * log(2);
            append_cell(table, middle, exponential(series));
        }
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
        for (const Real& c : log_gamma_series(row[1], 4)) append(table, c);
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

namespace {

std::vector<Real> fitted(std::string_view name) {
    std::vector<Real> coefficients;
    for (long double c : gamma_fit(name).coefficients) coefficients.push_back(real(c));
    return coefficients;
}

/// The series about each zero, divided by the distance. It takes 22 terms at an eighth of the distance to the next
/// pole.
std::vector<std::vector<Real>> series_about_zeros() {
    std::vector<std::vector<Real>> rows;
    for (const auto& [zero, reach] : negative_gamma_zeros()) {
        std::vector<Real> series = log_gamma_series(zero, 23);
        series.erase(series.begin());
        rows.push_back(std::move(series));
    }
    return rows;
}

constexpr std::size_t wide_coefficients = 5;

}  // namespace

const std::vector<MixedTable>& mixed_gamma_tables() {
    using Rows = std::vector<std::vector<Real>>;
    static const std::vector<MixedTable> tables{
        {"lgamma_reflection", [] { return Rows{fitted("lgamma reflection")}; }},
        {"lgamma_zeros", series_about_zeros},
        {"tgamma_sine", [] { return Rows{fitted("tgamma sine")}; }},
    };
    return tables;
}

RawTable MixedTable::wide() const {
    RawTable table = extended(wide_coefficients);
    for (const std::vector<Real>& row : rows())
        for (std::size_t k = 0; k < wide_coefficients; ++k) append(table, row[k]);
    return table;
}

RawTable MixedTable::others() const {
    const std::vector<std::vector<Real>> all = rows();
    RawTable table = doubles(static_cast<int>(all[0].size() - wide_coefficients));
    for (const std::vector<Real>& row : all)
        for (std::size_t k = wide_coefficients; k < row.size(); ++k) append(table, row[k]);
    return table;
}

const std::vector<GammaZero>& negative_gamma_zeros() {
    static const std::vector<GammaZero> zeros = [] {
        std::vector<GammaZero> found;
        for (int n = -2; n >= -14; --n) {
            // log |gamma| falls from the pole at n to a minimum below zero and rises to the pole at n - 1. The zeros
            // come close to the poles, by 1 / |n|!.
            const double bottom = n - 0.6, above = std::nextafter(n, -100.0), below = std::nextafter(n - 1.0, 0.0);
            for (const auto& [a, b] : {std::pair{above, bottom}, {bottom, below}}) {
                Real zero = zero_between(a, b);
                const double to_integer = abs(zero - zero.rounded_to_grid(0)).to_double();
                found.push_back({std::move(zero), std::min(to_integer / 8, 0.02)});
            }
        }
        return found;
    }();
    return zeros;
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
    for (const char* name : {"tgammaf 2", "tgammaf 8", "tgammaf 16", "tgammaf 24", "tgammaf 32"})
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
    {"lgamma_cells", lgamma_cells},
    {"tgamma_cells", tgamma_cells},
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
        RareTable(table.symbol + "_wide", [&table] { return table.wide(); });
        RareTable(table.symbol, [&table] { return table.others(); });
    }
    return true;
}();

}  // namespace

}  // namespace tuvo

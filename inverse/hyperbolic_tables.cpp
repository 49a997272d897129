#include "inverse/hyperbolic_tables.hpp"

#include <bit>

#include "frame/description/real.hpp"

namespace tuvo {
namespace {

/// 2^(j / entries).
Real power(int j, int entries) { return exp2(Real(j) / entries); }

std::uint64_t pattern(const Real& value) { return value.to_pattern(Lane::f64); }

struct Cubic {
    std::uint64_t c[4];
    double error;
};
constexpr Cubic cubics[] = {
#include "fits/tanhf_cubics.inc"
};
static_assert(std::size(cubics) == 133);

struct Polynomial {
    std::uint64_t e[11];
    double error;
};
constexpr Polynomial polynomials[] = {
#include "fits/tanh_polynomials.inc"
};
static_assert(std::size(polynomials) == 59);

constexpr std::uint64_t one = 0x3ff0000000000000;

/// The middle of the interval of a row of the `tanh` table: between two doubles of four significant bits.
double middle(int row) {
    const auto edge = [](int k) { return std::bit_cast<double>(std::uint64_t(0x3fbe + 2 * k) << 48); };
    return row == 0 ? 0.0 : (edge(row) + edge(row + 1)) / 2;
}

/// 2^(j / 64), rounded, and what that lacks.
RawTable exponential_pairs() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int j = 0; j < 64; ++j) {
        const Real value = power(j, 64), hi = value.to_double();
        table.patterns.push_back(pattern(hi));
        table.patterns.push_back(pattern(value - hi));
    }
    return table;
}

const RareTable hyper_exp2_pairs("hyper_exp2_pairs", exponential_pairs);

}  // namespace

RawTable sinh_kernel_table() {
    RawTable table{.lane = Lane::f64, .fields = 2, .patterns = {}};
    for (int j = 0; j < 128; ++j) {
        table.patterns.push_back(pattern((power(j, 128) - power(-j, 128)) / 2));
        table.patterns.push_back(pattern(power(-j, 128) / 2));
    }
    return table;
}

RawTable cosh_kernel_table() {
    RawTable table{.lane = Lane::f64, .fields = 1, .patterns = {}};
    for (int j = 0; j <= 256; ++j) table.patterns.push_back(pattern(power(j, 256) / 2));
    return table;
}

RawTable tanhf_kernel_table() {
    RawTable table{.lane = Lane::f64, .fields = 4, .patterns = {}};
    for (const Cubic& cubic : cubics)
        table.patterns.insert(table.patterns.end(), std::begin(cubic.c), std::end(cubic.c));
    for (std::uint64_t c : {one, std::uint64_t{0}, std::uint64_t{0}, std::uint64_t{0}}) table.patterns.push_back(c);
    return table;
}

RawTable tanh_kernel_table() {
    RawTable table{.lane = Lane::f64, .fields = 16, .patterns = {}};
    const auto append = [&](const std::uint64_t(&e)[11], double m) {
        table.patterns.insert(table.patterns.end(), std::begin(e), std::end(e));
        for (double value : {0 - m, 1.0, 0.0, 0.0, 0.0}) table.patterns.push_back(std::bit_cast<std::uint64_t>(value));
    };
    for (std::size_t row = 0; row < std::size(polynomials); ++row) append(polynomials[row].e, middle(int(row)));
    append({one}, 0);
    return table;
}

double tanhf_fit_error(int row) { return cubics[row].error; }
double tanh_fit_error(int row) { return polynomials[row].error; }

}  // namespace tuvo

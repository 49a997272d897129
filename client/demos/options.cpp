// Prices of a list of options, in float and in double.
#include <cmath>
#include <cstdio>

#include "client/demos/compare.hpp"
#include "client/demos/csv.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"

namespace tuvo::client {
namespace {

/// Parameters of the kernels, in their order.
constexpr std::array names{"spot", "strike", "years", "rate", "volatility"};

struct Prices {
    double call, put;
};

Prices exact_prices(double s, double k, double t, double r, double v) {
    const auto normal_distribution = [](double x) { return std::erfc(-x / std::sqrt(2.0)) / 2; };
    const double deviation = v * std::sqrt(t);
    const double d1 = (std::log(s / k) + (r + v * v / 2) * t) / deviation, d2 = d1 - deviation;
    const double discounted = k * std::exp(-r * t);
    return {s * normal_distribution(d1) - discounted * normal_distribution(d2),
            discounted * normal_distribution(-d2) - s * normal_distribution(-d1)};
}

/// Prices the list in the arithmetic of T, `lanes` options at a time. Returns the calls and the puts.
///
/// With u = 2^-24 (2^-53) for float (double): both terms of a price are at most spot or strike, and are off by their
/// distribution's argument, which a deviation of 0.02 makes out of a logarithm that is off by u: 50 u * 0.4, and by 12
/// u of the rational function and the exponential. So 32 u of spot and strike are allowed.
template <typename T>
std::array<std::vector<T>, 2> price(const Contest& contest, const Table& options, int lanes, Comparison& comparison) {
    // The list over and over, to have something to time; its length then suits any vector.
    const std::size_t rows = options.rows(), count = 64 * rows;
    std::array<std::vector<T>, names.size()> in;
    for (std::size_t k = 0; k < names.size(); ++k)
        for (std::size_t i = 0; i < count; ++i) in[k].push_back(static_cast<T>(options.column(names[k])[i % rows]));
    std::array<std::vector<T>, 2> out;
    for (std::vector<T>& prices : out) prices.resize(count);
    const std::string type(traits(scalar_of<T>()).opencl);
    const auto work = [&](const Program& program) {
        launch(program, "prices_" + type, count / lanes, in[0], in[1], in[2], in[3], in[4], out[0], out[1]);
    };
    contest.report(type + std::to_string(lanes), "options", static_cast<double>(count), work);
    work(contest.library);
    for (std::size_t i = 0; i < count; ++i) {
        const Prices exact = exact_prices(in[0][i], in[1][i], in[2][i], in[3][i], in[4][i]);
        const double allowed = 32 * std::numeric_limits<T>::epsilon() / 2 * (in[0][i] + in[1][i]);
        comparison.add(out[0][i], exact.call, allowed);
        comparison.add(out[1][i], exact.put, allowed);
    }
    return out;
}

bool price_options(const DemoOptions& options) {
    const std::string path = options.file.empty() ? demo_data("options.csv").string() : options.file;
    Table table = read_csv(path);
    const Contest contest(demo_program("options"), options.settings);
    Comparison in_float, in_double;
    price<float>(contest, table, 8, in_float);
    const auto prices = price<double>(contest, table, 4, in_double);

    for (std::size_t k = 0; k < 2; ++k) {
        table.names.push_back(k == 0 ? "call" : "put");
        table.columns.emplace_back(prices[k].begin(), prices[k].begin() + static_cast<std::ptrdiff_t>(table.rows()));
    }
    const std::string priced = (options.folder / "options.csv").string();
    write_csv(table, priced);
    std::printf("%zu options of %s priced: %s\n", table.rows(), path.c_str(), priced.c_str());
    const bool floats_agree = in_float.report("prices in float");
    return in_double.report("prices in double") && floats_agree;
}

const RegisterDemo registered({"options", "prices of the options in FILE, a table in CSV (of some hundred made up)",
                               price_options});

}  // namespace
}  // namespace tuvo::client

// Densities, p-values and moments of distributions, as a chart.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <mpfr.h>

#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/failure.hpp"

namespace tuvo::client {
namespace {

constexpr double u = 0x1p-53;

/// A number of 128 bits.
class Exact {
public:
    Exact(double x) { mpfr_init2(value_, 128), mpfr_set_d(value_, x, MPFR_RNDN); }
    Exact(const Exact& other) : Exact(0.0) { mpfr_set(value_, other.value_, MPFR_RNDN); }
    Exact& operator=(const Exact&) = delete;
    ~Exact() { mpfr_clear(value_); }
    mpfr_ptr get() { return value_; }
    mpfr_srcptr get() const { return value_; }
    double number() const { return mpfr_get_d(value_, MPFR_RNDN); }

private:
    mpfr_t value_;
};
template <int f(mpfr_ptr, mpfr_srcptr, mpfr_rnd_t)>
Exact of(const Exact& x) {
    Exact result = 0.0;
    f(result.get(), x.get(), MPFR_RNDN);
    return result;
}
template <int f(mpfr_ptr, mpfr_srcptr, mpfr_srcptr, mpfr_rnd_t)>
Exact of(const Exact& x, const Exact& y) {
    Exact result = 0.0;
    f(result.get(), x.get(), y.get(), MPFR_RNDN);
    return result;
}

/// The parts of the logarithm of the Gamma distribution's density.
struct LogDensity {
    Exact power, x, log_gamma;

    LogDensity(double at, double shape)
        : power(of<mpfr_mul>(of<mpfr_log>(at), of<mpfr_sub>(shape, 1.0))), x(at), log_gamma(of<mpfr_lngamma>(shape)) {}
    Exact sum() const { return of<mpfr_sub>(of<mpfr_sub>(power, x), log_gamma); }
    /// Of the absolute values.
    double size() const { return std::abs(power.number()) + x.number() + std::abs(log_gamma.number()); }
};

struct Moments {
    double mean, deviation, square;  ///< square: the mean of squares
};
Moments weibull(double shape) {
    const Exact one = 1.0, inverse = of<mpfr_div>(one, shape);
    const Exact mean = of<mpfr_gamma>(of<mpfr_add>(one, inverse));
    const Exact square = of<mpfr_gamma>(of<mpfr_add>(one, of<mpfr_add>(inverse, inverse)));
    const Exact variance = of<mpfr_sub>(square, of<mpfr_mul>(mean, mean));
    return {mean.number(), of<mpfr_sqrt>(variance).number(), square.number()};
}

using Numbers = std::vector<double>;
constexpr std::size_t count = 1024;  ///< points of a curve

/// A curve of the chart, over x.
std::string curve(const char* name, const double* x, const double* y) {
    std::ostringstream out;
    out << "$" << name << " << E\n";
    for (std::size_t i = 0; i < count; ++i) out << x[i] << " " << y[i] << "\n";
    out << "E\n";
    return out.str();
}

void draw(const std::string& script, const std::string& file) {
    std::filesystem::remove(file);
    FILE* gnuplot = popen("gnuplot", "w");
    if (!gnuplot) throw Failure("can't run gnuplot; is it installed (gnuplot-nox)?");
    const bool written = std::fwrite(script.data(), 1, script.size(), gnuplot) == script.size();
    if (pclose(gnuplot) != 0 || !written || !std::filesystem::exists(file))
        throw Failure("gnuplot has not drawn '" + file + "'; is it installed (gnuplot-nox)?");
}

bool show_distributions(const DemoOptions& options) {
    const Contest contest(demo_program("distributions"), options.settings);
    const std::vector<double> shapes{0.5, 1, 2, 3.5, 6, 10};
    Numbers x, shape, z, weibull_shape;
    for (double k : shapes)
        for (std::size_t i = 0; i < count; ++i) {
            x.push_back(20 * (static_cast<double>(i) + 0.5) / count);
            shape.push_back(k);
        }
    for (std::size_t i = 0; i < count; ++i) {
        z.push_back(10 * static_cast<double>(i) / count);
        weibull_shape.push_back(0.5 + 7.5 * static_cast<double>(i) / count);
    }
    Numbers density(x.size()), p(count), mean(count), deviation(count);
    const auto densities = [&](const Program& program) {
        launch(program, "gamma_densities", x.size() / 4, x, shape, density);
    };
    const auto p_values = [&](const Program& program) { launch(program, "p_values", count / 4, z, p); };
    const auto moments = [&](const Program& program) {
        launch(program, "weibull", count / 4, weibull_shape, mean, deviation);
    };
    contest.report("densities", "points", static_cast<double>(x.size()), densities);
    contest.report("p-values", "points", static_cast<double>(count), p_values);
    contest.report("moments", "points", static_cast<double>(count), moments);
    densities(contest.library);
    p_values(contest.library);
    moments(contest.library);

    Comparison comparison;
    for (std::size_t i = 0; i < x.size(); ++i) {
        // Each part of the exponent is off by a few u of itself, logarithm and log-gamma by 3 and 1 ulp at most, and the
        // exponential by 7 u; an error of the exponent is a relative error of the density.
        const LogDensity exponent(x[i], shape[i]);
        const double exact = of<mpfr_exp>(exponent.sum()).number();
        comparison.add(density[i], exact, exact * u * (7 + 10 * exponent.size()));
    }
    for (std::size_t i = 0; i < count; ++i) {
        // erfc is within 4 u; its argument t within 2 u, which moves it by a relative 2 t (t + 1) times that at most.
        Exact root = of<mpfr_sqrt>(2.0);
        const Exact t = of<mpfr_div>(z[i], root);
        const double exact = of<mpfr_erfc>(t).number();
        comparison.add(p[i], exact, exact * u * (4 + 4 * t.number() * (t.number() + 1)));
        // Arguments of gamma, up to 5, are off by a relative 2 u, which is 2 * 5 * 1.51 times that in the result; gamma is
        // within 2 u. The variance takes the errors of both its parts.
        const Moments of_shape = weibull(weibull_shape[i]);
        const double relative = 20 * u;
        comparison.add(mean[i], of_shape.mean, relative * of_shape.mean);
        const double of_variance = 3 * relative * of_shape.square;
        comparison.add(deviation[i], of_shape.deviation,
                       of_variance / (2 * of_shape.deviation) + 2 * u * of_shape.deviation);
    }

    std::ostringstream script;
    std::filesystem::create_directories(options.folder);
    const std::string picture = (options.folder / "distributions.png").string();
    script << "set terminal pngcairo size 1200,420 font 'sans,10'\nset output '" << picture
           << "'\nset border 3\nset tics nomirror out\nset grid lc rgb '#e0e0e0'\n";
    for (std::size_t k = 0; k < shapes.size(); ++k)
        script << curve(("gamma" + std::to_string(k)).c_str(), &x[k * count], &density[k * count]);
    script << curve("p", z.data(), p.data()) << curve("mean", weibull_shape.data(), mean.data())
           << curve("deviation", weibull_shape.data(), deviation.data()) << "set multiplot layout 1,3\n"
           << "set title 'Gamma densities'\nset xlabel 'x'\nset yrange [0:0.8]\nplot ";
    for (std::size_t k = 0; k < shapes.size(); ++k)
        script << (k ? ", " : "") << "$gamma" << k << " with lines lw 1.5 title 'shape " << shapes[k] << "'";
    script << "\nset title 'two-sided p-value'\nset xlabel 'z'\nset yrange [1e-24:2]\nset logscale y\nset format y '10^{%T}'\n"
           << "plot $p with lines lw 1.5 notitle\nunset logscale\nset format y '%g'\nset title 'Weibull distribution'\n"
           << "set xlabel 'shape'\nset yrange [0:3]\nplot $mean with lines lw 1.5 title 'mean', $deviation with lines lw "
           << "1.5 title 'standard deviation'\nunset multiplot\n";
    draw(script.str(), picture);
    std::printf("picture: %s\n", picture.c_str());
    return comparison.report("values");
}

const RegisterDemo registered({"distributions", "Gamma densities, p-values and Weibull moments, as a chart",
                               show_distributions});

}  // namespace
}  // namespace tuvo::client

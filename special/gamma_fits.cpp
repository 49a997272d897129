#include "special/gamma_fits.hpp"

#include <stdexcept>

namespace tuvo {
namespace {

using Shape = FitTarget::Shape;
using Error = FitTarget::Error;

Real pi() {
    Real value;
    mpfr_const_pi(value.mpfr(), MPFR_RNDN);
    return value;
}

/// log(sin(pi z) / (pi z)) / z^2 for s = z^2.
Real reflection(const Real& s) {
    const Real z = sqrt(s < power_of_two(-100) ? power_of_two(-100) : s);
    return log(sin(pi() * z) / (pi() * z)) / (z * z);
}

/// sin(pi z) / (pi z) for s = z^2.
Real sine(const Real& s) {
    const Real z = pi() * sqrt(s < power_of_two(-100) ? power_of_two(-100) : s);
    return sin(z) / z;
}

std::vector<FitTarget> make_targets() {
    std::vector<FitTarget> targets{
        {"lgamma reflection", reflection, 0, 0.25, 16},
        {"tgamma sine", sine, 0, 0.25, 12},
    };
    const auto gamma_from = [](const Real& origin) { return [origin](const Real& t) { return tgamma(origin + t); }; };
    // In doubles. Results for the most used arguments stay as they first were: the first segment is kept as it is, and
    // so are the constant terms of two small intervals.
    for (int base : {2, 8, 16, 24, 32, 40})
        targets.push_back(
            {"tgammaf " + std::to_string(base), gamma_from(base), 0, 1, 13, Error::relative, Shape::factors});
    targets.back().fixed = {12, 1 / 5.546450927971236e-46};  // the factor is taken off apart
    const auto small = [&](const char* name, double origin, double low, double high) {
        targets.push_back({name, gamma_from(origin), low - Real(origin), high - Real(origin), 8, Error::absolute});
    };
    small("tgammaf 1 to 1.25", 1, 1, 1.25);
    small("tgammaf 1.25 to 1.5", 0x1.762d86356be3fp+0, 1.25, 1.5);  // 1.4616321449683623, where gamma is least
    small("tgammaf 1.5 to 1.75", 1, 1.5, 1.75);
    targets.back().fixed = {0, 0.9995580816756666};
    small("tgammaf 1.75 to 2", 1, 1.75, 2);
    targets.back().fixed = {0, 0.9978172263008711};
    return targets;
}

}  // namespace

const std::vector<FitTarget>& gamma_fit_targets() {
    static const std::vector<FitTarget> targets = make_targets();
    return targets;
}

const Fit& gamma_fit(std::string_view name) {
    // In here, so that tables that are made before main() find them.
    static const Fit fits[] = {
#include "fits/gamma.inc"
        {"tgammaf 2",
         6.9e-14,
         {3.2420992407919247, 1.9812807775929362, 0.4032232673696625, -1.5476177074139066, -4.04897695894592,
          -7.772561252897538, 3.761632802528312, 4.102120413909411, 5.140190503773538, 7.093846707663197,
          10.69351571390214, 19.251663476365962, 8.633072907665279e-06}},
    };
    for (const Fit& fit : fits)
        if (fit.name == name) return fit;
    throw std::out_of_range("no fit of gamma is called " + std::string(name));
}

Real fit_value(FitTarget::Shape shape, const std::vector<long double>& coefficients, const Real& t) {
    const auto real = [](long double c) {
        Real value;
        mpfr_set_ld(value.mpfr(), c, MPFR_RNDN);
        return value;
    };
    Real value;
    if (shape == Shape::polynomial) {
        for (std::size_t k = coefficients.size(); k-- > 0;) value = value * t + real(coefficients[k]);
        return value;
    }
    const std::size_t count = coefficients.size() / 2;
    value = real(coefficients.back());
    for (std::size_t k = 0; k < count; ++k)
        value = value * ((t + real(coefficients[k])) * t + real(coefficients[count + k]));
    return value;
}

}  // namespace tuvo

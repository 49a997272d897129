// What the fitted coefficients of log-gamma and gamma stand for, and the fits themselves.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/description/real.hpp"

namespace tuvo {

/// A function to be fitted over an interval of its variable t.
struct FitTarget {
    enum class Shape {
        polynomial,  ///< coefficients of rising powers of t
        factors,     ///< lead times the product of t^2 + a t + b: the a, falling, then the b, then lead
    };
    enum class Error { relative, absolute };
    std::string name;
    std::function<Real(const Real&)> value;
    Real low, high;
    int coefficients;
    Error error = Error::relative;
    Shape shape = Shape::polynomial;
    /// A coefficient that is given: its place, and its value.
    std::optional<std::pair<std::size_t, double>> fixed{};
};

struct Fit {
    std::string_view name;
    double error;  ///< largest over the interval, with the coefficients as they are rounded
    std::vector<long double> coefficients;
};

const std::vector<FitTarget>& gamma_fit_targets();

/// The committed fit of that name. Throws std::out_of_range for another.
const Fit& gamma_fit(std::string_view name);

/// The value of a fit's shape.
Real fit_value(FitTarget::Shape shape, const std::vector<long double>& coefficients, const Real& t);

}  // namespace tuvo

// Fits the polynomials of log-gamma and gamma: tuvo-fit-gamma > fits/gamma.inc
//
// takes half a minute. What is fitted stands in special/gamma_fits.cpp. Minimax fits by exchange over a fine grid, in 320
// bits with MPFR, which has both functions. Coefficients are rounded after the fit. Where the higher ones have fewer bits
// the lower ones make up for it: what rounding takes off the highest power is taken off in the shape of a Chebyshev
// polynomial of that degree, the least that a polynomial with that coefficient can be.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "special/gamma_fits.hpp"

namespace {

using namespace tuvo;
using Vector = std::vector<Real>;

Real pi() {
    Real value;
    mpfr_const_pi(value.mpfr(), MPFR_RNDN);
    return value;
}

/// The solution of a linear system, whose rows have the right side at their end.
Vector solve(std::vector<Vector> rows) {
    const std::size_t n = rows.size();
    for (std::size_t k = 0; k < n; ++k) {
        std::size_t pivot = k;
        for (std::size_t i = k; i < n; ++i)
            if (abs(rows[i][k]) > abs(rows[pivot][k])) pivot = i;
        std::swap(rows[k], rows[pivot]);
        for (std::size_t i = 0; i < n; ++i) {
            if (i == k) continue;
            const Real factor = rows[i][k] / rows[k][k];
            for (std::size_t j = k; j <= n; ++j) rows[i][j] = rows[i][j] - factor * rows[k][j];
        }
    }
    Vector solution;
    for (std::size_t k = 0; k < n; ++k) solution.push_back(rows[k][n] / rows[k][k]);
    return solution;
}

struct Samples {
    Vector s;       ///< the variable, moved and scaled to [-1, 1]
    Vector values;  ///< of the target
    Vector weights;
};

/// Coefficients in s of the polynomial of least weighted error.
Vector minimax(const Samples& samples, std::size_t count) {
    const std::size_t points = samples.s.size();
    const auto error_at = [&](const Vector& c, std::size_t i) {
        Real value;
        for (std::size_t k = count; k-- > 0;) value = value * samples.s[i] + c[k];
        return samples.weights[i] * (value - samples.values[i]);
    };
    std::vector<std::size_t> chosen;
    for (std::size_t k = 0; k <= count; ++k) chosen.push_back(k * (points - 1) / count);
    Vector best;
    for (int round = 0; round < 60; ++round) {
        std::vector<Vector> rows;
        for (std::size_t k = 0; k <= count; ++k) {
            const std::size_t i = chosen[k];
            Vector row;
            Real power = samples.weights[i];
            for (std::size_t j = 0; j < count; ++j, power = power * samples.s[i]) row.push_back(power);
            row.push_back(k % 2 ? Real(1) : Real(-1));
            row.push_back(samples.weights[i] * samples.values[i]);
            rows.push_back(std::move(row));
        }
        best = solve(std::move(rows));
        // The largest error of each run of one sign.
        std::vector<std::size_t> peaks;
        Vector errors;
        for (std::size_t i = 0; i < points; ++i) {
            errors.push_back(error_at(best, i));
            if (peaks.empty() || errors[peaks.back()].is_negative() != errors[i].is_negative())
                peaks.push_back(i);
            else if (abs(errors[i]) > abs(errors[peaks.back()]))
                peaks.back() = i;
        }
        while (peaks.size() > count + 1)
            abs(errors[peaks.front()]) < abs(errors[peaks.back()]) ? void(peaks.erase(peaks.begin())) : peaks.pop_back();
        if (peaks.size() <= count || peaks == chosen) break;
        chosen = peaks;
    }
    best.resize(count);
    return best;
}

/// Coefficients in t of a polynomial in s = (t - middle) / half.
Vector in_t(const Vector& c, const Real& middle, const Real& half) {
    Vector result(c.size());
    for (std::size_t k = c.size(); k-- > 0;) {
        // result = result (t - middle) / half + c[k]
        for (std::size_t j = c.size(); j-- > 0;)
            result[j] = ((j ? result[j - 1] : Real()) - middle * result[j]) / half;
        result[0] = result[0] + c[k];
    }
    return result;
}

/// Rounds all coefficients but the first few to double, from the highest down.
void round_from_above(Vector& c, int wide, const Real& middle, const Real& half) {
    for (int k = static_cast<int>(c.size()) - 1; k >= wide; --k) {
        Vector chebyshev{1}, next{0, 1};  // in s
        for (int degree = 1; degree < k; ++degree) {
            Vector after(next.size() + 1);
            for (std::size_t j = 0; j < next.size(); ++j) after[j + 1] = 2 * next[j];
            for (std::size_t j = 0; j < chebyshev.size(); ++j) after[j] = after[j] - chebyshev[j];
            chebyshev = std::exchange(next, std::move(after));
        }
        const Vector shape = in_t(next, middle, half);
        const Real& highest = c[static_cast<std::size_t>(k)];
        const Real excess = (highest - highest.to_double()) / shape.back();
        for (std::size_t j = 0; j < shape.size(); ++j) c[j] = c[j] - excess * shape[j];
    }
}

struct Complex {
    Real re, im;
};
Complex operator-(const Complex& a, const Complex& b) { return {a.re - b.re, a.im - b.im}; }
Complex operator*(const Complex& a, const Complex& b) {
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
Complex operator/(const Complex& a, const Complex& b) {
    const Real square = b.re * b.re + b.im * b.im;
    return {(a.re * b.re + a.im * b.im) / square, (a.im * b.re - a.re * b.im) / square};
}

/// Quadratic factors of a polynomial without real roots, by simultaneous iteration on all roots.
Vector factors(const Vector& c) {
    const std::size_t degree = c.size() - 1;
    std::vector<Complex> roots;
    for (std::size_t k = 0; k < degree; ++k) {
        const Real angle = 2 * pi() * (Real(double(k)) + 0.3) / double(degree);
        roots.push_back({3 * cos(angle), 3 * sin(angle)});
    }
    for (int round = 0; round < 300; ++round)
        for (Complex& root : roots) {
            Complex value{};
            for (std::size_t k = c.size(); k-- > 0;) {
                value = value * root;
                value.re = value.re + c[k] / c[degree];
            }
            for (const Complex& other : roots)
                if (&other != &root) value = value / (root - other);
            root = root - value;
        }
    std::vector<std::pair<Real, Real>> pairs;
    for (const Complex& root : roots)
        if (!root.im.is_negative()) pairs.emplace_back(-2 * root.re, root.re * root.re + root.im * root.im);
    std::ranges::sort(pairs, [](const auto& x, const auto& y) { return x.first > y.first; });
    Vector result;
    for (const auto& pair : pairs) result.push_back(pair.first);
    for (const auto& pair : pairs) result.push_back(pair.second);
    result.push_back(c[degree]);
    return result;
}

/// What is left for the other coefficients beside the given one.
Samples free_part(Samples samples, const Vector& arguments, const FitTarget& target) {
    if (!target.fixed) return samples;
    const auto [power, coefficient] = *target.fixed;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const Real& t = arguments[i];
        Real fixed = coefficient;
        for (int k = 0; k < power; ++k) fixed = fixed * t;
        samples.values[i] = samples.values[i] - fixed;
        if (power > 0) continue;
        samples.values[i] = samples.values[i] / t;
        samples.weights[i] = samples.weights[i] * abs(t);
    }
    return samples;
}

void fit(const FitTarget& target) {
    const Real middle = (target.low + target.high) / 2, half = (target.high - target.low) / 2;
    const auto count = static_cast<std::size_t>(target.coefficients);
    const std::size_t points = 50 * count;
    const bool relative = target.error == FitTarget::Error::relative;
    Samples samples;
    Vector arguments;
    for (std::size_t i = 0; i <= points; ++i) {
        samples.s.push_back(-cos(pi() * Real(double(i)) / double(points)));
        arguments.push_back(middle + half * samples.s.back());
        samples.values.push_back(target.value(arguments.back()));
        samples.weights.push_back(relative ? 1 / abs(samples.values.back()) : Real(1));
    }
    Vector c = in_t(minimax(free_part(samples, arguments, target), count - target.fixed.has_value()), middle, half);
    if (target.fixed) c.insert(target.fixed->first == 0 ? c.begin() : c.end(), target.fixed->second);
    if (target.shape == FitTarget::Shape::factors) c = factors(c);
    const int wide = target.format == FitTarget::Format::f64     ? 0
                     : target.format == FitTarget::Format::mixed ? FitTarget::wide_coefficients
                                                                 : target.coefficients;
    if (wide > 0) round_from_above(c, wide, middle, half);
    std::vector<long double> rounded;
    for (std::size_t k = 0; k < c.size(); ++k)
        rounded.push_back(static_cast<int>(k) < wide ? mpfr_get_ld(c[k].mpfr(), MPFR_RNDN) : c[k].to_double());
    Real largest;
    for (std::size_t i = 0; i <= points; ++i) {
        const Real value = fit_value(target.shape, rounded, arguments[i]);
        const Real error = samples.weights[i] * abs(value - samples.values[i]);
        if (error > largest) largest = error;
    }
    std::printf("{\"%s\",\n %.3g,\n {", target.name.c_str(), largest.to_double() * 1.002);
    for (std::size_t k = 0; k < rounded.size(); ++k) std::printf("%s%LaL", k ? ",\n  " : "", rounded[k]);
    std::printf("}},\n");
    std::fprintf(stderr, "%-24s 2^%.2f\n", target.name.c_str(), std::log2(largest.to_double()));
}

}  // namespace

int main() {
    std::printf("// Written by fit-gamma (gamma.cpp), which tells more. Name, largest error, coefficients.\n");
    for (const FitTarget& target : gamma_fit_targets()) fit(target);
}

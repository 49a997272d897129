#include "client/scalar_functions.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace tuvo::client {
namespace {

struct Entry {
    std::string_view operation;
    Lane element;
    const void* function;
};

template <typename Function>
const void* address(Function* function) {
    return reinterpret_cast<const void*>(function);
}

/// To the nearest int; a NaN becomes 0.
template <typename T>
std::int32_t saturated(T x) {
    if (std::isnan(x)) return 0;
    if (x >= 0x1p31) return std::numeric_limits<std::int32_t>::max();
    if (x <= -0x1p31) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(std::rint(x));
}

/// The functions of one element type.
template <typename T>
void append(std::vector<Entry>& table, Lane element) {
    const auto add = [&](std::string_view operation, auto* function) {
        table.push_back({operation, element, address(function)});
    };
    add(
        "exp", +[](T x) { return std::exp(x); });
    add(
        "log", +[](T x) { return std::log(x); });
    add(
        "log2", +[](T x) { return std::log2(x); });
    add(
        "asin", +[](T x) { return std::asin(x); });
    add(
        "atan2", +[](T y, T x) { return std::atan2(y, x); });
    add(
        "sqrt", +[](T x) { return std::sqrt(x); });
    add(
        "rsqrt", +[](T x) { return 1 / std::sqrt(x); });
    add(
        "sin", +[](T x) { return std::sin(x); });
    add(
        "cos", +[](T x) { return std::cos(x); });
    add(
        "cospi", +[](T x) { return static_cast<T>(std::cos(M_PI * x)); });
    add(
        "tanh", +[](T x) { return std::tanh(x); });
    add(
        "cosh", +[](T x) { return std::cosh(x); });
    add(
        "atan", +[](T x) { return std::atan(x); });
    for (const char* power : {"pow", "powr"})
        add(
            power, +[](T x, T y) { return std::pow(x, y); });
    add(
        "cbrt", +[](T x) { return std::cbrt(x); });
    add(
        "erfc", +[](T x) { return std::erfc(x); });
    add(
        "lgamma", +[](T x) { return std::lgamma(x); });
    add(
        "tgamma", +[](T x) { return std::tgamma(x); });
    add(
        "hypot", +[](T x, T y) { return std::hypot(x, y); });
    add(
        "fma", +[](T a, T b, T c) { return std::fma(a, b, c); });
    add(
        "fmin", +[](T x, T y) { return std::fmin(x, y); });
    add(
        "fmax", +[](T x, T y) { return std::fmax(x, y); });
    add(
        "cvtfptoi32rtesat", +[](T x) { return saturated(x); });
    add(
        "cvti32tofprte", +[](std::int32_t x) { return static_cast<T>(x); });
    add(
        "sincos", +[](T x, T* cosine) {
            *cosine = std::cos(x);
            return std::sin(x);
        });
}

}  // namespace

const void* scalar_function(const Family& family) {
    static const std::vector<Entry> table = [] {
        std::vector<Entry> entries;
        append<float>(entries, Lane::f32);
        append<double>(entries, Lane::f64);
        return entries;
    }();
    for (const Entry& entry : table)
        if (entry.operation == family.operation && entry.element == family.element) return entry.function;
    return nullptr;
}

}  // namespace tuvo::client

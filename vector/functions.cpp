#include "vector/functions.hpp"

#include <algorithm>

namespace tuvo {
namespace {

// What C calls by the same name and computes alike, so that the operation's name is the function's. Operations that C
// has under no name, or under one that means something else (`div`, `nan`), appear in no list.
constexpr std::string_view in_c99[] = {
    "acos",     "acosh", "asin",   "asinh", "atan", "atan2", "atanh", "cbrt",      "ceil",      "copysign",
    "cos",      "cosh",  "erf",    "erfc",  "exp",  "exp2",  "expm1", "fabs",      "fdim",      "floor",
    "fma",      "fmax",  "fmin",   "fmod",  "frexp", "hypot", "ilogb", "ldexp",    "lgamma",    "log",
    "log10",    "log1p", "log2",   "logb",  "modf", "nearbyint", "nextafter", "pow", "remainder", "remquo",
    "rint",     "round", "sin",    "sinh",  "sqrt", "tan",   "tanh",  "tgamma",    "trunc",
};
constexpr std::string_view in_gnu[] = {"exp10", "lgammar", "sincos"};
// pown and rootn take a wider integer there.
constexpr std::string_view in_c23[] = {"acospi", "asinpi", "atan2pi", "atanpi", "cospi", "powr",
                                       "rsqrt",  "sinpi",  "tanpi"};

bool contains(std::span<const std::string_view> names, std::string_view name) {
    return std::ranges::find(names, name) != names.end();
}

std::string name_in_c(const Family& family) {
    const std::string letter = family.element == Lane::f32 ? "f" : "";
    if (family.operation == "lgammar") return "lgamma" + letter + "_r";
    return family.operation + letter;
}

}  // namespace

std::vector<CFunction> c_functions() {
    std::vector<CFunction> functions;
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        if (family.tier != Tier::standard) continue;
        const bool gnu = contains(in_gnu, family.operation), c23 = contains(in_c23, family.operation);
        if (!gnu && !c23 && !contains(in_c99, family.operation)) continue;
        functions.push_back({name_in_c(family), gnu ? Declared::gnu : c23 ? Declared::c23 : Declared::c99, &family,
                             family.operation == "sincos"});
    }
    return functions;
}

std::string_view c_type(Lane lane) {
    switch (lane) {
    case Lane::f32: return "float";
    case Lane::f64: return "double";
    case Lane::i32: return "int";
    case Lane::u32: return "unsigned";
    case Lane::i64: return "long long";
    case Lane::u64: break;
    }
    return "unsigned long long";
}

std::string c_prototype(const CFunction& function) {
    const Family& family = *function.family;
    std::string parameters;
    const auto add = [&](const std::string& text) { parameters += (parameters.empty() ? "" : ", ") + text; };
    for (Lane lane : family.arguments) add(std::string(c_type(lane)));
    if (function.stores_result) add(std::string(c_type(family.results[0])) + "*");
    if (family.out) add(std::string(c_type(*family.out)) + "*");
    const std::string_view result = function.stores_result ? "void" : c_type(family.results[0]);
    return std::string(result) + " " + function.name + "(" + parameters + ")";
}

}  // namespace tuvo

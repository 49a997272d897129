#include "builtins/catalogue.hpp"

#include <algorithm>
#include <map>

namespace tuvo::builtins {
namespace {

struct Rename {
    std::string_view operation, builtin;
};

// A built-in has the name of its operation, but for a tier word in front, and these.
constexpr std::array<Rename, 3> renames{{
    {"inv", "recip"},
    {"div", "divide"},
    {"lgammar", "lgamma_r"},
}};

// Built-ins whose second argument may be one value for all lanes; integers may always.
constexpr std::array<std::string_view, 2> with_scalar_second{"fmax", "fmin"};

constexpr std::array<std::string_view, 4> rounding_words{"rte", "rtn", "rtp", "rtz"};

std::string builtin_name(const Family& family) {
    for (const Rename& rename : renames)
        if (rename.operation == family.operation) return std::string(rename.builtin);
    return family.operation;
}

Type type_of(Lane lane, int width) { return {scalar_of_lane(lane), width}; }

std::string type_name(const Type& type) {
    return std::string(traits(type.scalar).opencl) + (type.lanes > 1 ? std::to_string(type.lanes) : "");
}

bool is_conversion(const Family& family) { return family.operation.starts_with("cvt"); }

/// Operations that no overloaded built-in could stand for: OpenCL C writes an integer division with an operator, and
/// has no built-in that returns two values.
bool has_plain_name(const Family& family) { return !is_floating(family.element) || family.results.size() > 1; }

/// What a call of the family takes and gives, without the out-pointer.
Builtin call_of(const Family& family, int width, std::string name) {
    Builtin builtin;
    builtin.name = std::move(name);
    builtin.family = &family;
    builtin.width = width;
    for (Lane lane : family.arguments) builtin.parameters.push_back({type_of(lane, width)});
    for (Lane lane : family.results) builtin.results.push_back(type_of(lane, width));
    return builtin;
}

bool takes_scalar_second(const Family& family, int width) {
    if (width == 1 || family.arguments.size() != 2) return false;
    return family.arguments[1] == Lane::i32 ||
           std::ranges::find(with_scalar_second, family.operation) != with_scalar_second.end();
}

void append_overloads(std::vector<Builtin>& list, const Family& family, int width, const std::string& name) {
    const Builtin builtin = call_of(family, width, name);
    if (!family.out) {
        list.push_back(builtin);
        if (!takes_scalar_second(family, width)) return;
        list.push_back(builtin);
        list.back().parameters[1].type.lanes = 1;
        return;
    }
    for (Space space : pointer_spaces) {
        list.push_back(builtin);
        list.back().parameters.push_back({type_of(*family.out, width), space});
    }
}

/// The names that a family's kernels go under: of its tier word, and without one if it is what plain names take.
std::vector<std::string> names_of(const Family& family, const std::map<std::string, Tier>& plain_tiers) {
    std::vector<std::string> names;
    std::string_view word = tier_suffix(family.tier);
    if (family.tier == Tier::native || family.tier == Tier::half)
        names.push_back(std::string(word.substr(1)) + "_" + builtin_name(family));
    if (plain_tiers.at(family.stem) == family.tier) names.push_back(builtin_name(family));
    return names;
}

/// The tier that the name without a tier word stands for, by stem.
std::map<std::string, Tier> plain_tiers(const std::vector<const Family*>& families, Plain plain) {
    std::map<std::string, Tier> tiers;
    for (const Family* family : families) tiers.emplace(family->stem, Tier::standard);
    const Tier wanted = plain == Plain::relaxed ? Tier::rm : plain == Plain::native ? Tier::native : Tier::standard;
    for (const Family* family : families)
        if (family->tier == wanted) tiers[family->stem] = wanted;
    return tiers;
}

// ---- Conversions ---------------------------------------------------------------------------------------------------

/// The stem of the family that does the step of a conversion which rounds; empty if none is needed.
std::string rounding_step(const Conversion& conversion) {
    const ScalarTraits& from = traits(conversion.source);
    const ScalarTraits& to = traits(conversion.target);
    const auto letter = [](const ScalarTraits& floating) { return floating.scalar == Scalar::f32 ? "f" : ""; };
    if (from.floating && !to.floating) {
        // The narrow integers are cut from 32 bits.
        const std::string target(to.bytes < 4 ? "i32" : to.name);
        return "cvtfpto" + target + conversion.rounding + (conversion.saturated ? "sat" : "nosat") + letter(from);
    }
    if (!from.floating && to.floating && from.bytes >= 4)
        return "cvt" + std::string(from.name) + "tofp" + conversion.rounding + letter(to);
    if (from.scalar == Scalar::f64 && to.scalar == Scalar::f32) return "cvtfp64tofp32" + conversion.rounding;
    return "";
}

void append_conversion(std::vector<Builtin>& list, const std::map<std::string, const Family*>& by_stem,
                       Conversion conversion, std::string_view rounding_word) {
    const bool to_floating = traits(conversion.target).floating;
    conversion.rounding = !rounding_word.empty() ? rounding_word : to_floating ? "rte" : "rtz";
    const std::string stem = rounding_step(conversion);
    const auto step = by_stem.find(stem);
    if (!stem.empty() && step == by_stem.end()) return;
    for (int width : widths) {
        const Type target{conversion.target, width};
        std::string name = "convert_" + type_name(target);
        if (conversion.saturated) name += "_sat";
        if (!rounding_word.empty()) name += "_" + std::string(rounding_word);
        list.push_back({.name = name,
                        .parameters = {{{conversion.source, width}}},
                        .results = {target},
                        .family = stem.empty() ? nullptr : step->second,
                        .width = width,
                        .conversion = conversion});
    }
}

void append_conversions(std::vector<Builtin>& list, const std::vector<const Family*>& families) {
    std::map<std::string, const Family*> by_stem;
    for (const Family* family : families)
        if (is_conversion(*family)) by_stem.emplace(family->stem, family);
    for (const ScalarTraits& source : scalars)
        for (const ScalarTraits& target : scalars)
            for (const bool saturated : {false, true}) {
                if (saturated && target.floating) continue;
                const Conversion conversion{source.scalar, target.scalar, "", saturated};
                append_conversion(list, by_stem, conversion, "");
                for (std::string_view word : rounding_words) append_conversion(list, by_stem, conversion, word);
            }
}

}  // namespace

std::string Builtin::signature() const {
    std::string text;
    for (const Parameter& parameter : parameters) {
        text += (text.empty() ? "" : ", ") + type_name(parameter.type);
        if (parameter.space != Space::none) text += "*";
    }
    return name + "(" + text + ")";
}

std::vector<Builtin> catalogue(const std::vector<const Family*>& families, Plain plain) {
    std::vector<Builtin> list;
    const std::map<std::string, Tier> tiers = plain_tiers(families, plain);
    for (const Family* family : families) {
        if (is_conversion(*family)) continue;
        for (int width : widths) {
            if (has_plain_name(*family)) {
                const std::string name = "__tuvo" + std::string(tier_suffix(family->tier)) + "_" + family->operation +
                                         "_" + type_name(type_of(family->element, width));
                list.push_back(call_of(*family, width, name));
                list.back().mangled = false;
                continue;
            }
            for (const std::string& name : names_of(*family, tiers)) append_overloads(list, *family, width, name);
        }
    }
    append_conversions(list, families);
    return list;
}

}  // namespace tuvo::builtins

#include "client/builtins.hpp"

#include <array>
#include <charconv>
#include <regex>

namespace tuvo::client {
namespace {

struct Rename {
    std::string_view builtin, operation;
};

// A built-in has the name of its operation, but for a tier word in front, and these.
constexpr std::array<Rename, 3> renames{{
    {"recip", "inv"},
    {"divide", "div"},
    {"lgamma_r", "lgammar"},
}};

constexpr std::array<const char*, 2> tier_words{"native", "half"};

std::string operation_of(std::string_view builtin) {
    for (const Rename& rename : renames)
        if (rename.builtin == builtin) return std::string(rename.operation);
    return std::string(builtin);
}

std::optional<KernelKey> conversion_kernel(const Conversion& conversion, Scalar source, int width) {
    const ScalarTraits& from = traits(source);
    const ScalarTraits& to = traits(conversion.target);
    std::string rounding = conversion.rounding;
    if (rounding.empty()) rounding = to.floating ? "rte" : "rtz";
    if (from.floating && !to.floating && to.bytes >= 4) {
        const std::string saturation = conversion.saturated ? "sat" : "nosat";
        return KernelKey{"cvtfpto" + std::string(to.name) + rounding + saturation, "", source, width};
    }
    if (conversion.saturated) return std::nullopt;
    if (!from.floating && to.floating && from.bytes >= 4)
        return KernelKey{"cvt" + std::string(from.name) + "tofp" + rounding, "", conversion.target, width};
    if (source == Scalar::f64 && conversion.target == Scalar::f32)
        return KernelKey{"cvtfp64tofp32" + rounding, "", source, width};
    return std::nullopt;
}

int to_int(const std::string& digits) {
    int value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

}  // namespace

std::string Builtin::signature() const {
    if (!scalar) return name + "()";
    return name + "(" + std::string(traits(*scalar).opencl) + (lanes > 1 ? std::to_string(lanes) : "") + ")";
}

std::optional<Builtin> parse_mangled(std::string_view mangled) {
    static const std::regex head("_Z([0-9]+)");
    static const std::regex first_parameter("(?:Dv([0-9]+)_)?([a-z]).*");
    std::match_results<std::string_view::const_iterator> match;
    if (!std::regex_search(mangled.begin(), mangled.end(), match, head, std::regex_constants::match_continuous))
        return std::nullopt;
    const std::size_t length = static_cast<std::size_t>(to_int(match.str(1)));
    const std::string_view rest = mangled.substr(static_cast<std::size_t>(match.length()));
    if (length > rest.size()) return std::nullopt;

    Builtin builtin;
    builtin.name = rest.substr(0, length);
    const std::string_view parameters = rest.substr(length);
    if (std::regex_match(parameters.begin(), parameters.end(), match, first_parameter)) {
        const ScalarTraits* scalar = find_scalar(&ScalarTraits::mangled, match.str(2)[0]);
        if (scalar) builtin.scalar = scalar->scalar;
        if (match[1].matched) builtin.lanes = to_int(match.str(1));
    }
    return builtin;
}

std::optional<Conversion> parse_conversion(std::string_view name) {
    static const std::regex pattern("convert_([a-z]+)[0-9]*(_sat)?(?:_(rt[enpz]))?");
    std::match_results<std::string_view::const_iterator> match;
    if (!std::regex_match(name.begin(), name.end(), match, pattern)) return std::nullopt;
    const ScalarTraits* target = find_scalar(&ScalarTraits::opencl, match.str(1));
    if (!target) return std::nullopt;
    return Conversion{target->scalar, match[2].matched, match.str(3)};
}

std::optional<KernelKey> requested_kernel(const Builtin& builtin) {
    if (!builtin.scalar) return std::nullopt;
    if (const auto conversion = parse_conversion(builtin.name))
        return conversion_kernel(*conversion, *builtin.scalar, builtin.lanes);

    KernelKey key{operation_of(builtin.name), "", *builtin.scalar, builtin.lanes};
    for (const std::string word : tier_words)
        if (builtin.name.starts_with(word + "_")) {
            key.operation = operation_of(builtin.name.substr(word.size() + 1));
            key.tier = word;
        }
    // The one operation whose argument differs from its element: a payload of the element's size.
    if (key.operation == "nan") key.element = key.element == Scalar::u32 ? Scalar::f32 : Scalar::f64;
    return key;
}

}  // namespace tuvo::client

#include "builtins/in_place.hpp"

#include <algorithm>
#include <string_view>

namespace tuvo::builtins {
namespace {

/// By operation. What has constants, a rare path or a shorter tier is no single instruction.
struct Intrinsic {
    std::string_view operation, name;
};
constexpr Intrinsic intrinsics[] = {{"fabs", "fabs"},   {"copysign", "copysign"},  {"ceil", "ceil"},
                                    {"floor", "floor"}, {"trunc", "trunc"},        {"rint", "rint"},
                                    {"sqrt", "sqrt"},   {"nearbyint", "nearbyint"}};

}  // namespace

std::optional<Operand> in_place(Body& body, Declarations& declarations, const Family& family,
                                const std::vector<Operand>& arguments) {
    if (family.tier != Tier::standard || family.has_rare || family.blocks > 0) return std::nullopt;
    const Type type = arguments[0].type;
    const std::string text = llvm_type(type);
    std::string values, types;
    for (const Operand& argument : arguments) {
        values += (values.empty() ? "" : ", ") + text + " " + argument.name;
        types += (types.empty() ? "" : ", ") + text;
    }
    const Type result{scalar_of_lane(family.results[0]), type.lanes};
    const auto converted = [&](const char* instruction) {
        return Operand{result,
                       body.add(instruction + (" " + text) + " " + arguments[0].name + " to " + llvm_type(result))};
    };
    if (family.operation.starts_with("cvti32tofp")) return converted("sitofp");
    if (family.operation == "cvtfp64tofp32rte") return converted("fptrunc");
    if (family.operation == "nan") {
        const std::string quiet = result.scalar == Scalar::f64 ? "9221120237041090560" : "2143289344";
        const Operand code{type, body.add("or " + text + " " + arguments[0].name + ", " +
                                          splat(body, {{type.scalar, 1}, quiet}, type.lanes).name)};
        return Operand{result, body.add("bitcast " + text + " " + code.name + " to " + llvm_type(result))};
    }
    if (family.operation == "div")
        return Operand{type, body.add("fdiv " + text + " " + arguments[0].name + ", " + arguments[1].name)};
    const auto* found = std::ranges::find(intrinsics, family.operation, &Intrinsic::operation);
    if (found == std::end(intrinsics)) return std::nullopt;
    const std::string lanes = type.lanes > 1 ? "v" + std::to_string(type.lanes) : "";
    const std::string name =
        "@llvm." + std::string(found->name) + "." + lanes + (size_in_memory({type.scalar, 1}) == 8 ? "f64" : "f32");
    declarations.insert("declare " + text + " " + name + "(" + types + ")");
    return Operand{type, body.add("call " + text + " " + name + "(" + values + ")")};
}

}  // namespace tuvo::builtins

#include "builtins/abi.hpp"

#include <algorithm>

namespace tuvo::builtins {
namespace {

/// The qualifier of a pointer's target. Where the target has no numbers for address spaces, clang writes their names.
std::string qualifier(Space space, Target target) {
    switch (space) {
    case Space::private_memory: return target == Target::spir ? "" : "U9CLprivate";
    case Space::global: return target == Target::spir ? "U3AS1" : "U8CLglobal";
    case Space::local: return target == Target::spir ? "U3AS3" : "U7CLlocal";
    case Space::generic: return target == Target::spir ? "U3AS4" : "U9CLgeneric";
    case Space::none: break;
    }
    return "";
}

/// The types of the parameters. A vector type that came before is named by its place: S_, S0_.
std::string mangled_parameters(const Builtin& builtin, Target target) {
    std::string text;
    std::vector<Type> seen;
    for (const auto& [type, space] : builtin.parameters) {
        if (space != Space::none) text += "P" + qualifier(space, target);
        const char letter = traits(type.scalar).mangled;
        if (type.lanes == 1) {
            text += letter;
            continue;
        }
        const auto before = std::ranges::find(seen, type);
        if (before == seen.end()) {
            text += "Dv" + std::to_string(type.lanes) + "_" + letter;
            seen.push_back(type);
        } else {
            text += before == seen.begin() ? "S_" : "S" + std::to_string(before - seen.begin() - 1) + "_";
        }
    }
    return text;
}

}  // namespace

std::string symbol(const Builtin& builtin, const Abi& abi) {
    if (!builtin.mangled) return builtin.name;
    const std::string name = abi.prefix + builtin.name;
    return "_Z" + std::to_string(name.size()) + name + mangled_parameters(builtin, abi.target);
}

std::string llvm_type(const Type& type) {
    const ScalarTraits& element = traits(type.scalar);
    const std::string name = element.scalar == Scalar::f32   ? "float"
                             : element.scalar == Scalar::f64 ? "double"
                                                             : "i" + std::to_string(8 * element.bytes);
    return type.lanes == 1 ? name : "<" + std::to_string(type.lanes) + " x " + name + ">";
}

std::string llvm_pointer(const std::string& type, int address_space, Pointers pointers) {
    const std::string space = address_space == 0 ? "" : " addrspace(" + std::to_string(address_space) + ")";
    return pointers == Pointers::opaque ? "ptr" + space : type + space + "*";
}

int address_space(Space space, Target target) {
    if (target != Target::spir) return 0;
    return space == Space::global ? 1 : space == Space::local ? 3 : space == Space::generic ? 4 : 0;
}

Passing passing(const Type& type, const Abi& abi, bool result) {
    const std::string own = llvm_type(type);
    if (abi.target == Target::spir || type.lanes == 1) return {false, own};
    const int bits = 8 * size_in_memory(type);
    if (bits <= 32) return {false, "i" + std::to_string(bits)};
    if (bits == 64) return {false, "double"};
    return {!result && bits > abi.register_bits, own};
}

int size_in_memory(const Type& type) { return physical_lanes(type.lanes) * traits(type.scalar).bytes; }

}  // namespace tuvo::builtins

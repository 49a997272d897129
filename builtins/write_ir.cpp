#include "builtins/write_ir.hpp"

#include <algorithm>
#include <cstdint>
#include <map>

#include "builtins/in_place.hpp"
#include "builtins/kernel_call.hpp"

namespace tuvo::builtins {
namespace {

/// The text of a module while it grows.
struct Module {
    const ModuleOptions& options;
    std::vector<std::string> functions;
    Declarations declarations;
    /// Names of functions for the sake of several values, and the types of those that are to be kept.
    std::map<std::string, std::string> variants;
};

std::string pointer_type(const Module& module, const Parameter& parameter) {
    return llvm_pointer(llvm_type(parameter.type), address_space(parameter.space, module.options.abi.target),
                        module.options.abi.pointers);
}

// ---- Values at the boundary of a built-in --------------------------------------------------------------------------

/// The value of a parameter in its own type; `name` is what crossed the call.
Operand arrive(Body& body, const Module& module, const Type& type, const std::string& name) {
    const Passing way = passing(type, module.options.abi, false);
    const std::string own = llvm_type(type);
    if (way.in_memory) {
        const std::string pointer = llvm_pointer(own, 0, module.options.abi.pointers);
        return {type, body.add("load " + own + ", " + pointer + " " + name + ", align " +
                               std::to_string(size_in_memory(type)))};
    }
    if (way.as == own) return {type, name};
    const Type room{type.scalar, physical_lanes(type.lanes)};
    const Operand whole{room, body.add("bitcast " + way.as + " " + name + " to " + llvm_type(room))};
    return room == type ? whole : slice(body, whole, 0, type.lanes);
}

/// The result as it crosses the call.
std::string leave(Body& body, Operand value, const std::string& as) {
    if (as == llvm_type(value.type)) return value.name;
    const int room = physical_lanes(value.type.lanes);
    if (room != value.type.lanes) value = slice(body, value, 0, room);
    return body.add("bitcast " + llvm_type(value.type) + " " + value.name + " to " + as);
}

std::string parameter_text(const Module& module, const Builtin& builtin, std::size_t i) {
    const Parameter& parameter = builtin.parameters[i];
    const std::string name = " %a" + std::to_string(i);
    if (parameter.space != Space::none) return pointer_type(module, parameter) + name;
    if (!builtin.mangled) return llvm_type(parameter.type) + name;
    const Passing way = passing(parameter.type, module.options.abi, false);
    if (!way.in_memory) return way.as + name;
    return llvm_pointer(way.as, 0, module.options.abi.pointers) + " byval(" + way.as + ") align " +
           std::to_string(size_in_memory(parameter.type)) + name;
}

// ---- Several values at once ----------------------------------------------------------------------------------------

/// The name of a function with plain vectors of `width` lanes: the kernel itself, or one that calls it.
std::string variant_name(Module& module, const Family& family, int width) {
    std::vector<Operand> arguments;
    std::string parameters;
    for (std::size_t i = 0; i < family.arguments.size(); ++i) {
        arguments.push_back({{scalar_of_lane(family.arguments[i]), width}, "%a" + std::to_string(i)});
        parameters += (i ? ", " : "") + llvm_type(arguments[i].type);
    }
    const std::string result = llvm_type({scalar_of_lane(family.results[0]), width});
    const bool whole = passes_whole(family, width);
    const std::string name = whole ? export_name(family, width) : "__tuvo_lanes_" + short_name(family, width);
    const auto [place, fresh] = module.variants.emplace(name, result + " (" + parameters + ")");
    if (!fresh) return name;
    Body body;
    const std::vector<Operand> results =
        call_kernel(body, module.declarations, family, width, arguments, "", module.options.abi.pointers);
    if (whole) return name;  // for its declaration alone
    std::string text = "define internal " + result + " @" + name + "(";
    for (std::size_t i = 0; i < arguments.size(); ++i)
        text += (i ? ", " : "") + llvm_type(arguments[i].type) + " " + arguments[i].name;
    text += ") alwaysinline nounwind willreturn readnone {\n";
    for (const std::string& line : body.lines) text += "  " + line + "\n";
    module.functions.push_back(text + "  ret " + result + " " + results[0].name + "\n}\n");
    return name;
}

/// What tells the loop vectoriser the names of the kernels for 2, 4, 8 and 16 values, on a call of the one for one.
std::string variants_attribute(Module& module, const Family& family) {
    std::string names;
    const std::string letters(family.arguments.size(), 'v');
    for (int width : widths) {
        if (width == 1 || width == 3) continue;
        names += (names.empty() ? "" : ",") + ("_ZGV_LLVM_N" + std::to_string(width)) + letters + "_" +
                 export_name(family, 1) + "(" + variant_name(module, family, width) + ")";
    }
    return " \"vector-function-abi-variant\"=\"" + names + "\"";
}

/// The function for one value that calls the wider kernels, too; the text of its name, or nothing if none passes its
/// values whole.
std::string one_by_one(Module& module, const Family& family, std::string& attribute) {
    std::vector<int> kept;
    for (int width : widths)
        if (width != 1 && width != 3 && passes_whole(family, width)) kept.push_back(width);
    if (kept.empty()) return "";
    const std::string name = "__tuvo_one_" + family.name();
    attribute.clear();
    for (int width : kept)
        attribute += (attribute.empty() ? "" : ",") + ("_ZGV_LLVM_N" + std::to_string(width)) +
                     std::string(family.arguments.size(), 'v') + "_" + name + "(" + export_name(family, width) + ")";
    attribute = " \"vector-function-abi-variant\"=\"" + attribute + "\"";
    if (!module.variants.emplace(name, "").second) return name;

    Body body;
    std::vector<Operand> arguments;
    std::string parameters;
    for (std::size_t i = 0; i < family.arguments.size(); ++i) {
        arguments.push_back({{scalar_of_lane(family.arguments[i]), 1}, "%a" + std::to_string(i)});
        parameters += (i ? ", " : "") + llvm_type(arguments[i].type) + " " + arguments[i].name;
    }
    const Type result{scalar_of_lane(family.results[0]), 1};
    const Pointers pointers = module.options.abi.pointers;
    const std::string word = "i" + std::to_string(8 * lane_size(family.arguments[0]));
    const std::string bits =
        is_floating(family.arguments[0])
            ? body.add("bitcast " + llvm_type(arguments[0].type) + " " + arguments[0].name + " to " + word)
            : arguments[0].name;
    std::string cases;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        // NaNs with odd payloads; integers next to the least. A wide kernel gives the same there.
        const std::int64_t least = lane_size(family.arguments[0]) == 8 ? INT64_MIN : INT32_MIN;
        const std::int64_t odd = is_floating(family.arguments[0]) ? -1 - static_cast<std::int64_t>(i)
                                                                  : least + 1 + static_cast<std::int64_t>(i);
        cases += " " + word + " " + std::to_string(odd) + ", label %w" + std::to_string(kept[i]);
    }
    body.line("switch " + word + " " + bits + ", label %one [" + cases + " ]");
    for (int width : kept) {
        body.line("w" + std::to_string(width) + ":");
        std::vector<Operand> lanes;
        for (const Operand& argument : arguments) lanes.push_back(splat(body, argument, width));
        const Operand wide = call_kernel(body, module.declarations, family, width, lanes, "", pointers).at(0);
        body.line("ret " + llvm_type(result) + " " +
                  body.add("extractelement " + llvm_type(wide.type) + " " + wide.name + ", i32 0"));
    }
    body.line("one:");
    const Operand value = call_kernel(body, module.declarations, family, 1, arguments, "", pointers).at(0);
    std::string text = "define internal " + llvm_type(result) + " @" + name + "(" + parameters +
                       ") noinline nounwind willreturn readnone {\n";
    for (const std::string& line : body.lines) text += "  " + line + "\n";
    module.functions.push_back(text + "  ret " + llvm_type(result) + " " + value.name + "\n}\n");
    return name;
}

std::vector<Operand> call_step(Body& body, Module& module, const Builtin& builtin,
                               const std::vector<Operand>& arguments, const std::string& out) {
    const Family& family = *builtin.family;
    if (const auto value = in_place(body, module.declarations, family, arguments)) return {*value};
    const Pointers pointers = module.options.abi.pointers;
    std::string attribute;
    if (builtin.width == 1 && !family.out && family.results.size() == 1) {
        if (module.options.variants == Variants::listed) attribute = variants_attribute(module, family);
        if (module.options.variants == Variants::called) {
            const std::string name = one_by_one(module, family, attribute);
            if (!name.empty()) {
                std::string values;
                for (const Operand& argument : arguments)
                    values += (values.empty() ? "" : ", ") + llvm_type(argument.type) + " " + argument.name;
                const Type type{scalar_of_lane(family.results[0]), 1};
                return {{type, body.add("call " + llvm_type(type) + " @" + name + "(" + values +
                                        ") nounwind willreturn readnone" + attribute)}};
            }
        }
    }
    return call_kernel(body, module.declarations, family, builtin.width, arguments, out, pointers, attribute);
}

// ---- Conversions ---------------------------------------------------------------------------------------------------

Operand cast(Body& body, const char* instruction, const Operand& value, Scalar target) {
    const Type type{target, value.type.lanes};
    return {type, body.add(std::string(instruction) + " " + llvm_type(value.type) + " " + value.name + " to " +
                           llvm_type(type))};
}

/// A constant in all lanes.
Operand constant(Body& body, const Type& type, const std::string& value) {
    return splat(body, {{type.scalar, 1}, value}, type.lanes);
}

/// The smaller or the larger of an integer value and a limit.
Operand limited(Body& body, const Operand& value, const std::string& limit, bool from_below) {
    const std::string type = llvm_type(value.type);
    const Operand bound = constant(body, value.type, limit);
    const std::string order = std::string(traits(value.type.scalar).is_signed ? "s" : "u") + (from_below ? "gt" : "lt");
    const std::string test = body.add("icmp " + order + " " + type + " " + value.name + ", " + bound.name);
    const std::string flags = value.type.lanes == 1 ? "i1" : "<" + std::to_string(value.type.lanes) + " x i1>";
    return {value.type,
            body.add("select " + flags + " " + test + ", " + type + " " + value.name + ", " + type + " " + bound.name)};
}

/// An integer cut to another integer type; one that saturates is brought into the range first.
Operand resize(Body& body, Operand value, Scalar target, bool saturated) {
    const ScalarTraits& from = traits(value.type.scalar);
    const ScalarTraits& to = traits(target);
    const int from_bits = 8 * from.bytes - from.is_signed, to_bits = 8 * to.bytes - to.is_signed;
    if (saturated && from.is_signed && (!to.is_signed || to_bits < from_bits)) {
        const std::string least = to.is_signed ? "-" + std::to_string(std::uint64_t{1} << to_bits) : std::string("0");
        value = limited(body, value, least, true);
    }
    // The largest value of 64 bits is no limit for any type.
    if (saturated && to_bits < from_bits)
        value = limited(body, value, std::to_string((std::uint64_t{1} << to_bits) - 1), false);
    if (to.bytes == from.bytes) return {{target, value.type.lanes}, value.name};
    return cast(body, to.bytes < from.bytes ? "trunc" : from.is_signed ? "sext" : "zext", value, target);
}

Operand convert(Body& body, Module& module, const Builtin& builtin, Operand value) {
    const Conversion& conversion = *builtin.conversion;
    const ScalarTraits& from = traits(conversion.source);
    const ScalarTraits& to = traits(conversion.target);
    if (builtin.family) {
        value = call_step(body, module, builtin, {value}, "").at(0);
        // The narrow integers come by way of int.
        return to.floating ? value : resize(body, value, conversion.target, conversion.saturated && to.bytes < 4);
    }
    if (from.scalar == to.scalar) return value;
    if (from.floating) return cast(body, "fpext", value, conversion.target);
    if (to.floating) return cast(body, from.is_signed ? "sitofp" : "uitofp", value, conversion.target);
    return resize(body, value, conversion.target, conversion.saturated);
}

// ---- Definitions ---------------------------------------------------------------------------------------------------

std::string plain_pointer(Body& body, const Module& module, const Parameter& parameter, const std::string& name) {
    if (address_space(parameter.space, module.options.abi.target) == 0) return name;
    const std::string plain = llvm_pointer(llvm_type(parameter.type), 0, module.options.abi.pointers);
    return body.add("addrspacecast " + pointer_type(module, parameter) + " " + name + " to " + plain);
}

void define(Module& module, const Builtin& builtin) {
    Body body;
    std::vector<Operand> arguments;
    std::string parameters, out;
    for (std::size_t i = 0; i < builtin.parameters.size(); ++i) {
        const Parameter& parameter = builtin.parameters[i];
        const std::string name = "%a" + std::to_string(i);
        parameters += (i ? ", " : "") + parameter_text(module, builtin, i);
        if (parameter.space != Space::none)
            out = plain_pointer(body, module, parameter, name);
        else if (!builtin.mangled)
            arguments.push_back({parameter.type, name});
        else
            arguments.push_back(splat(body, arrive(body, module, parameter.type, name), builtin.width));
    }
    std::vector<Operand> results;
    if (builtin.conversion)
        results = {convert(body, module, builtin, arguments.at(0))};
    else
        results = call_step(body, module, builtin, arguments, out);

    std::string type, value;
    if (results.size() == 1) {
        type = builtin.mangled ? passing(results[0].type, module.options.abi, true).as : llvm_type(results[0].type);
        value = leave(body, results[0], type);
    } else {
        type = "{ " + llvm_type(results[0].type) + ", " + llvm_type(results[1].type) + " }";
        value = "poison";
        for (std::size_t i = 0; i < results.size(); ++i)
            value = body.add("insertvalue " + type + " " + value + ", " + llvm_type(results[i].type) + " " +
                             results[i].name + ", " + std::to_string(i));
    }
    const bool reads_copies = std::ranges::any_of(builtin.parameters, [&](const Parameter& parameter) {
        return builtin.mangled && parameter.space == Space::none &&
               passing(parameter.type, module.options.abi, false).in_memory;
    });
    const char* attributes = !out.empty() ? "#2" : reads_copies ? "#1" : "#0";
    const char* convention = builtin.mangled && module.options.abi.target == Target::spir ? "spir_func " : "";
    std::string text = "define " + std::string(convention) + type + " @" + symbol(builtin, module.options.abi) + "(" +
                       parameters + ") " + attributes + " {\n";
    for (const std::string& line : body.lines) text += "  " + line + "\n";
    module.functions.push_back(text + "  ret " + type + " " + value + "\n}\n");
}

void write_kept(std::ostream& out, const Module& module) {
    if (module.variants.empty() || module.options.variants != Variants::listed) return;
    const Pointers pointers = module.options.abi.pointers;
    const std::string byte = llvm_pointer("i8", 0, pointers);
    out << "; Named by attributes only, which doesn't keep a function.\n@llvm.compiler.used = appending global ["
        << module.variants.size() << " x " << byte << "] [";
    const char* separator = "\n    ";
    for (const auto& [name, type] : module.variants) {
        out << separator << byte << " ";
        if (pointers == Pointers::typed)
            out << "bitcast (" << type << "* @" << name << " to i8*)";
        else
            out << "@" << name;
        separator = ",\n    ";
    }
    out << "\n], section \"llvm.metadata\"\n\n";
}

}  // namespace

void write_module(std::ostream& out, const std::vector<const Family*>& families, const ModuleOptions& options) {
    Module module{options, {}, {}, {}};
    for (const Builtin& builtin : catalogue(families, options.plain)) define(module, builtin);
    out << "; The built-ins of OpenCL C, by calls of the kernels in " << soname << ".\n"
        << "source_filename = \"tuvo-builtins\"\n\n";
    write_kept(out, module);
    for (const std::string& function : module.functions) out << function << "\n";
    for (const std::string& declaration : module.declarations) out << declaration << "\n";
    out << "\nattributes #0 = { alwaysinline nounwind willreturn readnone }\n"
           "attributes #1 = { alwaysinline nounwind willreturn argmemonly readonly }\n"
           "attributes #2 = { alwaysinline nounwind willreturn argmemonly }\n";
}

}  // namespace tuvo::builtins

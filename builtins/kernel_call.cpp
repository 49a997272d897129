#include "builtins/kernel_call.hpp"

#include <algorithm>

namespace tuvo::builtins {
namespace {

std::string number(int value) { return std::to_string(value); }

/// What a kernel's call is marked with: one that stores reads and writes only where its pointers point.
const char* memory_attribute(const Family& family, int width) {
    return call_form(family, width) == Form::memory || family.out ? "argmemonly" : "readnone";
}

Type type_of(Lane lane, int lanes) { return {scalar_of_lane(lane), lanes}; }

/// The types of the registers that a value crosses the call in. A scalar is the low lane of its register.
std::vector<Type> parts_of(Lane lane, int width) {
    if (width == 1) return {type_of(lane, 1)};
    std::vector<Type> types;
    for (int bits : part_bits(lane, width)) types.push_back(type_of(lane, bits / 8 / lane_size(lane)));
    return types;
}

bool is_wide(const Type& type) { return size_in_memory(type) >= 32; }

std::string structure(const std::vector<std::string>& types) {
    if (types.size() == 1) return types.front();
    std::string text;
    for (const std::string& type : types) text += (text.empty() ? "{ " : ", ") + type;
    return text + " }";
}

std::string list(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) text += (text.empty() ? "" : ", ") + item;
    return text;
}

/// Two vectors of equally many lanes, one behind the other.
Operand join(Body& body, const Operand& low, const Operand& high) {
    const Type type{low.type.scalar, 2 * low.type.lanes};
    std::vector<std::string> mask;
    for (int lane = 0; lane < type.lanes; ++lane) mask.push_back("i32 " + number(lane));
    const std::string half = llvm_type(low.type);
    return {type, body.add("shufflevector " + half + " " + low.name + ", " + half + " " + high.name + ", <" +
                           number(type.lanes) + " x i32> <" + list(mask) + ">")};
}

Operand join_parts(Body& body, std::vector<Operand> parts, int width) {
    while (parts.size() > 1) {
        std::vector<Operand> pairs;
        for (std::size_t i = 0; i < parts.size(); i += 2) pairs.push_back(join(body, parts[i], parts[i + 1]));
        parts = std::move(pairs);
    }
    return parts[0].type.lanes == width ? parts[0] : slice(body, parts[0], 0, width);
}

/// The value itself, in a register that only AVX has: a compiler for a processor without AVX stops here, where it would
/// pass two halves to a kernel that takes a whole. Costs no instruction.
Operand in_wide_register(Body& body, const Operand& value) {
    const std::string type = llvm_type(value.type);
    return {value.type, body.add("call " + type + " asm \"\", \"=x,0\"(" + type + " " + value.name +
                                 ") nounwind readnone willreturn")};
}

struct Call {
    std::vector<std::string> parameters;  ///< types, with attributes
    std::vector<std::string> operands;    ///< in the same order
    std::string result = "void";

    void pass(const std::string& type, const std::string& operand) {
        parameters.push_back(type);
        operands.push_back(type + " " + operand);
    }
    std::string emit(Body& body, Declarations& declarations, const Family& family, int width,
                     const std::string& call_attributes) const {
        const std::string name = "@" + export_name(family, width);
        const std::string attributes = std::string(" nounwind willreturn ") + memory_attribute(family, width);
        declarations.insert("declare " + result + " " + name + "(" + list(parameters) + ")" + attributes);
        const std::string call =
            "call " + result + " " + name + "(" + list(operands) + ")" + attributes + call_attributes;
        if (result != "void") return body.add(call);
        body.line(call);
        return "";
    }
};

std::vector<Operand> call_in_registers(Body& body, Declarations& declarations, const Family& family, int width,
                                       const std::vector<Operand>& arguments, const std::string& out,
                                       const std::string& out_type, const std::string& call_attributes) {
    Call call;
    if (!out.empty()) call.pass(out_type, out);
    bool guarded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        int first = 0;
        for (const Type& part : parts_of(family.arguments[i], width)) {
            Operand value =
                part.lanes == arguments[i].type.lanes ? arguments[i] : slice(body, arguments[i], first, part.lanes);
            if (is_wide(part) && !guarded) {
                value = in_wide_register(body, value);
                guarded = true;
            }
            call.pass(llvm_type(part), value.name);
            first += part.lanes;
        }
    }
    std::vector<std::string> types;
    for (Lane lane : family.results)
        for (const Type& part : parts_of(lane, width)) types.push_back(llvm_type(part));
    const bool packed = width == 1 && family.results.size() == 2;  // two results in one register
    const bool integers = !is_floating(family.results[0]);
    call.result = !packed    ? structure(types)
                  : integers ? "i64"
                             : "<" + number(16 / lane_size(family.results[0])) + " x " + types[0] + ">";
    const std::string value = call.emit(body, declarations, family, width, call_attributes);

    std::vector<Operand> results;
    if (packed) {
        for (int i = 0; i < 2; ++i) {
            std::string word = value;
            if (integers && i == 1) word = body.add("lshr i64 " + value + ", 32");
            results.push_back({type_of(family.results[0], 1), integers ? body.add("trunc i64 " + word + " to i32")
                                                                       : body.add("extractelement " + call.result +
                                                                                  " " + value + ", i32 " + number(i))});
        }
        return results;
    }
    int field = 0;
    for (Lane lane : family.results) {
        std::vector<Operand> parts;
        for (const Type& part : parts_of(lane, width)) {
            std::string name = value;
            if (types.size() > 1) name = body.add("extractvalue " + call.result + " " + value + ", " + number(field++));
            parts.push_back({part, name});
        }
        if (is_wide(parts[0].type) && !guarded) parts[0] = in_wide_register(body, parts[0]);
        guarded = guarded || is_wide(parts[0].type);
        results.push_back(width == 1 ? parts[0] : join_parts(body, parts, width));
    }
    return results;
}

std::vector<Operand> call_in_memory(Body& body, Declarations& declarations, const Family& family, int width,
                                    const std::vector<Operand>& arguments, const std::string& out,
                                    const std::string& out_type, Pointers pointers) {
    std::vector<std::string> types;
    for (Lane lane : family.results) types.push_back(llvm_type(type_of(lane, width)));
    const std::string buffer = structure(types);
    // Stack slots stand first, where the code generator gives them fixed places.
    const std::string result = body.add("alloca " + buffer + ", align 32");
    std::vector<std::string> slots;
    for (const Operand& argument : arguments)
        slots.push_back(body.add("alloca " + llvm_type(argument.type) + ", align 32"));
    Call call;
    call.parameters.push_back(llvm_pointer(buffer, 0, pointers) + " sret(" + buffer + ")");
    call.operands.push_back(call.parameters.back() + " " + result);
    if (!out.empty()) call.pass(out_type, out);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string type = llvm_type(arguments[i].type), pointer = llvm_pointer(type, 0, pointers);
        body.line("store " + type + " " + arguments[i].name + ", " + pointer + " " + slots[i] + ", align 32");
        // Arguments follow one another without gaps, whatever their type's own alignment.
        call.pass(pointer + " byval(" + type + ") align 8", slots[i]);
    }
    call.emit(body, declarations, family, width, "");
    const std::string whole =
        body.add("load " + buffer + ", " + llvm_pointer(buffer, 0, pointers) + " " + result + ", align 32");
    std::vector<Operand> results;
    for (std::size_t i = 0; i < types.size(); ++i) {
        const Type type = type_of(family.results[i], width);
        results.push_back({type, types.size() == 1 ? whole
                                                   : body.add("extractvalue " + buffer + " " + whole + ", " +
                                                              number(static_cast<int>(i)))});
    }
    return results;
}

}  // namespace

Operand slice(Body& body, const Operand& vector, int first, int count) {
    const std::string type = llvm_type(vector.type);
    std::vector<std::string> mask;
    for (int lane = first; lane < first + count; ++lane)
        mask.push_back("i32 " + (lane < vector.type.lanes ? number(lane) : "undef"));
    return {{vector.type.scalar, count},
            body.add("shufflevector " + type + " " + vector.name + ", " + type + " poison, <" + number(count) +
                     " x i32> <" + list(mask) + ">")};
}

Operand splat(Body& body, const Operand& scalar, int lanes) {
    if (lanes == scalar.type.lanes) return scalar;
    const Type type{scalar.type.scalar, lanes};
    const std::string text = llvm_type(type);
    const std::string one =
        body.add("insertelement " + text + " poison, " + llvm_type(scalar.type) + " " + scalar.name + ", i32 0");
    return {type, body.add("shufflevector " + text + " " + one + ", " + text + " poison, <" + number(lanes) +
                           " x i32> zeroinitializer")};
}

bool passes_whole(const Family& family, int width) {
    const auto whole = [&](Lane lane) {
        const std::vector<Type> parts = parts_of(lane, width);
        return parts.size() == 1 && parts[0].lanes == width;
    };
    return !family.out && family.results.size() == 1 && call_form(family, width) == Form::registers &&
           std::ranges::all_of(family.arguments, whole) && whole(family.results[0]);
}

std::vector<Operand> call_kernel(Body& body, Declarations& declarations, const Family& family, int width,
                                 const std::vector<Operand>& arguments, const std::string& out, Pointers pointers,
                                 const std::string& call_attributes) {
    std::string out_type;
    if (family.out) out_type = llvm_pointer(llvm_type(type_of(*family.out, width)), 0, pointers);
    if (call_form(family, width) == Form::memory)
        return call_in_memory(body, declarations, family, width, arguments, out, out_type, pointers);
    return call_in_registers(body, declarations, family, width, arguments, out, out_type, call_attributes);
}

}  // namespace tuvo::builtins

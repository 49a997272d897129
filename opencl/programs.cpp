#include "opencl/programs.hpp"

namespace tuvo::opencl {
namespace {

using builtins::Builtin;
using builtins::Space;
using builtins::Type;

std::string scalar_name(const Type& type) { return std::string(traits(type.scalar).opencl); }

std::string type_name(const Type& type) {
    return scalar_name(type) + (type.lanes > 1 ? std::to_string(type.lanes) : "");
}

/// Declares the built-in and gives it a name to be called by. PoCL renames built-ins by macros; one that it doesn't
/// know has the name that its library gives them, and so have overloads that it doesn't declare.
std::string name_for_calls(const Builtin& builtin, int number, const std::string& declaration) {
    const std::string name = "NAME" + std::to_string(number);
    return declaration + "#ifdef " + builtin.name + "\n#define " + name + " " + builtin.name + "\n#else\n#define " +
           name + " _cl_" + builtin.name + "\n#endif\n";
}

std::string declaration_of(const Builtin& builtin, const std::string& name) {
    std::string parameters;
    for (const auto& [type, space] : builtin.parameters)
        parameters += (parameters.empty() ? "" : ", ") +
                      (space == Space::none ? type_name(type) : "global " + type_name(type) + "*");
    return type_name(builtin.results[0]) + " __attribute__((overloadable)) " + name + "(" + parameters + ");\n";
}

/// Lanes of an array as a vector; of three in memory as close as they come.
std::string load(const Type& type, const std::string& array, const std::string& index) {
    if (type.lanes == 1) return "(" + array + ")[" + index + "]";
    return "vload" + std::to_string(type.lanes) + "(" + index + ", " + array + ")";
}

std::string store(const Type& type, const std::string& array, const std::string& index, const std::string& value) {
    if (type.lanes == 1) return "(" + array + ")[" + index + "] = " + value + ";";
    return "vstore" + std::to_string(type.lanes) + "(" + value + ", " + index + ", " + array + ");";
}

std::string parameters_of(const Builtin& builtin) {
    std::string text = "global " + scalar_name(builtin.results[0]) + "* r";
    for (std::size_t i = 0; i < builtin.parameters.size(); ++i)
        text += ", global " + scalar_name(builtin.parameters[i].type) + "* a" + std::to_string(i);
    return text;
}

}  // namespace

Overloads overloads_of(const Family& family) {
    Overloads list;
    int width_before = 0;
    for (const Builtin& builtin : builtins::catalogue({&family}, builtins::Plain::standard)) {
        bool plain = builtin.mangled && builtin.family == &family;
        for (const auto& [type, space] : builtin.parameters)
            plain = plain && type.lanes == builtin.width && (space == Space::none || space == Space::global);
        if (builtin.conversion)
            plain =
                plain && traits(builtin.conversion->target).bytes >= 4 && builtin.name.find("_rt") != std::string::npos;
        if (!plain || builtin.width <= width_before) continue;
        list.push_back(builtin);
        width_before = builtin.width;
    }
    return list;
}

std::string checking_program(const Overloads& overloads, int lanes) {
    std::string text = "#pragma OPENCL EXTENSION cl_khr_fp64 : enable\n", body;
    int number = 0;
    for (const Builtin& builtin : overloads) {
        text += name_for_calls(builtin, number, declaration_of(builtin, "_cl_" + builtin.name));
        const std::string offset = std::to_string(number * lanes);
        std::string values, outs;
        for (std::size_t i = 0; i < builtin.parameters.size(); ++i) {
            const auto& [type, space] = builtin.parameters[i];
            const std::string array = "a" + std::to_string(i);
            if (space == Space::none) {
                values += (values.empty() ? "" : ", ") + load(type, array, "i");
            } else {
                // A vector of three in memory has the room of four: it goes through the array's last places.
                values += ", (global " + type_name(type) + "*)(" + array + " + " +
                          std::to_string(static_cast<int>(overloads.size()) * lanes) + ")";
                outs = store(type, array + " + " + offset, "i",
                             "*(global " + type_name(type) + "*)(" + array + " + " +
                                 std::to_string(static_cast<int>(overloads.size()) * lanes) + ")");
            }
        }
        const std::string result = type_name(builtin.results[0]);
        body += "    for (int i = 0; i < " + std::to_string(lanes / builtin.width) + "; ++i) { " + result +
                " v = NAME" + std::to_string(number) + "(" + values + "); " +
                store(builtin.results[0], "r + " + offset, "i", "v") + " " + outs + " }\n";
        ++number;
    }
    return text + "kernel void k(" + parameters_of(overloads[0]) + ") {\n" + body + "}\n";
}

std::string timing_program(const Builtin& builtin, const std::string& prefix, int lanes, int turns) {
    std::string values, text = "#pragma OPENCL EXTENSION cl_khr_fp64 : enable\n";
    if (prefix == "_cl_")
        text += name_for_calls(builtin, 0, declaration_of(builtin, "_cl_" + builtin.name));
    else
        text += declaration_of(builtin, prefix + builtin.name) + "#define NAME0 " + prefix + builtin.name + "\n";
    for (std::size_t i = 0; i < builtin.parameters.size(); ++i) {
        const auto& [type, space] = builtin.parameters[i];
        const std::string array = "a" + std::to_string(i);
        values +=
            (values.empty() ? "" : ", ") +
            (space == Space::none ? load(type, array, "i") : "(global " + type_name(type) + "*)" + array + " + i");
    }
    return text + "kernel void k(" + parameters_of(builtin) + ") {\n    for (int turn = 0; turn < " +
           std::to_string(turns) + "; ++turn) {\n        for (int i = 0; i < " + std::to_string(lanes / builtin.width) +
           "; ++i) { " + type_name(builtin.results[0]) + " v = NAME0(" + values + "); " +
           store(builtin.results[0], "r", "i", "v") + " }\n        mem_fence(CLK_GLOBAL_MEM_FENCE);\n    }\n}\n";
}

}  // namespace tuvo::opencl

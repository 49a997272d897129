#include "frame/object/manifest.hpp"

#include <string>

namespace tuvo {

namespace {

/// `items` with ", " between them.
std::string join(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        if (!text.empty()) text += ", ";
        text += item;
    }
    return text;
}

// No string of a manifest needs an escape: names, types and registers are plain letters, digits and underscores.
std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string quoted_or_null(std::string_view text) { return text.empty() ? "null" : quoted(text); }

std::string field(std::string_view key, const std::string& value) { return quoted(key) + ": " + value; }

std::string object(const std::vector<std::string>& fields) { return '{' + join(fields) + '}'; }

std::string array(const std::vector<std::string>& items) { return '[' + join(items) + ']'; }

std::string_view rounding_name(Rounding rounding) {
    switch (rounding) {
    case Rounding::none: break;
    case Rounding::rte: return "rte";
    case Rounding::rtn: return "rtn";
    case Rounding::rtp: return "rtp";
    case Rounding::rtz: return "rtz";
    }
    return "";
}

std::string_view saturation_name(Saturation saturation) {
    switch (saturation) {
    case Saturation::none: break;
    case Saturation::nosat: return "nosat";
    case Saturation::sat: return "sat";
    }
    return "";
}

/// Whether a value travels in a general register.
bool in_general_register(Lane lane, int width) { return width == 1 && !is_floating(lane); }

/// Whether two results share one register.
bool packed_results(const Family& family, int width) { return width == 1 && family.results.size() == 2; }

std::string json_value(Lane lane, int width) {
    std::vector<std::string> fields{field("type", quoted(lane_name(lane))),
                                    field("lanes", std::to_string(physical_lanes(width)))};
    if (in_general_register(lane, width)) {
        fields.push_back(field("parts", "[]"));
        fields.push_back(field("register", quoted("general")));
    } else {
        std::vector<std::string> parts;
        for (int bits : part_bits(lane, width)) parts.push_back(std::to_string(bits));
        fields.push_back(field("parts", array(parts)));
    }
    return object(fields);
}

std::string json_values(const std::vector<Lane>& lanes, int width) {
    std::vector<std::string> values;
    for (Lane lane : lanes) values.push_back(json_value(lane, width));
    return array(values);
}

std::string json_out(const Family& family, int width) {
    if (!family.out) return "null";
    return object({field("type", quoted(lane_name(*family.out))), field("lanes", std::to_string(physical_lanes(width))),
                   field("bytes", std::to_string(out_bytes(family, width)))});
}

std::string json_preserved(const Family& family, int width) {
    std::vector<std::string> names;
    for (const char* name : {"rbx", "rbp", "r12", "r13", "r14", "r15", "rsp"}) names.push_back(quoted(name));
    Preserved kept = preserved(family, width);
    if (kept != Preserved::nothing_more)
        for (const char* name : {"rsi", "rdi"}) names.push_back(quoted(name));
    if (kept == Preserved::upper_vectors_and_pointers)
        for (int number = 8; number < 16; ++number) names.push_back(quoted("ymm" + std::to_string(number)));
    return array(names);
}

std::string json_export(const Family& family, int width) {
    std::string_view tier = tier_suffix(family.tier);
    if (!tier.empty()) tier.remove_prefix(1);
    return object({
        field("symbol", quoted(export_name(family, width))),
        field("name", quoted(short_name(family, width))),
        field("operation", quoted(family.operation)),
        field("element", quoted(lane_name(family.element))),
        field("tier", quoted(tier)),
        field("width", std::to_string(width)),
        field("rounding", quoted_or_null(rounding_name(family.rounding))),
        field("saturation", quoted_or_null(saturation_name(family.saturation))),
        field("form", quoted(call_form(family, width) == Form::memory ? "memory" : "registers")),
        field("arguments", json_values(family.arguments, width)),
        field("results", json_values(family.results, width)),
        field("packed", packed_results(family, width) ? "true" : "false"),
        field("out", json_out(family, width)),
        field("preserved", json_preserved(family, width)),
    });
}

std::string_view llvm_scalar(Lane lane) {
    switch (lane) {
    case Lane::f32: return "float";
    case Lane::f64: return "double";
    case Lane::i32:
    case Lane::u32: return "i32";
    case Lane::i64:
    case Lane::u64: break;
    }
    return "i64";
}

std::string llvm_vector(Lane lane, int bits) {
    int lanes = bits / 8 / lane_size(lane);
    return '<' + std::to_string(lanes) + " x " + std::string(llvm_scalar(lane)) + '>';
}

void append_parts(std::vector<std::string>& types, Lane lane, int width) {
    if (in_general_register(lane, width)) {
        types.emplace_back(llvm_scalar(lane));
        return;
    }
    for (int bits : part_bits(lane, width)) types.push_back(llvm_vector(lane, bits));
}

std::string llvm_structure(const std::vector<std::string>& types) {
    return types.size() == 1 ? types.front() : "{ " + join(types) + " }";
}

std::string llvm_result(const Family& family, int width) {
    // A packed pair is one register: a vector part, or two integers of 32 bits in one of 64.
    if (packed_results(family, width)) {
        Lane lane = family.results.front();
        return is_floating(lane) ? llvm_vector(lane, 128) : "i64";
    }
    std::vector<std::string> types;
    for (Lane lane : family.results) append_parts(types, lane, width);
    return llvm_structure(types);
}

/// A whole value in memory. An array and not a vector, since nothing is said of its alignment.
std::string llvm_array(Lane lane, int width) {
    return '[' + std::to_string(physical_lanes(width)) + " x " + std::string(llvm_scalar(lane)) + ']';
}

std::string llvm_declaration(const Family& family, int width) {
    std::vector<std::string> parameters;
    std::string result;
    bool memory = call_form(family, width) == Form::memory;
    if (memory) {
        std::vector<std::string> arrays;
        for (Lane lane : family.results) arrays.push_back(llvm_array(lane, width));
        std::string buffer = llvm_structure(arrays);
        parameters.push_back(buffer + "* sret(" + buffer + ")");
        for (Lane lane : family.arguments) {
            std::string type = llvm_array(lane, width);
            parameters.push_back(type + "* byval(" + type + ") align 8");
        }
        result = "void";
    } else {
        for (Lane lane : family.arguments) append_parts(parameters, lane, width);
        result = llvm_result(family, width);
    }
    if (family.out) parameters.push_back(std::string(llvm_scalar(*family.out)) + '*');
    bool stores = memory || family.out;
    const char* attributes = stores ? " #1" : " #0";
    return "declare " + result + " @" + export_name(family, width) + '(' + join(parameters) + ')' + attributes;
}

}  // namespace

void write_exports_json(std::ostream& out, const std::vector<const Family*>& built) {
    out << "{\n  " << field("soname", quoted(soname)) << ",\n  " << field("prefix", quoted(export_prefix)) << ",\n  "
        << quoted("exports") << ": [";
    const char* separator = "\n    ";
    for (const Family* family : built) {
        for (int width : widths) {
            out << separator << json_export(*family, width);
            separator = ",\n    ";
        }
    }
    out << "\n  ]\n}\n";
}

void write_exports_ll(std::ostream& out, const std::vector<const Family*>& built) {
    out << R"(; Declarations of the exports for LLVM 14, with typed pointers.
;
; A vector parameter is one register: values wider than 256 bits come as several parameters and return as structures.
; Values narrower than 128 bits travel in the low lanes of a 128-bit vector, whose other lanes are ignored on input and
; undefined on output; width 3 takes the place of width 4. Two results of width 1 share one register, lane 0 and lane 1,
; or the low and the high half of an i64.
;
; A calling function needs the target feature "avx", or else 256-bit values are split. Calls preserve more registers
; than the C convention of these declarations tells; relying on less is always correct. The attributes take the default
; floating-point environment for granted: rounding mode and exception flags do not count as memory.

)";
    for (const Family* family : built)
        for (int width : widths) out << llvm_declaration(*family, width) << '\n';
    out << "\nattributes #0 = { nounwind willreturn readnone }\n"
           "attributes #1 = { nounwind willreturn argmemonly }\n";
}

}  // namespace tuvo

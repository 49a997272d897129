#include "client/arguments.hpp"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "client/failure.hpp"

namespace tuvo::client {

const char* const argument_help =
    "  in:TYPE:FILE         memory with the bytes of FILE\n"
    "  list:TYPE:V,V,...    memory with these values\n"
    "  out:TYPE:FILE:COUNT  zeroed memory of COUNT values; written to FILE afterwards, as text to stdout if that is -\n"
    "  local:TYPE:COUNT     local memory of COUNT values\n"
    "  TYPE:V,V,...         a value, with one V for each lane\n"
    "TYPE is the element type: i8 u8 i16 u16 i32 u32 i64 u64 f32 f64. Files hold raw little-endian values. A vector\n"
    "of three lanes takes the room of four in memory.\n";

namespace {

[[noreturn]] void reject(const std::string& text, const std::string& why) {
    throw Failure("argument '" + text + "': " + why + "; --help tells the forms of an argument");
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1)
        pieces.push_back(text.substr(start, end - start));
    pieces.push_back(text.substr(start));
    return pieces;
}

template <typename T>
bool parse_integer(const std::string& text, T& value) {
    const bool hexadecimal = text.starts_with("0x");
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + (hexadecimal ? 2 : 0), last, value, hexadecimal ? 16 : 10);
    return error == std::errc() && end == last;
}

template <typename T>
bool parse_value(const std::string& text, T& value) {
    if constexpr (std::is_floating_point_v<T>) {
        // Rounding twice, through double, would miss the nearest float now and then.
        char* end = nullptr;
        if constexpr (std::is_same_v<T, float>)
            value = std::strtof(text.c_str(), &end);
        else
            value = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0';
    } else {
        return parse_integer(text, value);
    }
}

/// Calls `function` with a value of the scalar's C++ type.
template <typename Function>
auto with_type(Scalar scalar, Function function) {
    switch (scalar) {
    case Scalar::i8: return function(std::int8_t{});
    case Scalar::u8: return function(std::uint8_t{});
    case Scalar::i16: return function(std::int16_t{});
    case Scalar::u16: return function(std::uint16_t{});
    case Scalar::i32: return function(std::int32_t{});
    case Scalar::u32: return function(std::uint32_t{});
    case Scalar::i64: return function(std::int64_t{});
    case Scalar::u64: return function(std::uint64_t{});
    case Scalar::f32: return function(float{});
    case Scalar::f64: return function(double{});
    }
    std::abort();
}

Buffer parse_values(const std::string& argument, Scalar scalar, const std::string& list) {
    const std::vector<std::string> pieces = split(list, ',');
    const std::size_t bytes = static_cast<std::size_t>(traits(scalar).bytes);
    Buffer memory(pieces.size() * bytes);
    for (std::size_t i = 0; i < pieces.size(); ++i)
        with_type(scalar, [&](auto value) {
            if (!parse_value(pieces[i], value))
                reject(argument, "'" + pieces[i] + "' is not a value of type " + std::string(traits(scalar).name));
            std::memcpy(memory.data() + i * bytes, &value, bytes);
        });
    return memory;
}

Buffer zeroed(const std::string& argument, Scalar scalar, const std::string& count) {
    constexpr std::uint64_t limit = std::uint64_t{1} << 40;
    std::uint64_t values = 0;
    if (!parse_integer(count, values) || values == 0 || values > limit)
        reject(argument, "'" + count + "' is not a number of values");
    return Buffer(values * static_cast<std::size_t>(traits(scalar).bytes));
}

template <typename T>
void print_value(T value) {
    if constexpr (std::is_same_v<T, float>)
        std::printf("%.9g\n", static_cast<double>(value));
    else if constexpr (std::is_same_v<T, double>)
        std::printf("%.17g\n", value);
    else
        std::printf("%s\n", std::to_string(value).c_str());
}

/// "a value of f32 x 4".
std::string describe(const Argument& argument) {
    std::string text = argument.local ? "local memory" : argument.pointer ? "memory" : "a value";
    text += " of ";
    text += traits(argument.scalar).name;
    return text + " x " + std::to_string(argument.count());
}

bool fits(const Parameter& parameter, const Argument& argument) {
    if (parameter.pointer != argument.pointer || parameter.local != argument.local) return false;
    if (!parameter.element) return parameter.pointer;
    if (*parameter.element != argument.scalar) return false;
    return parameter.pointer || static_cast<std::size_t>(parameter.lanes) == argument.count();
}

}  // namespace

Buffer read_file(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) throw Failure("cannot read '" + path + "': " + error.message());
    std::ifstream file(path, std::ios::binary);
    Buffer memory(size);
    file.read(reinterpret_cast<char*>(memory.data()), static_cast<std::streamsize>(size));
    if (!file) throw Failure("cannot read '" + path + "': " + std::strerror(errno));
    return memory;
}

Argument parse_argument(const std::string& text) {
    const std::size_t colon = text.find(':');
    const std::string head = text.substr(0, colon);
    std::string rest = colon == std::string::npos ? "" : text.substr(colon + 1);
    Argument argument;
    argument.text = text;
    if (const ScalarTraits* type = find_scalar(&ScalarTraits::name, head)) {
        argument.scalar = type->scalar;
        argument.memory = parse_values(text, type->scalar, rest);
        return argument;
    }
    const std::string type_name = rest.substr(0, rest.find(':'));
    const ScalarTraits* type = find_scalar(&ScalarTraits::name, type_name);
    if (!type || rest.size() == type_name.size()) reject(text, "no such form or element type");
    rest.erase(0, type_name.size() + 1);
    argument.scalar = type->scalar;
    argument.pointer = true;
    if (head == "in") {
        argument.memory = read_file(rest);
    } else if (head == "list") {
        argument.memory = parse_values(text, type->scalar, rest);
    } else if (head == "out") {
        const std::size_t last = rest.rfind(':');
        if (last == std::string::npos || last == 0) reject(text, "a file or a number of values is missing");
        argument.output = rest.substr(0, last);
        argument.memory = zeroed(text, type->scalar, rest.substr(last + 1));
    } else if (head == "local") {
        argument.local = true;
        argument.memory = zeroed(text, type->scalar, rest);
    } else {
        reject(text, "no such form");
    }
    return argument;
}

void fit_arguments(const KernelSignature& kernel, std::vector<Argument>& arguments) {
    if (arguments.size() != kernel.parameters.size()) {
        std::string list;
        for (const Parameter& parameter : kernel.parameters) list += (list.empty() ? "" : ", ") + parameter.spelling();
        const std::string wanted = std::to_string(kernel.parameters.size());
        throw Failure("kernel '" + kernel.name + "' takes " + wanted + " arguments (" + list + "), but " +
                      std::to_string(arguments.size()) + " are given");
    }
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (!fits(kernel.parameters[i], arguments[i]))
            reject(arguments[i].text, "parameter " + std::to_string(i + 1) + " of kernel '" + kernel.name + "' is '" +
                                          kernel.parameters[i].spelling() + "', and this is " + describe(arguments[i]));
        if (kernel.parameters[i].lanes == 3)
            arguments[i].memory =
                arguments[i].memory.padded_to(4 * static_cast<std::size_t>(traits(arguments[i].scalar).bytes));
    }
}

void run_on_arguments(const Program& program, const KernelSignature& kernel, std::vector<Argument>& arguments,
                      std::uint64_t size) {
    std::vector<void*> pointers(arguments.size()), values;
    std::vector<Watched> buffers;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        pointers[i] = arguments[i].memory.data();
        values.push_back(arguments[i].pointer ? &pointers[i] : pointers[i]);
        buffers.push_back(
            {&arguments[i].memory, "argument " + std::to_string(i + 1) + ", '" + arguments[i].text + "'"});
    }
    const BoundsWatch watch(kernel.name, buffers);
    run_kernel(program, kernel, values, size, kernel.name);
}

void write_output(const Argument& argument) {
    if (argument.output.empty()) return;
    if (argument.output == "-") {
        const std::size_t bytes = static_cast<std::size_t>(traits(argument.scalar).bytes);
        for (std::size_t i = 0; i < argument.count(); ++i)
            with_type(argument.scalar, [&](auto value) {
                std::memcpy(&value, argument.memory.data() + i * bytes, bytes);
                print_value(value);
            });
        return;
    }
    const Buffer& memory = argument.memory;
    std::ofstream file(argument.output, std::ios::binary);
    file.write(reinterpret_cast<const char*>(memory.data()), static_cast<std::streamsize>(memory.size()));
    if (!file.flush()) throw Failure("cannot write '" + argument.output + "': " + std::strerror(errno));
}

}  // namespace tuvo::client

#include "bench/peers.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <array>

#include "bench/headers.hpp"
#include "bench/instructions.hpp"
#include "bench/scalar.hpp"

namespace tuvo {
namespace {

void* open_library(const char* name) { return dlopen(name, RTLD_NOW | RTLD_LOCAL); }
void* vector_library() {
    static void* const handle = open_library("libsleef.so.3");
    return handle;
}
void* scalar_library() {
    static void* const handle = open_library("libm.so.6");
    return handle;
}

/// Operations that go by another name there, or by a name that means another thing. Empty: no counterpart.
struct Renamed {
    std::string_view operation, vector, scalar;
};
constexpr Renamed renamed[] = {
    {"nan", "", ""},  // C's nan reads a string
    {"div", "", ""},  // and its div divides integers
    {"powr", "pow", "pow"},
    {"pown", "pow", "pow"},
    {"rootn", "pow", "pow"},
    {"lgammar", "", "lgamma_r"},
    {"sincosreg", "sincos", ""},
    {"sincos", "sincos", ""},  // C's stores both
    {"frexp", "", "frexp"},    // the vector library splits it in two
    {"remquo", "", "remquo"},
    // Half turns beside radians, which take one product less.
    {"asinpi", "asin", "asin"},
    {"acospi", "acos", "acos"},
    {"atanpi", "atan", "atan"},
    {"atan2pi", "atan2", "atan2"},
};

struct Names {
    std::string vector, scalar;
};
Names names_of(const Family& family) {
    if (!is_floating(family.element) || family.stem.starts_with("cvt")) return {};
    for (const Renamed& entry : renamed)
        if (entry.operation == family.operation) return {std::string(entry.vector), std::string(entry.scalar)};
    return {family.operation, family.operation};
}

/// The family that a peer's function is that of: of pow beside a kernel with an integer exponent, of asin beside one of
/// half turns.
const Family& called_like(const Family& family, const std::string& operation) {
    if (family.outputs().size() != 1) return family;
    const Family* called = find_family(family.element == Lane::f32 ? operation + "f" : operation);
    return called ? *called : family;
}

std::optional<Entry> find_vector(const Family& family, int width, const std::string& operation,
                                 std::initializer_list<const char*> accuracies) {
    if (operation.empty() || !vector_library()) return std::nullopt;
    const int narrow = 16 / lane_size(family.element);
    // Eight ints beside floats travel in a structure of two halves there, through memory.
    const bool halves = lane_size(family.element) == 4 && (operation == "ilogb" || operation == "ldexp");
    const int lanes = width <= narrow || halves ? narrow : 2 * narrow;
    for (const char* accuracy : accuracies) {
        const std::string name = "Sleef_" + operation + (family.element == Lane::f32 ? "f" : "d") +
                                 std::to_string(lanes) + "_" + accuracy + (lanes == narrow ? "sse4" : "avx");
        if (const void* address = dlsym(vector_library(), name.c_str())) {
            const bool pair = family.outputs().size() == 2;
            const Family& called = called_like(family, operation);
            return Entry{name,
                         address,
                         pair ? hidden_shape_of(called, lanes) : shape_of(called, lanes),
                         lanes,
                         (width + lanes - 1) / lanes,
                         &called};
        }
    }
    return std::nullopt;
}

using Finder = const void* (*)(std::string_view operation, int lane_bytes, int lanes);

std::optional<Entry> find_compiled(const char* name, Finder find, const Family& family, int width) {
    if (!is_floating(family.element) || family.stem.starts_with("cvt")) return std::nullopt;
    const int bytes = lane_size(family.element), narrow = 16 / bytes;
    const int lanes = width <= narrow ? narrow : 2 * narrow;
    const void* function = find(family.operation, bytes, lanes);
    if (!function) return std::nullopt;
    return Entry{name, function, shape_of(family, lanes), lanes, (width + lanes - 1) / lanes};
}

}  // namespace

Peers peers_of(const Family& family, int width) {
    const auto [vector, scalar] = names_of(family);
    Peers peers;
    peers.accurate = find_vector(family, width, vector, {"u10", "u05", "u15", ""});
    if (!peers.accurate) peers.accurate = find_compiled("instructions", by_instructions, family, width);
    peers.xsimd = find_compiled("xsimd", by_xsimd, family, width);
    peers.eigen = find_compiled("eigen", by_eigen, family, width);
    peers.fast = find_vector(family, width, vector, {"u35"});
    if (!scalar.empty() && scalar_library()) {
        std::string name = scalar;
        if (family.element == Lane::f32) name.insert(name.ends_with("_r") ? name.size() - 2 : name.size(), 1, 'f');
        if (const void* address = dlsym(scalar_library(), name.c_str())) {
            const Family& called = called_like(family, scalar);
            peers.scalar = Entry{name, address, shape_of(called, 1), 1, width, &called};
        }
    }
    const int lanes = width < 3 ? 1 : std::min(width, 8);
    if (const void* address = scalar_loop(family, lanes))
        peers.scalar = Entry{"loop", address, lanes == 1 ? shape_of(family, 1) : hidden_shape_of(family, lanes), lanes,
                             width / lanes};
    return peers;
}

bool have_vector_peer() { return vector_library() != nullptr; }

Range input_range(const Family& family, int argument) {
    struct Domain {
        std::string_view operations;  ///< each between spaces
        Range range;
    };
    constexpr Domain domains[] = {
        {" acos asin atanh acospi asinpi ", {-0.9, 0.9}},
        {" acosh ", {1.1, 10}},
        {" log1p ", {-0.9, 10}},
        {" exp exp2 exp10 expm1 sinh cosh tanh erf ", {-4, 4}},
        {" sin cos tan sincos sincosreg sinpi cospi tanpi atan asinh atanpi cbrt ", {-3, 3}},
    };
    // Quotients of many lengths: the processor's division takes its time by that.
    if (family.element == Lane::i32 || family.element == Lane::u32)
        return argument == 0 ? Range{1e6, 2e9} : Range{2, 1e5};
    if (!is_floating(family.arguments[static_cast<std::size_t>(argument)])) return {2, 9};
    for (const Domain& domain : domains)
        if (domain.operations.find(" " + family.operation + " ") != std::string_view::npos) return domain.range;
    return {0.1, 10};
}

std::optional<Range> large_range(const Family& family) {
    for (std::string_view operation : {"sin", "cos", "tan", "sincos", "sincosreg"})
        if (family.operation == operation) return Range{1e15, 1e30};
    return std::nullopt;
}

}  // namespace tuvo

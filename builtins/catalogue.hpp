// Which built-ins of OpenCL C the library's kernels can define: every overload, as plain data.
//
// The catalogue is made from the operation table. An operation that OpenCL C has no built-in for (`rcbrt`, or `exp10`
// in native_ for doubles) is listed like the others, for programs that declare it themselves.
#pragma once

#include <string>
#include <vector>

#include "builtins/scalar.hpp"

namespace tuvo::builtins {

/// The type of a value: one lane is a scalar.
struct Type {
    Scalar scalar;
    int lanes;

    bool operator==(const Type&) const = default;
};

/// Where a parameter's pointer points; `none` for a value.
enum class Space : std::uint8_t { none, private_memory, global, local, generic };
inline constexpr std::array pointer_spaces{Space::private_memory, Space::global, Space::local, Space::generic};

struct Parameter {
    Type type;
    Space space = Space::none;
};

/// What a conversion does to a value of one lane type.
struct Conversion {
    Scalar source, target;
    std::string rounding;  ///< "rte", "rtn", "rtp", "rtz": as the name says, or else the default of the target type
    bool saturated;
};

struct Builtin {
    std::string name;     ///< "native_log", "convert_int4_sat_rtn"; of a plain one the whole symbol
    bool mangled = true;  /// whether the symbol tells the parameters' types
    std::vector<Parameter> parameters;
    std::vector<Type> results;  ///< one; two for some plain names
    /// The kernel that does the work; its first result or its first argument may be of another type if it is a step of
    /// a conversion. Null if instructions do it all.
    const Family* family = nullptr;
    int width = 1;
    std::optional<Conversion> conversion{};

    /// "native_log(float4)".
    std::string signature() const;
};

/// What the built-ins without a tier word in front are made of.
enum class Plain : std::uint8_t {
    standard,  ///< the default tiers
    relaxed,   ///< the tiers `_rm` where there is one
    native,    ///< the tiers `_native` where there is one
};

/// All built-ins that these families can define, each symbol once.
std::vector<Builtin> catalogue(const std::vector<const Family*>& families, Plain plain);

}  // namespace tuvo::builtins

// From the name of an OpenCL C built-in to the kernel that it asks for.
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

#include "client/scalar.hpp"

namespace tuvo::client {

/// An overloaded built-in, as its mangled name tells it.
struct Builtin {
    std::string name;              ///< "native_log"
    std::optional<Scalar> scalar;  ///< element type of the first parameter; none if that isn't a number or a vector
    int lanes = 1;                 ///< lanes of the first parameter

    /// "native_log(float4)".
    std::string signature() const;
};

/// Reads "_Z10native_logDv4_f"; none for a name that isn't mangled.
std::optional<Builtin> parse_mangled(std::string_view mangled);

/// The words of `convert_<target><lanes>[_sat][_<rounding>]`.
struct Conversion {
    Scalar target;
    bool saturated;
    std::string rounding;  ///< "rte", "rtn", "rtp", "rtz", or empty: the default of the target type
};

/// Reads "convert_int4_sat_rtn"; none for any other name.
std::optional<Conversion> parse_conversion(std::string_view name);

/// What the manifest calls a kernel.
struct KernelKey {
    std::string operation;  ///< "log", "cvtfptoi32rtesat"
    std::string tier;       ///< "", "native", "half", "rm"
    Scalar element;
    int width;

    auto operator<=>(const KernelKey&) const = default;
};

/// The kernel that the built-in asks for, whether a library has it or not; none for a built-in that no kernel could be
/// named for.
std::optional<KernelKey> requested_kernel(const Builtin& builtin);

}  // namespace tuvo::client

// The element types of OpenCL C, with every name that they have.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "frame/description/operations.hpp"

namespace tuvo {

enum class Scalar : std::uint8_t { i8, u8, i16, u16, i32, u32, i64, u64, f32, f64 };

struct ScalarTraits {
    Scalar scalar;
    std::string_view name;    ///< on the command line: "f32"
    std::string_view opencl;  ///< in OpenCL C and in the manifest: "float"
    char mangled;             ///< in the name of an overloaded function: 'f'
    int bytes;
    bool floating;
    bool is_signed;
};

inline constexpr std::array<ScalarTraits, 10> scalars{{
    {Scalar::i8, "i8", "char", 'c', 1, false, true},
    {Scalar::u8, "u8", "uchar", 'h', 1, false, false},
    {Scalar::i16, "i16", "short", 's', 2, false, true},
    {Scalar::u16, "u16", "ushort", 't', 2, false, false},
    {Scalar::i32, "i32", "int", 'i', 4, false, true},
    {Scalar::u32, "u32", "uint", 'j', 4, false, false},
    {Scalar::i64, "i64", "long", 'l', 8, false, true},
    {Scalar::u64, "u64", "ulong", 'm', 8, false, false},
    {Scalar::f32, "f32", "float", 'f', 4, true, true},
    {Scalar::f64, "f64", "double", 'd', 8, true, true},
}};

constexpr const ScalarTraits& traits(Scalar scalar) { return scalars[static_cast<std::size_t>(scalar)]; }

/// The element type that a lane of a kernel has.
constexpr Scalar scalar_of_lane(Lane lane) {
    switch (lane) {
    case Lane::f32: return Scalar::f32;
    case Lane::f64: return Scalar::f64;
    case Lane::i32: return Scalar::i32;
    case Lane::u32: return Scalar::u32;
    case Lane::i64: return Scalar::i64;
    case Lane::u64: break;
    }
    return Scalar::u64;
}

/// The scalar whose `field` is `value`, or null: `find_scalar(&ScalarTraits::opencl, "float")`.
template <typename Field, typename Value>
constexpr const ScalarTraits* find_scalar(Field ScalarTraits::*field, const Value& value) {
    for (const ScalarTraits& candidate : scalars)
        if (candidate.*field == value) return &candidate;
    return nullptr;
}

}  // namespace tuvo

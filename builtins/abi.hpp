// How a runtime's compiler names a built-in and passes its values: by the rules of its target.
#pragma once

#include <string>

#include "builtins/catalogue.hpp"

namespace tuvo::builtins {

enum class Target : std::uint8_t {
    spir,    ///< vectors as they are, pointers with numbered address spaces
    x86_64,  ///< the C rules of x86-64: small vectors as integers or doubles, large ones behind pointers
};

/// How pointers are spelt.
enum class Pointers : std::uint8_t {
    typed,   ///< as LLVM 14 and 15 read them
    opaque,  ///< as LLVM 15 and later read them
};

struct Abi {
    Target target = Target::spir;
    /// The widest vector register that the runtime's compiler passes values in, in bits: 128, 256 or 512. x86-64 only.
    int register_bits = 256;
    Pointers pointers = Pointers::typed;
    std::string prefix;  ///< in front of every built-in's name: "_cl_"
};

/// "_Z3logDv4_f", "_Z5fractDv4_fPU3AS1S_"; of a plain built-in its name.
std::string symbol(const Builtin& builtin, const Abi& abi);

/// The type in LLVM's language: "float", "<4 x float>". Signed and unsigned integers are the same.
std::string llvm_type(const Type& type);

/// Pointer to a type, in an address space of LLVM's.
std::string llvm_pointer(const std::string& type, int address_space, Pointers pointers);

/// The number of an address space.
int address_space(Space space, Target target);

/// How a value crosses the call of a built-in.
struct Passing {
    bool in_memory = false;  ///< parameters only: a pointer to a copy
    std::string as;          ///< the type that it has on the way; of a value in memory its own
};
Passing passing(const Type& type, const Abi& abi, bool result);

/// Bytes that a value occupies: a vector of three lanes has the room of four.
int size_in_memory(const Type& type);

}  // namespace tuvo::builtins

// Which functions of C's <math.h> the library has kernels for.
#pragma once

#include <string>
#include <vector>

#include "frame/description/families.hpp"

namespace tuvo {

/// Who declares a function, beyond C99.
enum class Declared : std::uint8_t {
    c99,
    gnu,  ///< where _GNU_SOURCE is defined
    c23,  ///< by C libraries with the functions of C23
};

/// A function of <math.h> and the family that computes it, default tier.
struct CFunction {
    std::string name;  ///< with C's type letter: "sinf", "lgammaf_r"
    Declared declared = Declared::c99;
    const Family* family = nullptr;
    /// Its arguments by value are those of the family, then come pointers for what it stores: the family's out-value,
    /// and before it the first result if C's function returns nothing (`sincos`).
    bool stores_result = false;

    /// Whether a compiler may call a vector form by the plain declaration: nothing is stored.
    bool pure() const { return !family->out && !stores_result; }
};

/// In the order of the operation table; only of families that are built.
std::vector<CFunction> c_functions();

/// The spelling of a lane's type in C: "float", "double", "int" ...
std::string_view c_type(Lane lane);
/// "double pow(double, double)"; of pointers each argument is named.
std::string c_prototype(const CFunction& function);

}  // namespace tuvo

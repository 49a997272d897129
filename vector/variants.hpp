// Vector variants of C functions, by the vector function ABI of x86-64, as jumps to kernels.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "vector/functions.hpp"

namespace tuvo {

/// A set of registers that variants are made for, by the letter that stands for it in their names.
struct RegisterSet {
    char letter;
    int floating_bits;  ///< of a register that holds floating-point lanes
    int integer_bits;   ///< of one that holds integer lanes
};

/// SSE, AVX, AVX2, AVX-512. The first of them, too, is for processors with AVX: the kernels need it.
inline constexpr RegisterSet register_sets[] = {{'b', 128, 128}, {'c', 256, 128}, {'d', 256, 256}, {'e', 512, 512}};

/// One vector variant of a function.
struct Variant {
    const CFunction* function;
    RegisterSet set;
    int lanes;

    /// "_ZGVcN8v_sinf": N stands for unmasked, v for a vector, l4 for a pointer that moves by 4 bytes from lane to lane.
    std::string symbol() const;
};

/// All of them, function by function. The number of lanes is what fills a register with the function's result, or with
/// its first argument if it returns nothing.
std::vector<Variant> variants_of(const std::vector<CFunction>& functions);

/// Sizes in bits of the registers that a value takes, lower lanes first.
std::vector<int> registers_of(const RegisterSet& set, Lane lane, int lanes);

/// Assembly text that defines the variants. Most are a jump: a kernel takes and returns its values as the ABI has them.
void write_variants(std::ostream& out, const std::vector<Variant>& variants);

}  // namespace tuvo

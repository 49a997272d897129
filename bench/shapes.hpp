// The shape of a call: where its values travel, as far as a measuring loop needs to know. Kernels of one shape share
// the loops that `tuvo-bench-loops` writes for it.
#pragma once

#include <string>
#include <vector>

#include "frame/description/operations.hpp"

namespace tuvo {

struct Shape {
    enum class Kind : std::uint8_t {
        registers,  ///< arguments and results in registers
        hidden,     ///< arguments in registers, results in memory behind rdi: how C returns a pair of vectors
        memory,     ///< arguments on the stack, results in memory behind rdi
    };
    /// A part of a value: a vector register or an integer register, or the same in memory.
    struct Part {
        int bytes;     ///< 4, 8, 16 or 32
        bool general;  ///< in an integer register
        int offset;    ///< in the record
    };
    Kind kind = Kind::registers;
    std::vector<Part> arguments, results;
    bool out_pointer = false;
    int out_offset = 0;   ///< of the value that is stored through the pointer, in the output record
    int input_bytes = 0;  ///< of one call's record of arguments
    int output_bytes = 0;

    /// Tells shapes apart, and is fit for a symbol: "registers_yy_y".
    std::string key() const;
};

/// How `family` is called at `width`.
Shape shape_of(const Family& family, int width);
/// The same arguments, with all outputs returned through a hidden pointer.
Shape hidden_shape_of(const Family& family, int width);

}  // namespace tuvo

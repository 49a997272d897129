// What a layout is made of, and what is settled before its first instruction: the sizes of parts, and in which form
// values will be wanted. Nothing here changes afterwards, and nothing here writes instructions.
#pragma once

#include <vector>

#include "frame/description/program.hpp"
#include "frame/generator/blocks.hpp"

namespace tuvo {

/// The two forms of a value: in parts as wide as the call boundary has them, or in halves of 128 bits.
enum class Shape : std::uint8_t { whole, half };

struct Plan {
    Program program;  ///< where a value has two ways, the one that this width takes
    const BlockLayout& blocks;
    const Family& family;
    int width;
    std::vector<bool> live;    ///< by node: whether anything needs it
    bool narrow = false;       ///< whole parts are of 128 bits, too
    bool interleaved = false;  ///< 64-bit lanes, and floats made of them, lie in the order of unpacked words
    std::vector<bool>
        halves_wanted;  ///< by node: whether an integer instruction reads it, perhaps through bit operations
};

Plan make_plan(const Program& program, const BlockLayout& blocks, const Family& family, int width);

// Sizes.

int lanes(const Plan& plan);
bool scalar(const Plan& plan);
/// Whether the family works in 64-bit lanes; then 32-bit values travel beside them in 128-bit registers.
bool wide_family(const Plan& plan);
int whole_count(const Plan& plan, Type type);
int half_count(const Plan& plan, Type type);
int whole_bits(const Plan& plan, Type type);
/// Whether whole parts and halves of the type differ.
bool split(const Plan& plan, Type type);
int count_of(const Plan& plan, Type type, Shape shape);
int bits_of(const Plan& plan, Type type, Shape shape);
/// Bits of a joined mask that stand for lanes; 0 where all do. At widths 1 and 2 the lanes above hold copies.
int mask_cut(const Plan& plan);

// Nodes.

bool is_floating(Type type);
bool is_integer(Type type);
bool is_bitwise(Op op);
const Node& node_of(const Plan& plan, int node);
bool is_constant(const Plan& plan, int node);
bool is_nan_constant(const Plan& plan, int node);
/// The node whose registers a value has: a change of type is none of the machine's business.
int root(const Plan& plan, int node);
/// Whether a value comes from the integer side, so that bit operations on it stay there.
bool integer_domain(const Plan& plan, int node);
/// Whether a node or a rare test reads the value.
bool is_read(const Plan& plan, int node);

}  // namespace tuvo

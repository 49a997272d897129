// The recorded form of a description: a list of operations on one lane.
//
// The list is what everything else works on: the interpreter runs it on one lane, the layout spreads it over a width.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "frame/description/estimates.hpp"
#include "frame/description/operations.hpp"
#include "frame/description/tables.hpp"

namespace tuvo {

/// Type of a lane value: numbers, or a mask of all ones or all zeros of that size.
enum class Type : std::uint8_t { f32, f64, i32, i64, m32, m64, none };

constexpr int type_size(Type type) {
    return type == Type::none ? 0 : type == Type::f32 || type == Type::i32 || type == Type::m32 ? 4 : 8;
}

enum class Op : std::uint8_t {
    argument,  ///< imm: index
    constant,  ///< imm: pattern, or index into Program::quads for a row of four different values
    // Floating point and integer arithmetic. min and max return the second operand when the first is not smaller or
    // larger, as the processor does; the integer forms are signed, the u forms unsigned.
    add,
    sub,
    mul,
    div,
    min,
    max,
    umin,
    umax,
    sqrt,
    reciprocal,
    reciprocal_sqrt,
    round,           ///< imm: rounding immediate
    multiply_words,  ///< i64: unsigned product of the low words
    // Bit operations; and_not is ~a & b. Shift counts are immediates, and_each shifts by a lane's own count.
    bit_and,
    bit_or,
    bit_xor,
    and_not,
    shift_left,
    shift_right,
    shift_right_signed,
    shift_left_each,
    shift_right_each,
    // Masks and selection.
    compare,  ///< floating point; imm: predicate immediate of the compare instruction
    equal,
    greater,  ///< integers, signed
    select,   ///< args: mask, value where set, value where clear
    bitcast,
    // Conversions.
    int_to_float,        ///< i32 to f32 or f64
    float_to_int,        ///< f32 or f64 to i32, in the current rounding mode
    float_to_int_trunc,  ///< the same, toward zero
    widen,
    narrow,  ///< f32 to f64; f64 to f32
    zero_extend,
    sign_extend,
    low_word,
    high_word,   ///< between 32-bit and 64-bit integer lanes
    join_words,  ///< high word, low word
    mask_widen,
    mask_narrow,
    // Tables.
    lookup4,  ///< args: quad constant, i32 control; low two bits select
    gather,   ///< args: byte offset; imm: index into Program::gathers; yields no value itself
    element,  ///< args: gather; imm: which of the values it loaded
    // Control.
    join,          ///< args: value before the section, value from it; imm: the section
    by_part_size,  ///< args: value where the family's lanes fill parts of 128 bits, value where of 256
};

struct Node {
    Op op = Op::argument;
    Type type = Type::none;
    std::array<int, 3> args{-1, -1, -1};
    std::uint64_t imm = 0;
    int section = 0;
    int block = -1;     ///< of constants: the constant block, or -1 for the kernel's own pool
    bool quad = false;  ///< of constants: imm is an index into Program::quads
    std::string name;   ///< for comments in the generated code
};

/// A load of `count` neighbouring values per lane from a table.
struct Gather {
    int table = 0;                   ///< index into Program::tables
    int count = 1;                   ///< neighbouring values
    std::int64_t bias = 0;           ///< byte offset that the index carries too much; folded into the displacement
    std::int64_t low = 0, high = 0;  ///< range of the index as the program gives it, proven or claimed, in bytes
};

struct TableUse {
    RawTable data;
    int block = 0;
    std::string name;
};

/// A stretch of nodes with a condition. Section 0 is the whole program.
struct Section {
    enum class Kind : std::uint8_t { main, any_lane, repair };
    Kind kind = Kind::main;
    int parent = 0;
    int mask = -1;            ///< any_lane: lanes that need it. repair: lanes that it finishes
    std::vector<int> before;  ///< values that the section replaces, in the parent
    std::vector<int> after;   ///< their replacements, in the section
    std::vector<int> joined;  ///< the joins in the parent
};

/// A claim that a node's value lies in [low, high], as a signed integer; the interpreter checks it.
struct Claim {
    int node;
    std::int64_t low, high;
};

struct RareTest {
    int section;
    int mask;  ///< node; rare only where the section's own mask is set too
};

struct Program {
    std::string name;
    std::vector<Type> argument_types;
    std::vector<Node> nodes;
    std::vector<Section> sections{Section{}};
    std::vector<std::array<std::uint32_t, 4>> quads;
    std::vector<Gather> gathers;
    std::vector<TableUse> tables;
    std::vector<Claim> claims;
    std::vector<int> outputs;  ///< results, then the out-value
    std::vector<RareTest> rare;
    bool always_rare = false;   ///< every lane goes to the rare routine; outputs are still defined
    bool nearest_only = false;  ///< every lane does unless MXCSR and the x87 control word both round to nearest
    int blocks = 0;             ///< constant blocks of the family
};

Type type_of(Lane lane);

/// Gives each gather the range of its index, as far as it can be proven or is claimed.
void find_gather_ranges(Program& program);

/// Throws std::invalid_argument with a message that names the node where the program breaks a rule: operand types, a
/// table index whose range is neither provable nor claimed, a table read outside its data.
void validate(const Program& program);

/// What a lane yields. `rare` lanes go to the rare routine, with `outputs` as they stand before it.
struct LaneResult {
    std::vector<std::uint64_t> outputs;
    bool rare = false;
};

/// Runs the program on one lane, operation by operation, bit for bit as the processor does. Values of 32-bit types are
/// in the low 32 bits. With `enter_sections`, any-lane sections run even where the lane itself doesn't need them, as
/// happens beside a lane that does; with `wide_parts`, as at widths whose parts have 256 bits. Throws std::logic_error
/// when a claimed range doesn't hold.
LaneResult interpret(const Program& program, std::span<const std::uint64_t> arguments, bool enter_sections = false,
                     bool wide_parts = false, const Estimates& estimates = {});

}  // namespace tuvo

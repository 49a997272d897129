// The notation in which kernels are described: what one lane does, as a plain C++ function.
//
// Values are handles to recorded operations; every operator is one machine operation, in the order written. Nothing is
// re-associated, folded or contracted. A description says nothing of widths, registers, parts or memory.
//
//     F32 negated_square(F32 x) {
//         rare_if(!(abs(x) <= f32(0x5f7fffff)));
//         return -1.0f * (x * x);
//     }
#pragma once

#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "frame/description/program.hpp"

namespace tuvo {

// clang-format off: constrained templates on one line each read as a list

/// Appends a node to the program being recorded; returns its index.
int record(Op op, Type type, std::array<int, 3> args = {-1, -1, -1}, std::uint64_t imm = 0);
Program& recording();
int record_constant(Type type, std::uint64_t pattern);
int record_quad(Type type, std::array<std::uint32_t, 4> patterns);
void name_node(int node, const char* name);

template <Type T>
struct Value {
    static constexpr Type type = T;
    int node = -1;

    Value() = default;
    explicit Value(int recorded, std::nullptr_t) : node(recorded) {}
    Value(float c) requires(T == Type::f32) : node(record_constant(T, __builtin_bit_cast(std::uint32_t, c))) {}
    Value(double c) requires(T == Type::f64) : node(record_constant(T, __builtin_bit_cast(std::uint64_t, c))) {}
    Value(std::int64_t c) requires(T == Type::i32 || T == Type::i64)
        : node(record_constant(T, T == Type::i32 ? std::uint32_t(c) : std::uint64_t(c))) {}

    /// Names the value in the generated code's comments.
    Value as(const char* name) const {
        name_node(node, name);
        return *this;
    }
};

using F32 = Value<Type::f32>;
using F64 = Value<Type::f64>;
using I32 = Value<Type::i32>;
using I64 = Value<Type::i64>;
using M32 = Value<Type::m32>;
using M64 = Value<Type::m64>;

template <Type T>
Value<T> make(Op op, std::array<int, 3> args, std::uint64_t imm = 0) {
    return Value<T>(record(op, T, args, imm), nullptr);
}

/// Constants by bit pattern.
inline F32 f32(std::uint32_t pattern) { return F32(record_constant(Type::f32, pattern), nullptr); }
inline F64 f64(std::uint64_t pattern) { return F64(record_constant(Type::f64, pattern), nullptr); }
inline I32 i32(std::uint32_t pattern) { return I32(record_constant(Type::i32, pattern), nullptr); }
inline I64 i64(std::uint64_t pattern) { return I64(record_constant(Type::i64, pattern), nullptr); }
/// Four different values that repeat through a row, for lookup4.
inline F32 quad_f32(std::array<std::uint32_t, 4> p) { return F32(record_quad(Type::f32, p), nullptr); }

constexpr bool is_float(Type t) { return t == Type::f32 || t == Type::f64; }
constexpr bool is_int(Type t) { return t == Type::i32 || t == Type::i64; }
constexpr bool is_mask(Type t) { return t == Type::m32 || t == Type::m64; }
constexpr Type mask_of(Type t) { return type_size(t) == 4 ? Type::m32 : Type::m64; }
constexpr Type int_of(Type t) { return type_size(t) == 4 ? Type::i32 : Type::i64; }
constexpr Type float_of(Type t) { return type_size(t) == 4 ? Type::f32 : Type::f64; }

// A plain number beside a value becomes a constant of the value's type.
template <Type T>
using Same = std::type_identity_t<Value<T>>;
#define TUVO_BINARY(NAME, OP, RULE)                                                                             \
    template <Type T> requires(RULE) Value<T> NAME(Value<T> a, Same<T> b) { return make<T>(OP, {a.node, b.node, -1}); }
TUVO_BINARY(operator+, Op::add, !is_mask(T))
TUVO_BINARY(operator-, Op::sub, !is_mask(T))
TUVO_BINARY(operator*, Op::mul, is_float(T) || T == Type::i32)
TUVO_BINARY(operator/, Op::div, is_float(T))
TUVO_BINARY(operator&, Op::bit_and, true)
TUVO_BINARY(operator|, Op::bit_or, true)
TUVO_BINARY(operator^, Op::bit_xor, true)
/// The processor's minimum and maximum: the second operand when either is a NaN or both are zeros.
TUVO_BINARY(min, Op::min, is_float(T) || T == Type::i32)
TUVO_BINARY(max, Op::max, is_float(T) || T == Type::i32)
TUVO_BINARY(unsigned_min, Op::umin, T == Type::i32)
TUVO_BINARY(unsigned_max, Op::umax, T == Type::i32)
/// ~a & b.
TUVO_BINARY(and_not, Op::and_not, true)
/// Each 64-bit lane shifted by its own count; counts of 64 and more, read as unsigned, give zero.
TUVO_BINARY(shift_left_each, Op::shift_left_each, T == Type::i64)
TUVO_BINARY(shift_right_each, Op::shift_right_each, T == Type::i64)
#undef TUVO_BINARY
inline F32 operator+(float a, F32 b) { return F32(a) + b; }
inline F32 operator-(float a, F32 b) { return F32(a) - b; }
inline F32 operator*(float a, F32 b) { return F32(a) * b; }
inline F32 operator/(float a, F32 b) { return F32(a) / b; }
inline F64 operator+(double a, F64 b) { return F64(a) + b; }
inline F64 operator-(double a, F64 b) { return F64(a) - b; }
inline F64 operator*(double a, F64 b) { return F64(a) * b; }
inline F64 operator/(double a, F64 b) { return F64(a) / b; }

template <Type T> requires(is_int(T)) Value<T> operator<<(Value<T> a, int count) {
    return make<T>(Op::shift_left, {a.node, -1, -1}, std::uint64_t(count));
}
/// Logical shift right.
template <Type T> requires(is_int(T)) Value<T> operator>>(Value<T> a, int count) {
    return make<T>(Op::shift_right, {a.node, -1, -1}, std::uint64_t(count));
}
/// Arithmetic shift right; 32-bit lanes only, as the processor has no other.
inline I32 shift_right_signed(I32 a, int count) {
    return make<Type::i32>(Op::shift_right_signed, {a.node, -1, -1}, std::uint64_t(count));
}
/// Unsigned product of the low 32 bits of each lane.
inline I64 multiply_words(I64 a, I64 b) { return make<Type::i64>(Op::multiply_words, {a.node, b.node, -1}); }

template <Type T> requires(is_float(T)) Value<T> sqrt(Value<T> a) { return make<T>(Op::sqrt, {a.node, -1, -1}); }
/// The processor's 12-bit approximations.
inline F32 reciprocal_approximation(F32 a) { return make<Type::f32>(Op::reciprocal, {a.node, -1, -1}); }
inline F32 reciprocal_sqrt_approximation(F32 a) { return make<Type::f32>(Op::reciprocal_sqrt, {a.node, -1, -1}); }

/// Rounding immediates: the direction, independent of the current mode, or the current mode.
enum class RoundTo : std::uint8_t { nearest_even = 0, down = 1, up = 2, zero = 3, current = 4, current_quiet = 12 };
template <Type T> requires(is_float(T)) Value<T> round(Value<T> a, RoundTo to) {
    return make<T>(Op::round, {a.node, -1, -1}, std::uint64_t(to));
}

/// The bits of a value, in an integer of the same size, and back.
template <Type T> requires(!is_int(T)) Value<int_of(T)> bits(Value<T> a) {
    return make<int_of(T)>(Op::bitcast, {a.node, -1, -1});
}
template <Type T> requires(is_int(T)) Value<float_of(T)> as_float(Value<T> a) {
    return make<float_of(T)>(Op::bitcast, {a.node, -1, -1});
}
/// A mask from an integer whose lanes are all ones or all zeros, or of which only the top bit is read by select.
template <Type T> requires(is_int(T)) Value<mask_of(T)> as_mask(Value<T> a) {
    return make<mask_of(T)>(Op::bitcast, {a.node, -1, -1});
}
template <Type T> requires(is_float(T)) Value<T> abs(Value<T> a) {
    return a & Value<T>(record_constant(T, T == Type::f32 ? 0x7fffffffu : 0x7fffffffffffffffu), nullptr);
}
/// The sign bit alone.
template <Type T> requires(is_float(T)) Value<T> sign_bit(Value<T> a) {
    return a & Value<T>(record_constant(T, T == Type::f32 ? 0x80000000u : 0x8000000000000000u), nullptr);
}
/// A value where the mask is set, else zero.
template <Type T> requires(!is_mask(T)) Value<T> where(Value<mask_of(T)> m, Value<T> a) {
    return make<T>(Op::bit_and, {m.node, a.node, -1});
}

// Conversions.
inline F32 to_f32(I32 a) { return make<Type::f32>(Op::int_to_float, {a.node, -1, -1}); }
inline F64 to_f64(I32 a) { return make<Type::f64>(Op::int_to_float, {a.node, -1, -1}); }
inline F64 to_f64(F32 a) { return make<Type::f64>(Op::widen, {a.node, -1, -1}); }
inline F32 to_f32(F64 a) { return make<Type::f32>(Op::narrow, {a.node, -1, -1}); }
template <Type T> requires(is_float(T)) I32 to_i32(Value<T> a) { return make<Type::i32>(Op::float_to_int, {a.node, -1, -1}); }
template <Type T> requires(is_float(T)) I32 truncate_to_i32(Value<T> a) {
    return make<Type::i32>(Op::float_to_int_trunc, {a.node, -1, -1});
}
inline I64 zero_extend(I32 a) { return make<Type::i64>(Op::zero_extend, {a.node, -1, -1}); }
inline I64 sign_extend(I32 a) { return make<Type::i64>(Op::sign_extend, {a.node, -1, -1}); }
template <Type T> requires(type_size(T) == 8) I32 low_word(Value<T> a) { return make<Type::i32>(Op::low_word, {a.node, -1, -1}); }
template <Type T> requires(type_size(T) == 8) I32 high_word(Value<T> a) { return make<Type::i32>(Op::high_word, {a.node, -1, -1}); }
inline I64 join_words(I32 high, I32 low) { return make<Type::i64>(Op::join_words, {high.node, low.node, -1}); }
inline M64 widen_mask(M32 a) { return make<Type::m64>(Op::mask_widen, {a.node, -1, -1}); }
inline M32 narrow_mask(M64 a) { return make<Type::m32>(Op::mask_narrow, {a.node, -1, -1}); }

// Compares. Negating a floating-point compare gives the complementary predicate, which a NaN satisfies.
enum class Predicate : std::uint8_t {
    equal = 0, less = 1, less_equal = 2, unordered = 3, not_equal = 4, not_less = 5, not_less_equal = 6, ordered = 7,
    not_greater_equal = 9, not_greater = 10, greater_equal = 13, greater = 14,
};
template <Type T> requires(is_float(T)) Value<mask_of(T)> compare(Predicate p, Value<T> a, Value<T> b) {
    return make<mask_of(T)>(Op::compare, {a.node, b.node, -1}, std::uint64_t(p));
}
#define TUVO_COMPARE(SIGN, PREDICATE)                                                               \
    template <Type T> requires(is_float(T)) Value<mask_of(T)> operator SIGN(Value<T> a, Same<T> b) { \
        return compare<T>(PREDICATE, a, b);                                                         \
    }
TUVO_COMPARE(<, Predicate::less)
TUVO_COMPARE(<=, Predicate::less_equal)
TUVO_COMPARE(>, Predicate::greater)
TUVO_COMPARE(>=, Predicate::greater_equal)
TUVO_COMPARE(==, Predicate::equal)
TUVO_COMPARE(!=, Predicate::not_equal)
#undef TUVO_COMPARE
template <Type T> requires(is_float(T)) Value<mask_of(T)> is_nan(Value<T> a) { return compare<T>(Predicate::unordered, a, a); }
template <Type T> requires(is_int(T)) Value<mask_of(T)> operator==(Value<T> a, Same<T> b) {
    return make<mask_of(T)>(Op::equal, {a.node, b.node, -1});
}
/// Signed.
template <Type T> requires(is_int(T)) Value<mask_of(T)> operator>(Value<T> a, Same<T> b) {
    return make<mask_of(T)>(Op::greater, {a.node, b.node, -1});
}
template <Type T> requires(is_int(T)) Value<mask_of(T)> operator<(Value<T> a, Same<T> b) { return b > a; }
int record_not(int mask);
template <Type T> requires(is_mask(T)) Value<T> operator!(Value<T> a) { return Value<T>(record_not(a.node), nullptr); }

/// `a` where the mask is set, `b` elsewhere.
template <Type T> Value<T> select(Value<mask_of(T)> m, Value<T> a, Same<T> b) {
    return make<T>(Op::select, {m.node, a.node, b.node});
}

// Tables. The index is a byte offset; `bias` is what it carries too much, and is folded into the displacement.
/// Puts a table into the current constant block; returns a handle for gathers.
int table(RawTable data, const char* name);
/// Says that the value is always within [low, high]; the interpreter checks it, and the generator relies on it to see
/// that a table is never read outside its data.
I32 claim_range(I32 value, std::int64_t low, std::int64_t high);
int record_gather(int table, int index, std::int64_t bias, int count, Type type);
template <Type T> requires(is_float(T) || is_int(T))
Value<T> gather(int table, I32 offset, std::int64_t bias = 0) {
    return make<T>(Op::element, {record_gather(table, offset.node, bias, 1, T), -1, -1}, 0);
}
/// Neighbouring values of one entry.
template <Type T, int Count> std::array<Value<T>, Count> gather_fields(int table, I32 offset, std::int64_t bias = 0) {
    const int g = record_gather(table, offset.node, bias, Count, T);
    std::array<Value<T>, Count> values;
    for (int k = 0; k < Count; ++k) values[k] = make<T>(Op::element, {g, -1, -1}, k);
    return values;
}
template <Type T> std::pair<Value<T>, Value<T>> gather_pair(int table, I32 offset, std::int64_t bias = 0) {
    const auto [first, second] = gather_fields<T, 2>(table, offset, bias);
    return {first, second};
}
template <Type T> std::array<Value<T>, 4> gather_quad(int table, I32 offset, std::int64_t bias = 0) {
    return gather_fields<T, 4>(table, offset, bias);
}
/// One of the four values of a quad constant, by the low two bits of the control.
inline F32 lookup4(F32 quad, I32 control) { return make<Type::f32>(Op::lookup4, {quad.node, control.node, -1}); }

/// One value in two ways, of which a kernel takes the first at widths whose parts have 128 bits, the second where they
/// have 256 and integer steps cost moves between halves. Both must be equal on all lanes that the vector path finishes:
/// tests compare the widths. Neither may be a constant.
template <Type T> Value<T> by_part_size(Value<T> narrow, Value<T> wide) {
    return make<T>(Op::by_part_size, {narrow.node, wide.node, -1});
}

/// Lanes where the mask is set go to the rare routine.
void rare_if_node(int mask);
template <Type T> requires(is_mask(T)) void rare_if(Value<T> mask) { rare_if_node(mask.node); }
/// Every lane goes to the rare routine: the family has no vector path.
void rare_always();
/// Every lane goes to the rare routine unless MXCSR and the x87 control word both say to round to nearest: for a vector
/// path that is right in that mode alone. Both are looked at once a call, and not changed.
void rare_unless_nearest();

/// Constants and tables recorded while this lives go to that constant block of the family, or to the kernel's own pool
/// (`pool`).
class InBlock {
public:
    static constexpr int pool = -1;
    explicit InBlock(int block);
    ~InBlock();
    InBlock(const InBlock&) = delete;
    InBlock& operator=(const InBlock&) = delete;

private:
    int previous_;
};

/// Horner's scheme: the coefficients, highest degree first, as patterns or values.
template <Type T, std::size_t N>
Value<T> horner(Value<T> x, const std::array<Value<T>, N>& coefficients) {
    Value<T> q = coefficients[0];
    for (std::size_t k = 1; k < N; ++k) q = q * x + coefficients[k];
    return q;
}
template <std::size_t N>
F32 horner(F32 x, const std::uint32_t (&patterns)[N]) {
    F32 q = f32(patterns[0]);
    for (std::size_t k = 1; k < N; ++k) q = q * x + f32(patterns[k]);
    return q;
}
template <std::size_t N>
F64 horner(F64 x, const std::uint64_t (&patterns)[N]) {
    F64 q = f64(patterns[0]);
    for (std::size_t k = 1; k < N; ++k) q = q * x + f64(patterns[k]);
    return q;
}

// Sections.
int open_section(Section::Kind kind, int mask);
void close_section(int section, std::vector<int> before, std::vector<int> after, int repair_mask);
int joined_node(int section, int k);

template <typename... Values, std::size_t... K>
std::tuple<Values...> joined_tuple(int section, std::index_sequence<K...>) {
    return {Values(joined_node(section, int(K)), nullptr)...};
}
/// Runs `body` out of line if any lane of the call is set in `mask`; lanes in the mask take what it returns, the others
/// keep `before`. The body may use every value recorded so far. Values in a tuple.
template <Type M, typename... Values, typename Body> requires(is_mask(M))
std::tuple<Values...> if_any(Value<M> mask, std::tuple<Values...> before, Body body) {
    const int section = open_section(Section::Kind::any_lane, mask.node);
    const std::tuple<Values...> after = body();
    const auto nodes = [](auto... v) { return std::vector<int>{v.node...}; };
    close_section(section, std::apply(nodes, before), std::apply(nodes, after), -1);
    return joined_tuple<Values...>(section, std::index_sequence_for<Values...>{});
}
template <Type M, Type T, typename Body> requires(is_mask(M))
Value<T> if_any(Value<M> mask, Value<T> before, Body body) {
    return std::get<0>(if_any(mask, std::tuple(before), [&] { return std::tuple<Value<T>>(body()); }));
}

/// What an in-line repair yields: lanes that it finishes, and their value.
template <Type T>
struct Repaired {
    Value<mask_of(T)> finished;
    Value<T> value;
};
/// Runs `body` on the rare path, ahead of the rare routine: lanes in `finished` (all of them rare) take `value` and
/// leave the rare mask. At most one in a description, on its only result.
template <Type T, typename Body>
Value<T> repair(Value<T> result, Body body) {
    const int section = open_section(Section::Kind::repair, -1);
    const Repaired<T> repaired = body();
    close_section(section, {result.node}, {repaired.value.node}, repaired.finished.node);
    return Value<T>(joined_node(section, 0), nullptr);
}

/// Records a description: a function of one to three values that returns a value, or a pair or tuple of them.
Program record_program(std::string name, int blocks, const std::vector<Type>& arguments,
                       const std::function<std::vector<int>(const std::vector<int>&)>& body);

/// A description with its types erased.
struct Description {
    std::vector<Type> arguments;
    std::vector<Type> outputs;
    std::function<std::vector<int>(const std::vector<int>&)> body;
};
template <typename T> struct OutputTypes {
    static std::vector<Type> types() { return {T::type}; }
    static std::vector<int> nodes(const T& v) { return {v.node}; }
};
template <typename A, typename B> struct OutputTypes<std::pair<A, B>> {
    static std::vector<Type> types() { return {A::type, B::type}; }
    static std::vector<int> nodes(const std::pair<A, B>& v) { return {v.first.node, v.second.node}; }
};
template <typename R, typename... A>
Description describe(std::function<R(A...)> function) {
    return {{A::type...}, OutputTypes<R>::types(), [function](const std::vector<int>& arguments) {
                return [&]<std::size_t... k>(std::index_sequence<k...>) {
                    return OutputTypes<R>::nodes(function(A(arguments[k], nullptr)...));
                }(std::index_sequence_for<A...>{});
            }};
}
template <typename R, typename... A>
Description describe(R (*function)(A...)) { return describe(std::function<R(A...)>(function)); }

// clang-format on

}  // namespace tuvo

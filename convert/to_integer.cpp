// Conversions from floating point to integers: cvtfpto<i32|u32|i64|u64><rte|rtn|rtp|rtz><nosat|sat>, f for floats.
//
// The argument is first rounded to an integral value, in a direction that the instruction carries itself. Everything
// after that is exact, so no result depends on the processor's rounding mode.
#include <string>

#include "convert/rounding_words.hpp"
#include "frame/families.hpp"

namespace tuvo {
namespace {

/// Patterns of a floating-point type. The head of a value is its pattern, or the high word of a double's.
template <Type T>
struct Format;
template <>
struct Format<Type::f32> {
    static constexpr int fraction_bits = 23;
    static constexpr std::uint64_t fraction = 0x007fffff, leading_bit = 0x00800000, exponent = 0x7f800000;
    static constexpr std::uint64_t integral = 0x4b000000;       // 2^23: from here on every value is integral
    static constexpr std::uint64_t integral_exponent = 0x96;    // its exponent field
    static constexpr std::uint64_t two_to_31 = 0x4f000000;      // 2147483648
    static constexpr std::uint64_t two_to_32 = 0x4f800000;      // 4294967296
    static constexpr std::uint64_t two_to_63 = 0x5f000000;      // 9.22337204e18
    static constexpr std::uint64_t two_to_64 = 0x5f800000;      // 1.84467441e19
};
template <>
struct Format<Type::f64> {
    static constexpr int fraction_bits = 52;
    static constexpr std::uint64_t fraction = 0x000fffffffffffff, leading_bit = 0x0010000000000000;
    static constexpr std::uint64_t exponent = 0x7ff0000000000000;
    static constexpr std::uint64_t integral = 0x4330000000000000;  // 2^52
    static constexpr std::uint64_t integral_exponent = 0x433;
    static constexpr std::uint64_t two_to_31 = 0x41e0000000000000;
    static constexpr std::uint64_t two_to_32 = 0x41f0000000000000;
    static constexpr std::uint64_t two_to_63 = 0x43e0000000000000;
    static constexpr std::uint64_t two_to_64 = 0x43f0000000000000;
};

template <Type T>
Value<T> constant(std::uint64_t pattern) {
    return Value<T>(record_constant(T, pattern), nullptr);
}

/// The head of a value, and of a pattern.
I32 head(F32 x) { return bits(x); }
I32 head(F64 x) { return high_word(x); }
template <Type T>
I32 head(std::uint64_t pattern) {
    return i32(std::uint32_t(T == Type::f64 ? pattern >> 32 : pattern));
}

/// A compare's mask for 32-bit lanes, and what 64-bit lanes hold of a value.
M32 narrowed(M32 mask) { return mask; }
M32 narrowed(M64 mask) { return narrow_mask(mask); }
I64 widened(I32 x) { return zero_extend(x); }
I64 widened(I64 x) { return x; }
M64 widened(M32 mask) { return widen_mask(mask); }
M64 widened(M64 mask) { return mask; }

template <Type T>
I32 to_int(Value<T> x, RoundTo word, bool saturates) {
    const Value<T> r = round(x, word).as("r");
    const I32 converted = to_i32(r);  // 0x80000000 out of range
    if (!saturates) return converted;
    const I32 limit = select(as_mask(head(r)), i32(0x80000000), i32(0x7fffffff)).as("limit");
    const M32 fits = (head(r) & i32(0x7fffffff)) < head<T>(Format<T>::two_to_31);
    return where(narrowed(!is_nan(r)), select(fits, converted, limit));
}

/// The significand of a value from 2^31 to 2^32, at the top of 32 bits, is the value itself.
I32 significand_at_top(F32 a) { return (bits(a) << 8) | i32(0x80000000); }
I32 significand_at_top(F64 a) { return high_word((bits(a) << 11) | i64(0x8000000000000000)); }

template <Type T>
I32 to_uint(Value<T> x, RoundTo word, bool saturates) {
    const Value<T> r = round(x, word).as("r");
    const Value<T> a = saturates ? r : abs(r);
    const M32 big = narrowed((a & constant<T>(Format<T>::exponent)) == constant<T>(Format<T>::two_to_31));
    const I32 value = select(big, significand_at_top(a), to_i32(a)).as("value");
    if (!saturates) return value;
    const M32 fits = T == Type::f64 ? head(r) < head<T>(Format<T>::two_to_32)
                                    : narrowed(r < constant<T>(Format<T>::two_to_32));
    return and_not(shift_right_signed(head(r), 31), select(fits, value, i32(0xffffffff)));
}

template <Type T>
I64 to_64_bits(Value<T> x, RoundTo word, bool is_signed, bool saturates) {
    using F = Format<T>;
    constexpr Type I = int_of(T);
    const Value<T> r = round(x, word).as("r");
    const Value<T> a = is_signed || !saturates ? abs(r) : r;
    const Value<mask_of(T)> below = a < constant<T>(F::integral);
    const Value<I> small = bits(a + constant<T>(F::integral)) & constant<I>(F::fraction);
    const Value<I> fraction = bits(a) & constant<I>(F::fraction);
    const Value<I> large = T == Type::f32 ? fraction | constant<I>(F::leading_bit) : fraction ^ constant<I>(F::leading_bit);
    const Value<I> shift = (bits(a) >> F::fraction_bits) - constant<I>(F::integral_exponent);
    const I64 magnitude = shift_left_each(widened(select(below, small, large)), widened(and_not(bits(below), shift))).as("magnitude");
    const M64 fits = widened(a < constant<T>(is_signed ? F::two_to_63 : F::two_to_64));
    const M64 negative = widened(as_mask(bits(r)));
    const I64 value = is_signed ? select(negative, i64(0) - magnitude, magnitude) : magnitude;
    const I64 indefinite = i64(0x8000000000000000);
    if (!saturates) return select(fits, value, indefinite);
    if (is_signed) {
        const I64 limit = select(negative, indefinite, i64(0x7fffffffffffffff));
        return where(widened(!is_nan(r)), select(fits, value, limit));
    }
    return where(widened(r >= constant<T>(0)), select(fits, value, i64(~std::uint64_t(0))));
}

/// Halves and where they round to, the last odd and even values, and the ends of the targets' ranges.
const std::vector<std::uint64_t> float_thresholds{
    0x3f000000, 0x3fc00000, 0x40200000, 0x4affffff, 0x4b000000, 0x4effffff, 0x4f000000, 0x4f7fffff, 0x4f800000,
    0x5effffff, 0x5f000000, 0x5f7fffff, 0x5f800000,
};
const std::vector<std::uint64_t> double_thresholds{
    0x3fe0000000000000, 0x3ff8000000000000, 0x4004000000000000,
    0x41dfffffffe00000,  // 2147483647.5
    0x41dfffffffc00000,  // 2147483647
    0x41e0000000100000,  // 2147483648.5
    0x41efffffffe00000,  // 4294967295
    0x41effffffff00000,  // 4294967295.5
    0x432fffffffffffff,  // 2^52 - 0.5
    0x4330000000000000, 0x43dfffffffffffff, 0x43e0000000000000, 0x43efffffffffffff, 0x43f0000000000000,
};

template <Type T, typename Convert>
void register_family(const std::string& name, Convert convert) {
    Describe({name.c_str()}, describe(std::function(convert)),
             {.thresholds = T == Type::f32 ? float_thresholds : double_thresholds});
}

template <Type T>
void register_from() {
    const std::string letter = T == Type::f32 ? "f" : "";
    for (const auto& [name, word] : rounding_words) {
        for (const bool saturates : {false, true}) {
            const std::string ending = std::string(name) + (saturates ? "sat" : "nosat") + letter;
            register_family<T>("cvtfptoi32" + ending, [=](Value<T> x) { return to_int(x, word, saturates); });
            register_family<T>("cvtfptou32" + ending, [=](Value<T> x) { return to_uint(x, word, saturates); });
            register_family<T>("cvtfptoi64" + ending, [=](Value<T> x) { return to_64_bits(x, word, true, saturates); });
            register_family<T>("cvtfptou64" + ending, [=](Value<T> x) { return to_64_bits(x, word, false, saturates); });
        }
    }
}

[[maybe_unused]] const bool registered = (register_from<Type::f32>(), register_from<Type::f64>(), true);

}  // namespace
}  // namespace tuvo

// Conversions from floating point to integers: cvtfpto<i32|u32|i64|u64><rte|rtn|rtp|rtz><nosat|sat>, f for floats.
//
// The argument is first rounded to an integral value, in a direction that the instruction carries itself. Everything
// after that is exact, so no result depends on the processor's rounding mode.
#include <string>

#include "convert/conversions.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

/// Patterns of a floating-point type.
template <Type T>
struct Format;
template <>
struct Format<Type::f32> {
    static constexpr std::uint64_t exponent = 0x7f800000;
    static constexpr std::uint64_t two_to_31 = 0x4f000000;  // 2147483648
    static constexpr std::uint64_t two_to_32 = 0x4f800000;  // 4294967296
};
template <>
struct Format<Type::f64> {
    static constexpr std::uint64_t exponent = 0x7ff0000000000000;
    static constexpr std::uint64_t two_to_31 = 0x41e0000000000000;
    static constexpr std::uint64_t two_to_32 = 0x41f0000000000000;
};

/// What 32-bit lanes can tell of a value: the pattern of a float, the high word of a double.
I32 head(F32 x) { return bits(x); }
I32 head(F64 x) { return high_word(x); }
template <Type T>
I32 head_of(std::uint64_t pattern) {
    return i32(std::uint32_t(T == Type::f64 ? pattern >> 32 : pattern));
}
/// A compare's mask for 32-bit lanes.
M32 narrowed(M32 mask) { return mask; }
M32 narrowed(M64 mask) { return narrow_mask(mask); }

template <Type T>
I32 to_int(Value<T> x, RoundTo word, bool saturates) {
    const Value<T> r = round(x, word).as("r");
    const I32 converted = to_i32(r);  // 0x80000000 out of range
    if (!saturates) return converted;
    const I32 h = head(r);
    const I32 limit = select(as_mask(h), i32(0x80000000), i32(0x7fffffff)).as("limit");
    M32 fits;
    if constexpr (T == Type::f32)
        fits = abs(r) < pattern<T>(Format<T>::two_to_31);
    else
        fits = (h & i32(0x7fffffff)) < head_of<T>(Format<T>::two_to_31);
    return where(narrowed(!is_nan(r)), select(fits, converted, limit));
}

/// The significand at the top of 32 bits: from 2^31 to 2^32 that is the value itself.
I32 significand(F32 a) { return (bits(a) << 8) | i32(0x80000000); }
I32 significand(F64 a) { return high_word((bits(a) << 11) | i64(0x8000000000000000)); }

/// Without saturation the sign is dropped. With it, what is negative becomes 0 in the end, so that of NaNs, which are
/// not below 2^32, those with a sign give 0 and the others the largest value.
template <Type T>
I32 to_uint(Value<T> x, RoundTo word, bool saturates) {
    const Value<T> r = round(x, word).as("r");
    const Value<T> a = saturates ? r : abs(r);
    const M32 big = narrowed((a & pattern<T>(Format<T>::exponent)) == pattern<T>(Format<T>::two_to_31));
    const I32 value = select(big, significand(a), to_i32(a)).as("value");
    if (!saturates) return value;
    const I32 h = head(r);
    M32 fits;
    if constexpr (T == Type::f32)
        fits = r < pattern<T>(Format<T>::two_to_32);
    else
        fits = h < head_of<T>(Format<T>::two_to_32);
    return and_not(shift_right_signed(h, 31), select(fits, value, i32(0xffffffff)));
}

F64 to_double(F32 x) { return to_f64(x); }
F64 to_double(F64 x) { return x; }

/// An integral value below 2^64 in magnitude, modulo 2^64. A sum with 1.5 2^84 is rounded to a multiple of 2^32 and has
/// it, counted in 2^32, in its low word; any value near r serves for that, so that x need not wait for its rounding.
/// What that leaves over of r, plus 1.5 2^52, has it in its low bits. Everything but the first sum is exact, and
/// whichever way that one is rounded, the two make up r. So that the pattern of 1.5 2^52, 0x43380000 in its high word,
/// drops out of their sum, the first constant is lower by 0x43380000 2^32.
I64 to_two_words(F64 x, F64 r) {
    const F64 shifter = f64(0x4537ffffbcc80000);      // 2.90142148271297e+25
    const F64 and_low_one = f64(0x4537ffffbce00000);  // 2.90142148338851e+25, the shifter plus 1.5 2^52
    const F64 high = (x + shifter).as("high");
    const F64 low = (r - (high - and_low_one)).as("low");
    return (bits(high) << 32) + bits(low);
}

template <Type T>
I64 to_long(Value<T> x, RoundTo word, bool saturates) {
    const F64 r = to_double(round(x, word)).as("r");
    const I64 value = to_two_words(to_double(x), r);
    const I64 lowest = i64(0x8000000000000000);
    const M64 fits = abs(r) < f64(0x43e0000000000000);  // 2^63
    if (!saturates) return select(fits, value, lowest);
    const I64 limit = select(as_mask(bits(r)), lowest, i64(0x7fffffffffffffff)).as("limit");
    return where(!is_nan(r), select(fits, value, limit));
}

template <Type T>
I64 to_ulong(Value<T> x, RoundTo word, bool saturates) {
    const F64 r = to_double(round(x, word)).as("r");
    const F64 end = f64(0x43f0000000000000);  // 2^64
    if (!saturates) return select(abs(r) < end, to_two_words(abs(to_double(x)), abs(r)), i64(0x8000000000000000));
    return where(r >= 0.0, to_two_words(to_double(x), r) | bits(!(r < end)));
}

/// Halves and where they round to, the last odd and even values, and the ends of the targets' ranges.
const std::vector<std::uint64_t> float_thresholds{
    0x3f000000, 0x3fc00000, 0x40200000, 0x4affffff, 0x4b000000, 0x4effffff, 0x4f000000,
    0x4f7fffff, 0x4f800000, 0x5effffff, 0x5f000000, 0x5f7fffff, 0x5f800000,
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
            register_family<T>("cvtfptoi64" + ending, [=](Value<T> x) { return to_long(x, word, saturates); });
            register_family<T>("cvtfptou64" + ending, [=](Value<T> x) { return to_ulong(x, word, saturates); });
        }
    }
}

[[maybe_unused]] const bool registered = (register_from<Type::f32>(), register_from<Type::f64>(), true);

}  // namespace
}  // namespace tuvo

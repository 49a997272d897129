// Conversions to floating point: cvt<i32|u32|i64|u64>tofp<rte|rtn|rtp|rtz>, f for floats, and cvtfp64tofp32<word>.
//
// No instruction converts in a direction of its own choice. So an integer's magnitude is cut into pieces that convert
// exactly, the pieces are added, and the error of the sum tells whether the result is to move by one unit in the last
// place, which is one step of its pattern. The directed words come out right whichever way the processor rounds the
// sums; rte has no correction, and follows the processor's mode.
#include <string>

#include "convert/conversions.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

/// Pieces have as many bits as the fraction of the type; the one at bit k converts under the power of two whose last
/// place is 2^k.
template <Type T>
struct Pieces;
template <>
struct Pieces<Type::f32> {
    static constexpr int bits = 23;
    static constexpr std::uint64_t mask = 0x007fffff;
    static constexpr std::uint64_t power[] = {0x4b000000, 0x56800000, 0x62000000};  // 2^23, 2^46, 2^69
};
template <>
struct Pieces<Type::f64> {
    static constexpr int bits = 52;
    static constexpr std::uint64_t mask = 0x000fffffffffffff;
    static constexpr std::uint64_t power[] = {0x4330000000000000, 0x4670000000000000};  // 2^52, 2^104
};

/// The piece at the given place, exactly: it becomes the fraction below the power, which is taken away again.
template <Type T>
Value<T> exact(Value<int_of(T)> piece, int place) {
    const std::uint64_t power = Pieces<T>::power[place];
    return as_float(piece | pattern<int_of(T)>(power)) - pattern<T>(power);
}

template <Type T>
struct Signed {
    Value<T> magnitude;
    Value<float_of(T)> sign;  ///< the sign bit alone
    Value<T> upward;          ///< -1 where negative, else 1: added to a pattern of that sign, a step upward
};
Signed<Type::i32> split_sign(I32 x) {
    const I32 negative = shift_right_signed(x, 31);
    return {(x ^ negative) - negative, as_float(x & i32(0x80000000)), negative | i32(1)};
}
Signed<Type::i64> split_sign(I64 x) {
    return {select(as_mask(x), i64(0) - x, x), as_float(x & i64(0x8000000000000000)),
            select(as_mask(x), i64(0xffffffffffffffff), i64(1))};
}

/// The pattern one lower, or one higher, where the mask is set: a set mask is -1.
template <Type T>
Value<T> lowered(Value<T> x, Value<mask_of(T)> mask) {
    return as_float(bits(x) + bits(mask));
}
template <Type T>
Value<T> raised(Value<T> x, Value<mask_of(T)> mask) {
    return as_float(bits(x) - bits(mask));
}
/// One step downward or upward where the mask is set.
template <Type T>
Value<T> stepped(RoundTo word, Value<T> x, Value<mask_of(T)> mask, Value<int_of(T)> upward) {
    const Value<int_of(T)> step = where(mask, upward);
    return as_float(word == RoundTo::down ? bits(x) - step : bits(x) + step);
}

template <Type T>
struct Sum {
    Value<T> low, high, rounded;
};
/// The magnitude from two pieces.
template <Type T>
Sum<T> sum_of_pieces(Value<int_of(T)> a) {
    const Value<T> low = exact<T>(a & pattern<int_of(T)>(Pieces<T>::mask), 0).as("low");
    const Value<T> high = exact<T>(a >> Pieces<T>::bits, 1).as("high");
    return {low, high, (high + low).as("sum")};
}

/// Unsigned integers of the size of the float.
template <Type T>
Value<T> from_unsigned(Value<int_of(T)> x, RoundTo word) {
    const auto [low, high, sum] = sum_of_pieces<T>(x);
    if (word == RoundTo::nearest_even) return sum;
    if (word == RoundTo::up) return raised(sum, sum - high < low);
    return lowered(sum, sum - high > low);
}

/// Signed ones. The correction toward an infinity is decided on the signed values.
template <Type T>
Value<T> from_signed(Value<int_of(T)> x, RoundTo word) {
    const auto [magnitude, sign, upward] = split_sign(x);
    const auto [low, high, sum] = sum_of_pieces<T>(magnitude);
    if (word == RoundTo::zero) return lowered(sum, sum - high > low) | sign;
    const Value<T> r = sum | sign;
    if (word == RoundTo::nearest_even) return r;
    const Value<T> taken = r - (high | sign), rest = low | sign;
    return stepped(word, r, word == RoundTo::down ? taken > rest : taken < rest, upward);
}

/// The sum of three pieces, to nearest. The sum of the two high ones may be a tie that the low one breaks: an odd last
/// place keeps the second sum from rounding a tie that isn't there.
F32 sum_to_nearest(F32 f2, F32 f1, I32 p0) {
    const F32 negated_f0 = f32(0x4b000000) - as_float(p0 | i32(0x4b000000));
    const F32 sum = f2 + f1;
    const F32 error = (f2 - sum) + f1;
    const F32 half_unit = as_float(and_not(i32(0x007fffff), bits(sum)) - i32(0x0c000000));  // 24 exponents lower
    const M32 false_tie = and_not(p0 == i32(0), error == half_unit);
    return as_float(bits(sum) | where(false_tie, i32(1))) - negated_f0;
}

struct ThreePieces {
    I32 p0;
    F32 f1, f2;
};
ThreePieces three_pieces(I64 a) {
    const I32 mask = i32(0x007fffff);
    return {low_word(a) & mask, exact<Type::f32>(low_word(a >> 23) & mask, 1).as("f1"),
            exact<Type::f32>(low_word(a >> 46), 2).as("f2")};
}

struct SumAndError {
    F32 sum, error;
};
/// The sum of three pieces and the sign of what its rounding lost: both additions' errors are exact, or so large that
/// their last bits don't matter.
SumAndError sum_with_error(const ThreePieces& pieces) {
    const auto [p0, f1, f2] = pieces;
    const F32 f0 = exact<Type::f32>(p0, 0).as("f0");
    const F32 s1 = f1 + f0, e1 = f0 + (f1 - s1);
    const F32 s2 = (f2 + s1).as("sum"), e2 = s1 + (f2 - s2);
    return {s2, (e1 + e2).as("error")};
}

F32 from_ulong(I64 x, RoundTo word) {
    const ThreePieces pieces = three_pieces(x);
    if (word == RoundTo::nearest_even) return sum_to_nearest(pieces.f2, pieces.f1, pieces.p0);
    const auto [sum, error] = sum_with_error(pieces);
    return word == RoundTo::up ? raised(sum, error > 0.0f) : lowered(sum, error < 0.0f);
}

F32 from_long(I64 x, RoundTo word) {
    const I32 head = high_word(x);
    const F32 sign = as_float(head & i32(0x80000000));
    const ThreePieces pieces = three_pieces(split_sign(x).magnitude);
    if (word == RoundTo::nearest_even) return sum_to_nearest(pieces.f2, pieces.f1, pieces.p0) | sign;
    const auto [sum, error] = sum_with_error(pieces);
    if (word == RoundTo::zero) return lowered(sum, error < 0.0f) | sign;
    const F32 r = sum | sign, e = error ^ sign;
    return stepped(word, r, word == RoundTo::down ? e < 0.0f : e > 0.0f, split_sign(head).upward);
}

F32 from_double(F64 x, RoundTo word) {
    const F32 f = to_f32(x).as("f");
    if (word == RoundTo::nearest_even) return f;
    const F64 w = to_f64(f).as("w");
    // A magnitude that is too large isn't zero: a step off its pattern leaves the sign alone.
    if (word == RoundTo::zero) return lowered(f, narrow_mask(abs(x) < abs(w)));
    return stepped(word, f, narrow_mask(word == RoundTo::down ? x < w : w < x), split_sign(bits(f)).upward);
}

/// Every 32-bit integer is a double.
F64 double_from_int(I32 x, RoundTo) { return to_f64(x); }
F64 double_from_uint(I32 x, RoundTo) { return exact<Type::f64>(zero_extend(x), 0); }

/// Integers of every length that lie halfway between two neighbours of the given precision, with an even and with an
/// odd one below, and the same with a bit set far down.
std::vector<std::uint64_t> halfway(int length, int precision) {
    std::vector<std::uint64_t> patterns;
    for (int n = precision + 1; n <= length; ++n) {
        const std::uint64_t top = std::uint64_t{1} << (n - 1), half = std::uint64_t{1} << (n - 1 - precision);
        patterns.insert(patterns.end(), {top | half, top | half | half << 1});
        if (half > 0x00400000) patterns.push_back(top | half | 0x00400000);
    }
    return patterns;
}

const std::vector<std::uint64_t> double_thresholds{
    0x3ff0000010000000, 0x3ff0000030000000,  // 1 + 2^-24 and 1 + 3 2^-24, halfway between floats
    0x47efffffe0000000, 0x47effffff0000000,  // the largest finite float, and half a unit above it
    0x380ffffff0000000, 0x3810000000000000,  // halfway to the smallest normal float, and that
    0x36a0000000000000, 0x3690000000000000,  // the smallest subnormal float, and half of it
    0x36b8000000000000,                      // 3 2^-149
};

template <typename To, typename From>
void register_family(const std::string& name, To (*convert)(From, RoundTo), const RoundingWord& word,
                     std::vector<std::uint64_t> thresholds) {
    Describe({name.c_str()}, describe(std::function([=, to = word.to](From x) { return convert(x, to); })),
             {.thresholds = std::move(thresholds)});
}

const bool registered = [] {
    for (const RoundingWord& word : rounding_words) {
        const std::string ending = std::string("tofp") + word.name;
        register_family("cvti32" + ending, double_from_int, word, {});
        register_family("cvtu32" + ending, double_from_uint, word, {});
        register_family("cvti32" + ending + "f", from_signed<Type::f32>, word, halfway(32, 24));
        register_family("cvtu32" + ending + "f", from_unsigned<Type::f32>, word, halfway(32, 24));
        register_family("cvti64" + ending, from_signed<Type::f64>, word, halfway(64, 53));
        register_family("cvtu64" + ending, from_unsigned<Type::f64>, word, halfway(64, 53));
        register_family("cvti64" + ending + "f", from_long, word, halfway(64, 24));
        register_family("cvtu64" + ending + "f", from_ulong, word, halfway(64, 24));
        register_family("cvtfp64tofp32" + std::string(word.name), from_double, word, double_thresholds);
    }
    return true;
}();

}  // namespace
}  // namespace tuvo

// Conversions to floating point: cvt<i32|u32|i64|u64>tofp<rte|rtn|rtp|rtz>, f for floats, and cvtfp64tofp32<word>.
//
// No instruction converts in a direction of its own choice. So an integer's magnitude is cut into pieces that convert
// exactly, the pieces are added, and the error of the sum tells whether the result is to move by one unit in the last
// place, which is one step of its pattern. The directed words come out right whichever way the processor rounds the
// sums; rte has no correction, and follows the processor's mode.
#include <string>

#include "convert/rounding_words.hpp"
#include "frame/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> constant(std::uint64_t pattern) {
    return Value<T>(record_constant(T, pattern), nullptr);
}

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
    return as_float(piece | constant<int_of(T)>(power)) - constant<T>(power);
}

/// All ones in negative lanes: as a mask it stands for select, whose eye is on the sign alone.
I32 magnitude(I32 x) {
    const I32 sign = shift_right_signed(x, 31);
    return (x ^ sign) - sign;
}
I64 magnitude(I64 x) { return select(as_mask(x), i64(0) - x, x); }

/// -1 where x is negative, else 1: adding it to a pattern of that sign is a step upward.
I32 upward(I32 x) { return shift_right_signed(x, 31) | i32(1); }
I64 upward(I64 x) { return select(as_mask(x), i64(0xffffffffffffffff), i64(1)); }

/// What a magnitude leaves to be decided: the rounded sum, and where the sum is above or below the exact value.
template <Type T>
struct Sum {
    Value<T> rounded;
    Value<mask_of(T)> above, below;
};

/// The pattern one lower, or one higher, where the mask is set: a set mask is -1.
template <Type T>
Value<T> lowered(Value<T> x, Value<mask_of(T)> mask) {
    return as_float(bits(x) + bits(mask));
}
template <Type T>
Value<T> raised(Value<T> x, Value<mask_of(T)> mask) {
    return as_float(bits(x) - bits(mask));
}

/// Integers of the size of the float: two pieces, one sum.
template <Type T>
Value<T> from_equal_size(Value<int_of(T)> x, RoundTo word, bool is_signed) {
    using I = Value<int_of(T)>;
    const I a = is_signed ? magnitude(x) : x;
    const Value<T> low = exact<T>(a & constant<int_of(T)>(Pieces<T>::mask), 0).as("low");
    const Value<T> high = exact<T>(a >> Pieces<T>::bits, 1).as("high");
    const Value<T> sum = (high + low).as("sum");
    const auto sign = [&](Value<T> value) { return is_signed ? value | sign_bit(as_float(x)) : value; };
    if (word == RoundTo::nearest_even) return sign(sum);
    if (word == RoundTo::zero || (word == RoundTo::down && !is_signed))
        return sign(lowered(sum, sum - high > low));
    if (!is_signed) return raised(sum, sum - high < low);
    const Value<T> r = sign(sum), taken = r - sign(high);
    if (word == RoundTo::down) return as_float(bits(r) - where(taken > sign(low), upward(x)));
    return as_float(bits(r) + where(taken < sign(low), upward(x)));
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

F32 from_long(I64 x, RoundTo word, bool is_signed) {
    const I64 a = is_signed ? magnitude(x) : x;
    const I32 piece = i32(0x007fffff), p0 = low_word(a) & piece;
    const F32 f1 = exact<Type::f32>(low_word(a >> 23) & piece, 1).as("f1");
    const F32 f2 = exact<Type::f32>(low_word(a >> 46), 2).as("f2");
    const F32 sign = is_signed ? as_float(high_word(x) & i32(0x80000000)) : F32();
    const auto with_sign = [&](F32 value) { return is_signed ? value | sign : value; };
    if (word == RoundTo::nearest_even) return with_sign(sum_to_nearest(f2, f1, p0));

    // Errors of the two sums; the second one takes in the first's result.
    const F32 f0 = exact<Type::f32>(p0, 0).as("f0");
    const F32 s1 = f1 + f0, e1 = f0 + (f1 - s1);
    const F32 s2 = (f2 + s1).as("sum"), e2 = s1 + (f2 - s2);
    const F32 error = (e1 + e2).as("error");
    if (word == RoundTo::zero || (word == RoundTo::down && !is_signed)) return with_sign(lowered(s2, error < 0.0f));
    if (!is_signed) return raised(s2, error > 0.0f);
    const F32 r = with_sign(s2), signed_error = error ^ sign;
    const I32 step = upward(high_word(x));
    if (word == RoundTo::down) return as_float(bits(r) - where(signed_error < 0.0f, step));
    return as_float(bits(r) + where(signed_error > 0.0f, step));
}

F32 from_double(F64 x, RoundTo word) {
    const F32 f = to_f32(x).as("f");
    if (word == RoundTo::nearest_even) return f;
    const F64 w = to_f64(f).as("w");
    // A magnitude that is too large isn't zero: taking a step off its pattern leaves the sign alone.
    if (word == RoundTo::zero) return lowered(f, narrow_mask(abs(x) < abs(w)));
    if (word == RoundTo::down) return as_float(bits(f) - where(narrow_mask(x < w), upward(bits(f))));
    return as_float(bits(f) + where(narrow_mask(w < x), upward(bits(f))));
}

F64 double_from_uint(I32 x) { return exact<Type::f64>(zero_extend(x), 0); }

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

template <typename Convert>
void register_family(const std::string& name, Convert convert, std::vector<std::uint64_t> thresholds) {
    Describe({name.c_str()}, describe(std::function(convert)), {.thresholds = std::move(thresholds)});
}

const bool registered = [] {
    for (const auto& [name, word] : rounding_words) {
        for (const bool is_signed : {false, true}) {
            const std::string letter = is_signed ? "i" : "u";
            const std::string from_32 = "cvt" + letter + "32tofp" + name, from_64 = "cvt" + letter + "64tofp" + name;
            register_family(from_32 + "f", [=](I32 x) { return from_equal_size<Type::f32>(x, word, is_signed); }, halfway(32, 24));
            register_family(from_32, [=](I32 x) { return is_signed ? to_f64(x) : double_from_uint(x); }, {});
            register_family(from_64 + "f", [=](I64 x) { return from_long(x, word, is_signed); }, halfway(64, 24));
            register_family(from_64, [=](I64 x) { return from_equal_size<Type::f64>(x, word, is_signed); }, halfway(64, 53));
        }
        register_family(std::string("cvtfp64tofp32") + name, [=](F64 x) { return from_double(x, word); }, double_thresholds);
    }
    return true;
}();

}  // namespace
}  // namespace tuvo

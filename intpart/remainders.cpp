// Remainders: fmod, remainder, remquo.
//
// x - q y, with q the quotient rounded to an integer. Its products are exact without a fused multiply-add: y is split
// in two by a mask, and exponents that lie so close that q has few bits leave room for them. Other lanes, and those
// with an extreme y, take the rare routine.
#include "frame/description/families.hpp"
#include "intpart/fields.hpp"

namespace tuvo {
namespace {

/// Magnitudes of y that stay in the vector path, as top words from 0x0c000000 or 0x03300000 up: b - offset, signed, is
/// the lowest integer there and grows with b.
struct Divisors {
    std::uint32_t offset, last;
};
template <Type T>
constexpr Divisors divisors_of_fmod = T == Type::f32 ? Divisors{0x8c000000, 0xf28fffff}   // up to 0x7e8fffff
                                                     : Divisors{0x83300000, 0xfcbfffff};  // up to 0x7fefffff
template <Type T>
constexpr Divisors divisors_of_remainder = T == Type::f32 ? Divisors{0x8c000000, 0xed7fffff}   // up to 0x797fffff
                                                          : Divisors{0x83300000, 0xfb1fffff};  // up to 0x7e4fffff

template <Type T>
constexpr std::uint32_t largest_exponent_difference = T == Type::f32 ? 11 : 25;

template <Type T>
void rare_unless_close(Value<T> x, Value<T> b, Divisors divisors) {
    const I32 word = top_word(b);
    const I32 difference = exponent_bits(x) - (word & i32(Fields<T>::exponent_mask));
    rare_if(difference > i32(largest_exponent_difference<T> * Fields<T>::lowest_bit));
    rare_if(word - i32(divisors.offset) > i32(divisors.last));
}

template <Type T>
struct Split {
    Value<T> head, tail;
};
/// 12 and 12 bits of a float, 26 and 27 of a double.
template <Type T>
Split<T> split(Value<T> y) {
    const Value<T> head = (y & constant<T>(0xfffff000, 0xfffffffff8000000)).as("y head");
    return {head, y - head};
}

template <Type T>
Value<T> remainder_of_truncated(Value<T> x, Value<T> y) {
    const Value<T> sign = sign_bit(x), b = abs(y);
    rare_unless_close(x, b, divisors_of_fmod<T>);
    const auto [head, tail] = split(y);
    const Value<T> q = round(x / y, RoundTo::zero).as("q");
    // With the sign of x on y, the product is never negative.
    const Value<T> r = ((abs(x) - q * (head ^ sign)) - q * (tail ^ sign)).as("r");
    return (r + where(r < Value<T>(0.0f), b)) | sign;  // the division may have rounded up to an integer
}

template <Type T>
struct Nearest {
    Value<T> q, r;             ///< the quotient as first rounded, and what it leaves
    Value<mask_of(T)> beyond;  ///< r is more than half of y away
    Value<T> remainder;
};
/// The quotient is rounded in the processor's mode; in the usual one r is beyond half of y only where the division
/// rounded to a half. The last step is right for the other modes, too.
template <Type T>
Nearest<T> nearest(Value<T> x, Value<T> y) {
    const Value<T> b = abs(y);
    rare_unless_close(x, b, divisors_of_remainder<T>);
    const auto [head, tail] = split(y);
    const Value<T> q = round(x / y, RoundTo::current_quiet).as("q");
    const Value<T> r = ((x - q * head) - q * tail).as("r");
    const Value<mask_of(T)> beyond = abs(r) > Value<T>(0.5f) * b;
    const Value<T> remainder = r - (where(beyond, b) | sign_bit(r));
    return {q, r, beyond, remainder | where(remainder == Value<T>(0.0f), sign_bit(x))};
}

template <Type T>
Value<T> remainder_of_nearest(Value<T> x, Value<T> y) {
    return nearest(x, y).remainder;
}

M32 word_mask(M32 mask) { return mask; }
M32 word_mask(M64 mask) { return narrow_mask(mask); }

template <Type T>
std::pair<Value<T>, I32> remainder_and_quotient(Value<T> x, Value<T> y) {
    const auto [q, r, beyond, remainder] = nearest(x, y);
    const I32 one = (shift_right_signed(top_word(r ^ y), 31) | i32(1)).as("1 with the sign of r / y");
    return {remainder, to_i32(q) + where(word_mask(beyond), one)};
}

const Describe families[] = {
    {{"fmodf"}, describe(remainder_of_truncated<Type::f32>), {}},
    {{"fmod"}, describe(remainder_of_truncated<Type::f64>), {}},
    {{"remainderf"}, describe(remainder_of_nearest<Type::f32>), {}},
    {{"remainder"}, describe(remainder_of_nearest<Type::f64>), {}},
    {{"remquof"}, describe(remainder_and_quotient<Type::f32>), {}},
    {{"remquo"}, describe(remainder_and_quotient<Type::f64>), {}},
};

}  // namespace
}  // namespace tuvo

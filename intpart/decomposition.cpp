// Taking numbers apart and putting them together: fract, modf, frexp, ldexp, ilogb, logb, nextafter.
//
// The vector path does it by integer and logical steps that are right for normal numbers; a rare test sends the others
// to the rare routine, as each operation needs.
#include "frame/description/families.hpp"
#include "intpart/fields.hpp"

namespace tuvo {
namespace {

/// x less its floor, kept below 1 where the difference rounds up to it; and the floor.
template <Type T>
std::pair<Value<T>, Value<T>> fraction_and_floor(Value<T> x) {
    const Value<T> whole = round(x, RoundTo::down).as("floor");
    const Value<T> d = x - whole;
    rare_if((x == Value<T>(0.0f)) | is_nan(d));  // zeros; infinities and NaNs, which alone give a NaN
    const Value<T> below_one = constant<T>(0x3f7fffff, 0x3fefffffffffffff);  // 0.99999994, 0.99999999999999989
    return {min(d, below_one), whole};
}

/// Both parts with the sign of x.
template <Type T>
std::pair<Value<T>, Value<T>> fraction_and_whole(Value<T> x) {
    const Value<T> whole = round(x, RoundTo::zero).as("whole");
    const Value<T> d = x - whole;
    rare_if(is_nan(d));
    return {d | sign_bit(x), whole};
}

/// An exponent field of zero or all ones, with one integer compare: the sum wraps for all ones.
template <Type T>
void rare_unless_normal(I32 exponent_bits) {
    rare_if(i32(2 * Fields<T>::lowest_bit) > exponent_bits + i32(Fields<T>::lowest_bit));
}

/// Everything but the exponent field.
template <Type T>
Value<T> sign_and_fraction(Value<T> x) {
    return x & constant<T>(0x807fffff, 0x800fffffffffffff);
}

/// Significand in [0.5, 1) and exponent.
template <Type T>
std::pair<Value<T>, I32> significand_and_exponent(Value<T> x) {
    const I32 e = exponent_bits(x);
    rare_unless_normal<T>(e);
    return {sign_and_fraction(x) | Value<T>(0.5f), shift_right_signed(e - i32(Fields<T>::half), Fields<T>::shift)};
}

template <Type T>
I32 integer_exponent(Value<T> x) {
    const I32 e = exponent_bits(x);
    rare_unless_normal<T>(e);
    return (e >> Fields<T>::shift) - i32(Fields<T>::bias);
}

F32 float_exponent(F32 x) { return to_f32(integer_exponent(x)); }
F64 double_exponent(F64 x) { return to_f64(integer_exponent(x)); }

/// The exponent field moved to its place.
F32 placed_field(F32, I32 field) { return as_float(field << 23); }
F64 placed_field(F64, I32 field) { return as_float(join_words(field << 20, i32(0))); }

/// x times 2^n.
template <Type T>
Value<T> scaled(Value<T> x, I32 n) {
    // Beyond what any exponent needs, and so close that the sum can't wrap.
    const I32 c = min(max(n, i32(0xffff0000)), i32(0x00010000)).as("clamped n");
    const I32 e = (exponent_bits(x) >> Fields<T>::shift).as("exponent field");
    const I32 s = (e + c).as("exponent field of the product");
    rare_if(min(e, s) < i32(1));
    rare_if(max(e, s) > i32(Fields<T>::all_ones - 1));
    return sign_and_fraction(x) | placed_field(x, s);
}

/// The pattern of x is stepped by one.
template <Type T>
Value<T> next_toward(Value<T> x, Value<T> y) {
    using Bits = Value<int_of(T)>;
    const Bits differing = bits(x) ^ bits(y);
    // Negative where the step leads away from zero: equal signs, and a smaller magnitude of x.
    const Bits away = and_not(differing, bits(abs(x)) - bits(abs(y)));
    const Value<T> result = as_float(bits(x) + select(as_mask(away), Bits(1), Bits(-1)));
    const I32 lowest = i32(Fields<T>::lowest_bit);
    const I32 least = min(min(exponent_bits(x) + lowest, exponent_bits(y) + lowest), exponent_bits(result) + lowest);
    rare_if(i32(2 * Fields<T>::lowest_bit) > least);  // as in rare_unless_normal, for the three of them
    if constexpr (T == Type::f32)
        rare_if(differing == Bits(0));  // an integer compare raises no flag for a signalling NaN
    else
        rare_if(x == y);
    return result;
}

const Describe families[] = {
    {{"fractf"}, describe(fraction_and_floor<Type::f32>), {}},
    {{"fract"}, describe(fraction_and_floor<Type::f64>), {}},
    {{"modff"}, describe(fraction_and_whole<Type::f32>), {}},
    {{"modf"}, describe(fraction_and_whole<Type::f64>), {}},
    {{"frexpf"}, describe(significand_and_exponent<Type::f32>), {}},
    {{"frexp"}, describe(significand_and_exponent<Type::f64>), {}},
    {{"ldexpf"}, describe(scaled<Type::f32>), {}},
    {{"ldexp"}, describe(scaled<Type::f64>), {}},
    {{"ilogbf"}, describe(integer_exponent<Type::f32>), {}},
    {{"ilogb"}, describe(integer_exponent<Type::f64>), {}},
    {{"logbf"}, describe(float_exponent), {}},
    {{"logb"}, describe(double_exponent), {}},
    {{"nextafterf"}, describe(next_toward<Type::f32>), {}},
    {{"nextafter"}, describe(next_toward<Type::f64>), {}},
};

}  // namespace
}  // namespace tuvo

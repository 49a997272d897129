// Choosing between two values, and bits of them: fabs, copysign, nan, fdim, fmax, fmin, maxmag, minmag.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> magnitude(Value<T> x) {
    return abs(x);
}

template <Type T>
Value<T> with_sign_of(Value<T> x, Value<T> y) {
    return abs(x) | sign_bit(y);
}

/// A quiet NaN that carries the code. The code is not masked: sign and exponent bits in it go through.
F32 nan_float(I32 code) { return as_float(code | i32(0x7fc00000)); }
F64 nan_double(I64 code) { return as_float(code | i64(0x7ff8000000000000)); }

/// An infinity or NaN less itself is a NaN; everything else less itself is zero.
template <Type T>
void rare_unless_finite(Value<T> x, Value<T> y) {
    rare_if(compare(Predicate::unordered, x - x, y - y));
}

template <Type T>
Value<T> positive_difference(Value<T> x, Value<T> y) {
    rare_unless_finite(x, y);
    return where(x > y, x - y);
}

/// The processor's, in this order: of two zeros the second.
template <Type T>
Value<T> smaller(Value<T> x, Value<T> y) {
    rare_unless_finite(x, y);
    return min(x, y);
}
template <Type T>
Value<T> larger(Value<T> x, Value<T> y) {
    rare_unless_finite(x, y);
    return max(x, y);
}

/// x where its magnitude is the one wanted, y where that of y is, `of_equals` between equal magnitudes.
template <Type T>
Value<T> by_magnitude(Value<T> x, Value<T> y, Predicate wanted, Value<T> of_equals) {
    rare_unless_finite(x, y);
    const Value<T> ax = abs(x), ay = abs(y);
    return select(ax == ay, of_equals, select(compare(wanted, ax, ay), x, y));
}
template <Type T>
Value<T> smaller_magnitude(Value<T> x, Value<T> y) {
    return by_magnitude(x, y, Predicate::less, min(y, x));
}
template <Type T>
Value<T> larger_magnitude(Value<T> x, Value<T> y) {
    return by_magnitude(x, y, Predicate::greater, max(y, x));
}

const Describe families[] = {
    {{"fabsf"}, describe(magnitude<Type::f32>), {}},
    {{"fabs"}, describe(magnitude<Type::f64>), {}},
    {{"copysignf"}, describe(with_sign_of<Type::f32>), {}},
    {{"copysign"}, describe(with_sign_of<Type::f64>), {}},
    {{"nanf"}, describe(nan_float), {}},
    {{"nan"}, describe(nan_double), {}},
    {{"fdimf"}, describe(positive_difference<Type::f32>), {}},
    {{"fdim"}, describe(positive_difference<Type::f64>), {}},
    {{"fmaxf"}, describe(larger<Type::f32>), {}},
    {{"fmax"}, describe(larger<Type::f64>), {}},
    {{"fminf"}, describe(smaller<Type::f32>), {}},
    {{"fmin"}, describe(smaller<Type::f64>), {}},
    {{"maxmagf"}, describe(larger_magnitude<Type::f32>), {}},
    {{"maxmag"}, describe(larger_magnitude<Type::f64>), {}},
    {{"minmagf"}, describe(smaller_magnitude<Type::f32>), {}},
    {{"minmag"}, describe(smaller_magnitude<Type::f64>), {}},
};

}  // namespace
}  // namespace tuvo

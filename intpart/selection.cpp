// Decomposition and selection on bit patterns: fabs, copysign, nan.
#include "frame/families.hpp"

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

const Describe families[] = {
    {{"fabsf"}, describe(magnitude<Type::f32>), {}},
    {{"fabs"}, describe(magnitude<Type::f64>), {}},
    {{"copysignf"}, describe(with_sign_of<Type::f32>), {}},
    {{"copysign"}, describe(with_sign_of<Type::f64>), {}},
    {{"nanf"}, describe(nan_float), {}},
    {{"nan"}, describe(nan_double), {}},
};

}  // namespace
}  // namespace tuvo

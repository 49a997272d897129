// Rounding to integral values: ceil, floor, trunc, rint, nearbyint are one instruction each; round has no instruction.
#include "frame/description/families.hpp"
#include "intpart/fields.hpp"

namespace tuvo {
namespace {

template <Type T, RoundTo To>
Value<T> rounded(Value<T> x) {
    return round(x, To);
}

/// To nearest, halves away from zero. To-even goes toward zero only where the exact distance is 0.5.
template <Type T>
Value<T> round_half_away(Value<T> x) {
    const Value<T> sign = sign_bit(x), a = abs(x);
    const Value<T> n = round(a, RoundTo::nearest_even).as("n");
    const Value<T> d = (a - n).as("d");  // exact
    return (n + where(d == Value<T>(0.5f), Value<T>(1.0f))) | sign;
}

const Describe families[] = {
    {{"ceilf"}, describe(rounded<Type::f32, RoundTo::up>), {}},
    {{"ceil"}, describe(rounded<Type::f64, RoundTo::up>), {}},
    {{"floorf"}, describe(rounded<Type::f32, RoundTo::down>), {}},
    {{"floor"}, describe(rounded<Type::f64, RoundTo::down>), {}},
    {{"truncf"}, describe(rounded<Type::f32, RoundTo::zero>), {}},
    {{"trunc"}, describe(rounded<Type::f64, RoundTo::zero>), {}},
    // By the processor's mode; only rint lets the inexact flag show that the value changed.
    {{"rintf"}, describe(rounded<Type::f32, RoundTo::current>), {}},
    {{"rint"}, describe(rounded<Type::f64, RoundTo::current>), {}},
    {{"nearbyintf"}, describe(rounded<Type::f32, RoundTo::current_quiet>), {}},
    {{"nearbyint"}, describe(rounded<Type::f64, RoundTo::current_quiet>), {}},
    // The last number below 0.5, and where the spacing becomes 0.5 and 1.
    {{"roundf"}, describe(round_half_away<Type::f32>), {.thresholds = {0x3f000000, 0x4a800000, 0x4b000000}}},
    {{"round"},
     describe(round_half_away<Type::f64>),
     {.thresholds = {0x3fe0000000000000, 0x4320000000000000, 0x4330000000000000}}},
};

}  // namespace
}  // namespace tuvo

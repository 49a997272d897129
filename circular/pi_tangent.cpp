// Tangent of pi times x: tanpif, tanpi.
//
// Every argument is reduced, exactly, to a point of the half turn and a distance from it, and the table of the tangent
// is used throughout. Zeros and poles are put in where the distances are exactly zero.
#include "circular/double_tangent.hpp"
#include "circular/float_tangent.hpp"
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
using Pattern = std::conditional_t<T == Type::f32, std::uint32_t, std::uint64_t>;

F32 constant(std::uint32_t pattern) { return f32(pattern); }
F64 constant(std::uint64_t pattern) { return f64(pattern); }

template <Type T>
struct Constants;
template <>
struct Constants<Type::f32> {
    static constexpr std::uint32_t pi = 0x40490fdb;                 // 3.1415927410125732
    static constexpr std::uint32_t mod_limit = 0x4f000000;          // 2147483648, 2^31: above, all are even
    static constexpr std::uint32_t mod_shifter = 0x4fc00000;        // 6442450944, 1.5 x 2^32: last place 512
    static constexpr std::uint32_t half_turn_shifter = 0x47c00000;  // 98304, 1.5 x 2^16: last place 1/128
    static constexpr std::uint32_t pole_at_zero = 0x3fc90fdb;       // 1.5707963705062866
    static constexpr std::uint32_t infinity = 0x7f800000;
    static constexpr int index_bits = 7;
};
template <>
struct Constants<Type::f64> {
    static constexpr std::uint64_t pi = 0x400921fb54442d18;                 // 3.141592653589793
    static constexpr std::uint64_t mod_limit = 0x43a0000000000000;          // 5.764607523034235e+17, 2^59
    static constexpr std::uint64_t mod_shifter = 0x43b8000000000000;        // 1.7293822569102705e+18: last place 256
    static constexpr std::uint64_t half_turn_shifter = 0x42b8000000000000;  // 1.5 x 2^44: last place 1/256
    static constexpr std::uint64_t pole_at_zero = 0x3ff921fb54442d18;       // 1.5707963267948966
    static constexpr std::uint64_t infinity = 0x7ff0000000000000;
    static constexpr int index_bits = 8;
};

PoleEntry entry_at(I32 b) { return pole_entry(b & i32(0x7f)); }
PoleEntry64 entry_at(I64 b) { return pole_entry64(low_word(b) & i32(0xff)); }

/// One cubic step from the processor's estimate of 1 / d.
F64 reciprocal(F64 d) {
    const F64 c = reciprocal_approximation(d);
    const F64 eps = F64(1.0) - d * c;
    return c + ((c * eps) * (eps + F64(1.0))) * (F64(1.0) + eps * eps);
}

F64 around_default(const PoleEntry64& e, F64 y, F64 d) {
    const F64 head = (e.value_head + e.slope_head * y) + reciprocal(d) * e.pole_weight;
    const F64 z = y * y;
    const F64 A = e.slope_tail + e.r2 * y, B = e.r3 + e.r4 * y, C = e.r5 + e.r6 * y;
    return head + y * ((A + z * B) + (z * z) * (C + z * e.r7));
}

F64 around_short(const PoleEntry64& e, F64 y, F64 d) {
    const F64 z = y * y;
    return (reciprocal(d) * e.pole_weight + (e.value_head + (e.slope_head + e.slope_tail) * y)) + z * (e.r2 + y * e.r3);
}

template <Type T, typename Entry>
Value<T> tangent(Value<T> x, Value<T> (*around)(const Entry& e, Value<T> y, Value<T> d)) {
    using C = Constants<T>;
    const Value<T> a = abs(x);
    rare_if((x & constant(C::infinity)) == constant(C::infinity));
    // A multiple of a large even number is taken off first.
    const Value<T> shifter = where(a < constant(C::mod_limit), constant(C::mod_shifter));
    const Value<T> f1 = x - ((shifter + x) - shifter);
    const Value<T> b = constant(C::half_turn_shifter) + f1;
    const Entry e = entry_at(bits(b));
    const Value<T> odd = sign_bit(as_float(bits(b) << (8 * type_size(T) - 1 - C::index_bits)));
    const Value<T> y = ((f1 - (b - constant(C::half_turn_shifter))) * constant(C::pi)).as("y");
    const Value<T> d = (e.pole_dist_head - y).as("d");
    const Value<T> zero = constant(Pattern<T>(0));
    const auto at_pole = (d == zero) & (e.pole_weight != zero);
    const auto at_zero = (y == zero) & (d == constant(C::pole_at_zero));
    const Value<T> beside_pole = select(at_pole, constant(C::infinity) | odd, around(e, y, d));
    return select(at_zero, odd ^ sign_bit(x), beside_pole);
}

F32 float_default(F32 x) { return tangent(x, tangent_around_default); }
F32 float_short(F32 x) { return tangent(x, tangent_around_short); }
F64 double_default(F64 x) { return tangent(x, around_default); }
F64 double_short(F64 x) { return tangent(x, around_short); }

const Describe families[] = {
    {{"tanpif"},
     describe(float_default),
     {.ulp = 1.909,
      .worst = {0x3efeb37f},
      .stand_in = StandIn::exact,
      .thresholds = {0x3e800000, 0x3f000000, Constants<Type::f32>::mod_limit}}},
    {{"tanpif_native"},
     describe(float_short),
     {.ulp = 7.430,
      .worst = {0x3e7efe69},
      .stand_in = StandIn::high,
      .thresholds = {0x3e800000, 0x3f000000, Constants<Type::f32>::mod_limit}}},
    {{"tanpi"},
     describe(double_default),
     {.ulp = 4.148,
      .worst = {0x3fd5bab0f3cc7951},
      .stand_in = StandIn::exact,
      .thresholds = {0x3fd0000000000000, 0x3fe0000000000000, Constants<Type::f64>::mod_limit}}},
    {{"tanpi_native"},
     describe(double_short),
     {.ulp = 4.223e7,
      .worst = {0xbfcfc000000001ec},
      .stand_in = StandIn::exact,
      .thresholds = {0x3fd0000000000000, 0x3fe0000000000000, Constants<Type::f64>::mod_limit}}},
};

}  // namespace
}  // namespace tuvo

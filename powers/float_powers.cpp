// The default powf. All of it is done in double: the 29 bits beyond float take up what the product with y loses of the
// logarithm, and the last narrowing makes infinities and subnormals by itself.
//
// The significand's reciprocal, estimated by the processor and rounded to an integer r, makes the residual t = m r - 1
// so small that three terms finish its logarithm; that of 1 / r comes from a table. Either neighbour will do for r, so
// the estimate's last bits don't matter.
#include "frame/description/families.hpp"
#include "powers/float_power_tables.hpp"
#include "powers/natural_steps.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t smallest_normal = 0x00800000;
constexpr std::uint32_t largest_but_one = 0x7f7ffffe;
constexpr std::uint32_t infinity = 0x7f800000;
constexpr std::uint64_t exponent_limit = 0x4059fe3700000000;  // 103.972, 150 ln 2: nothing of a float is left beyond

F32 powf_default(F32 x, F32 y) {
    // Everything that integers and short floats hold exactly is done before the lanes are widened.
    const F32 m = ((x & f32(0x007fffff)) | f32(0x3a800000)).as("m");  // in [2^-10, 2^-9)
    const F32 r = round(reciprocal_approximation(m), RoundTo::nearest_even).as("r");
    rare_if((x < f32(smallest_normal)) | !(x <= f32(largest_but_one)) | !(abs(y) < f32(infinity)));

    // A factor of 2 goes from the table's value to the exponent for r up to 724, next to 512 sqrt(2): near 1 both are
    // zero.
    const I32 above = bits(bits(r) > i32(0x44350000));
    const F64 k = to_f64(((bits(x) >> 23) - i32(126)) + above).as("k");

    // The low bits of r's pattern are zeros, as it is an integer, and its index stands above them.
    const I32 offset = claim_range(bits(r) >> 11, 0x44000000 >> 11, 0x44800000 >> 11);
    const int logarithms = table(reciprocal_logarithms(), "-ln(r / 1024) or -ln(r / 512)");
    const F64 T = gather<Type::f64>(logarithms, offset, 0x44000000 >> 11).as("T");

    const F64 t = (to_f64(m) * to_f64(r) - 1.0).as("t");
    const F64 z = (natural_logarithm(t, T, k) * to_f64(y)).as("z");
    rare_if(!(abs(z) < f64(exponent_limit)));
    return to_f32(first_order_exponential(z, centred_powers()));
}

const Describe families[] = {
    {{"powf"},
     describe(powf_default),
     {.ulp = 2.194,
      .worst = {0x3f7fd5ed, 0x4802b751},
      .stand_in = StandIn::high,
      .thresholds = {smallest_normal, largest_but_one}}},
};

}  // namespace
}  // namespace tuvo

// Division of 32-bit integers in double precision, whose 53 bits hold a quotient exactly; the processor has no vector
// integer division. Nothing traps: by a zero divisor the quotient is 0x80000000 (signed) or 0 (unsigned) and the
// remainder the dividend; -2^31 divided by -1 gives 0x80000000 and the remainder 0.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

/// x / y for integers as doubles, ready to be truncated: never below the exact quotient, and above it by less than the
/// distance of any fraction from the next integer. `seed` is y once more. A zero divisor gives the default NaN.
///
/// Newton's method on 1 / y, from an approximation r0 of 12 bits: r (2 - r y) squares the relative error. The second
/// step is multiplied by x on the way, and stays 5 * 2^-48 below the quotient at most. So 2 is raised by 2^-42 there:
/// that lifts the result by as much, over the quotient where that is an integer. A fraction of y lies at least
/// 1 / x > 2^-32 of the quotient below the next integer, out of the lift's reach.
F64 lifted_quotient(F64 x, F64 y, F32 seed) {
    const F64 r0 = to_f64(reciprocal_approximation(seed)).as("r0");
    const F64 r1 = (r0 * (f64(0x4000000000000000) - r0 * y)).as("r1");              // 2.0
    return ((r1 * x) * (f64(0x4000000000000200).as("lift") - y * r1)).as("x / y");  // 2.0 + 2^-42
}

/// Signed. What doesn't fit, and NaN, becomes 0x80000000.
I32 signed_quotient(I32 x, I32 y) {
    return truncate_to_i32(lifted_quotient(to_f64(x), to_f64(y), to_f32(y))).as("quotient");
}

/// 1.5 * 2^52: a number of 32 bits that is added to it stands in the low word of the sum.
constexpr std::uint64_t shifter = 0x4338000000000000;  // 6755399441055744.0

F64 unsigned_to_f64(I32 u) {
    return as_float(join_words(i32(shifter >> 32).as("high word of shifter"), u)) - f64(shifter).as("shifter");
}

/// Unsigned. The default NaN has a low word of 0.
I32 unsigned_quotient(I32 x, I32 y) {
    const F64 divisor = unsigned_to_f64(y);
    const F64 quotient = round(lifted_quotient(unsigned_to_f64(x), divisor, to_f32(divisor)), RoundTo::zero);
    return low_word(bits(quotient + f64(shifter).as("shifter"))).as("quotient");
}

using Quotient = I32(I32 x, I32 y);

template <Quotient quotient>
std::pair<I32, I32> quotient_and_remainder(I32 x, I32 y) {
    const I32 q = quotient(x, y);
    return {q, (x - q * y).as("remainder")};
}

template <Quotient quotient>
I32 remainder(I32 x, I32 y) {
    return quotient_and_remainder<quotient>(x, y).second;
}

const Describe families[] = {
    {{"idiv"}, describe(signed_quotient), {}},
    {{"irem"}, describe(remainder<signed_quotient>), {}},
    {{"idivrem"}, describe(quotient_and_remainder<signed_quotient>), {}},
    {{"udiv"}, describe(unsigned_quotient), {}},
    {{"urem"}, describe(remainder<unsigned_quotient>), {}},
    {{"udivrem"}, describe(quotient_and_remainder<unsigned_quotient>), {}},
};

}  // namespace
}  // namespace tuvo

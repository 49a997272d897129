// The fused multiply-add a b + c, which these processors don't have: fma.
//
// The rare routine is exact for all arguments and rounds as the x87 control word says. The vector paths finish what
// they provably can while both control words round to nearest; ties, results near the ends of the range and all that is
// no number go to the routine. So do all lanes in other modes.
//
// Flags: the product and sum of the type itself, rounded twice, are made first, as they always were. What follows
// raises none that they don't. Arguments that make a NaN of them are replaced by zeros. What is exact raises nothing.
// An inexact step means that a b + c has more bits than the type, and then the product or the sum above was inexact,
// too.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

/// Where the value, a result of arithmetic, is no NaN. Numbers of the last binade count as NaNs, too. Made so that
/// neither a subnormal number nor a signalling NaN is compared, which would raise a flag.
template <Type T>
Value<mask_of(T)> is_number(Value<T> x) {
    const auto constant = [](std::uint64_t pattern) { return Value<T>(record_constant(T, pattern), nullptr); };
    const bool single = T == Type::f32;
    const Value<T> told =
        (x & constant(single ? 0x7fc00000 : 0x7ff8000000000000)) | constant(single ? 0x00800000 : 0x0010000000000000);
    return compare(Predicate::ordered, told, told);
}

/// In float: the product of 24 by 24 bits is exact in double, and the sum s of it and c is rounded to 53. Rounded once
/// more, to 24 bits, it gives what a b + c gives, unless s lies halfway between two floats: what s was rounded away
/// from is less than its distance to any halfway point, since those are doubles themselves.
F32 multiply_add_float(F32 a, F32 b, F32 c) {
    rare_unless_nearest();
    const F32 twice_rounded = a * b + c;
    const M32 number = is_number(twice_rounded);
    rare_if(!number);
    const F64 s = (to_f64(where(number, a)) * to_f64(where(number, b)) + to_f64(where(number, c))).as("s");
    const F64 magnitude = abs(s);
    // The bits that a float doesn't have, behind a one: 1 + 2^-24 for halfway.
    const F64 below = (s & f64(0x000000001fffffff)) | f64(0x3ff0000000000000);
    const M64 fine = (((magnitude >= f64(0x3810000000000000)) | (s == 0.0)) &  // 2^-126
                      (magnitude <= f64(0x47efffffe0000000))) &                // the largest float
                     compare(Predicate::not_equal, below, f64(0x3ff0000010000000));
    rare_if(!fine);
    // Other lanes' sums could overflow or underflow.
    return to_f32(where(fine, s));
}

struct Split {
    F64 head, tail;
};

/// x in two parts of 26 bits, the tail with a sign. Only exact steps: the head of 27 bits less that of 26 is the last
/// bit between them, and adding it once more rounds up.
Split split(F64 x) {
    const F64 longer = x & f64(0xfffffffffc000000), shorter = x & f64(0xfffffffff8000000);
    const F64 head = longer + (longer - shorter);
    return {head, x - head};
}

struct Sum {
    F64 rounded, error;
};

/// Knuth's sum without a condition on sizes.
Sum two_sum(F64 a, F64 b) {
    const F64 s = a + b, of_b = s - a;
    return {s, (a - (s - of_b)) + (b - of_b)};
}

/// In double, after Dekker (product) and Boldo and Melquiond (sum of three): a b = u + v exactly; t, t' is the sum of c
/// and v, w, w' that of u and t, all exact. The result is w + (t' + w') rounded, where the small sum z in brackets is
/// to be rounded so that no later tie comes of it. Here z is rounded to nearest, and a lane goes to the routine if z
/// was inexact and the last sum's rest has no bit but its first: w + z is a double, or halfway between two. Elsewhere w
/// + z lies on the same side of each halfway point m as the exact sum, since m - w is a double, and rounding keeps
/// order.
///
/// Magnitudes from 2^-450 to 2^450, and zeros: all terms are multiples of 2^-1004 then, and none overflows.
F64 multiply_add_double(F64 a, F64 b, F64 c) {
    rare_unless_nearest();
    const F64 twice_rounded = a * b + c;
    const M64 number = is_number(twice_rounded);
    const F64 least = f64(0x23d0000000000000), most = f64(0x5c10000000000000);
    const auto small = [&](F64 x) { return (abs(x) < least) & (x != 0.0); };
    const F64 a1 = where(number, a), b1 = where(number, b), c1 = where(number, c);
    const M64 outside = ((small(a1) | small(b1)) | small(c1)) | (max(max(abs(a1), abs(b1)), abs(c1)) > most);
    const M64 fine = number & !outside;
    rare_if(!fine);
    a = where(fine, a), b = where(fine, b), c = where(fine, c);

    const F64 u = (a * b).as("u");
    const Split x = split(a), y = split(b);
    const F64 v = (((x.head * y.head - u) + x.head * y.tail) + x.tail * y.head) + x.tail * y.tail;
    const Sum t = two_sum(c, v), w = two_sum(u, t.rounded);
    const Sum z = two_sum(t.error, w.error);
    const F64 result = (w.rounded + z.rounded).as("result");
    // Behind a one again: comparing a subnormal number would raise a flag.
    const F64 one = f64(0x3ff0000000000000);
    const F64 rest = ((z.rounded - (result - w.rounded)) & f64(0x000fffffffffffff)) | one;
    rare_if((z.error != 0.0) & (rest == one));
    // Of a zero, the sign is that of the plain sum, which is exact then.
    return select(result == 0.0, twice_rounded, result);
}

const Describe families[] = {
    {{"fmaf", "fmaf_rm"}, describe(multiply_add_float), {}},
    {{"fma"}, describe(multiply_add_double), {}},
};

}  // namespace
}  // namespace tuvo

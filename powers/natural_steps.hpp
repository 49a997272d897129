// Powers by a natural logarithm and exponential in plain double: the default float power, whose lanes leave 29 bits to
// spare, and the native tier of the double powers.
#pragma once

#include "frame/description/notation.hpp"
#include "powers/reciprocal_logarithms.hpp"

namespace tuvo {

/// ln(1 + t) + T + k ln 2, with T from the table of reciprocals and t no more than 2^-9 or so.
inline F64 natural_logarithm(F64 t, F64 T, F64 k) {
    const F64 p = t * f64(0x3fd55555555543c5) + f64(0xbfdffffffffff81f);  // 0.33333333333308374, -0.49999999999988803
    return (((t + p * (t * t)) + T) + k * f64(0x3fe62e42fefa39ef)).as("L");  // ln 2, 0.6931471805599453
}

/// e^z where it is a normal double. z is n steps of ln(2) / 2048, taken down, and a rest s from 0 to a step; e^s is 1 +
/// s. What that lacks is spread evenly by `powers`, a table of 2048 values 2^(j / 2048) with a bias. n goes into the
/// entry's exponent while the entry is still in halves, which changes no bit of the result.
inline F64 first_order_exponential(F64 z, RawTable powers) {
    const F64 shifter = f64(0x4338000000000000);                  // 6755399441055744, 1.5 2^52
    const F64 w = z * f64(0x40a71547652b82fe);                    // 2048 / ln 2, 2954.639443740597
    const F64 v = ((w - 0.5) + shifter).as("n");                  // less a half, so that n is mostly the floor
    const F64 s = (w - (v - shifter)) * f64(0x3f362f3904051fa1);  // 2^(1 / 2048) - 1, 0.00033850805268231294
    const I32 j = low_word(v) & i32(0x7ff);
    const I64 entry = gather<Type::i64>(table(std::move(powers), "2^(j / 2048)"), j << 3);
    const F64 E = as_float(entry + ((bits(v) & i64(0xfffffffffffff800)) << 41)).as("2^(n / 2048)");
    return E + E * s;
}

}  // namespace tuvo

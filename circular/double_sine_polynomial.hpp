// The sine's polynomial on a quarter turn to either side, in double: of sin, and of the functions of pi times x.
#pragma once

#include <cstdint>

namespace tuvo {

// (sin r - r) / r^3, highest degree first.
inline constexpr std::uint64_t double_sine_polynomial[] = {
    0xbd69f1517e9f65f0,  // -7.373344533110665e-13
    0x3de60e6bee01d83e,  // 1.6048095404959637e-10
    0xbe5ae6355aaa4a53,  // -2.505188027386288e-08
    0x3ec71de3806add1a,  // 2.7557316600552628e-06
    0xbf2a01a019a659dd,  // -0.00019841269825056256
    0x3f8111111110a573,  // 0.008333333333285542
    0xbfc55555555554a8,  // -0.16666666666666186
};

}  // namespace tuvo

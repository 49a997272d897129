// The rounding words in the names of conversions.
#pragma once


#include "frame/notation.hpp"

namespace tuvo {

struct RoundingWord {
    const char* name;
    RoundTo to;
};
inline constexpr RoundingWord rounding_words[] = {
    {"rte", RoundTo::nearest_even}, {"rtn", RoundTo::down}, {"rtp", RoundTo::up}, {"rtz", RoundTo::zero}};

}  // namespace tuvo

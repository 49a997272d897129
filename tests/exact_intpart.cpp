#include "tests/exact.hpp"

namespace tuvo {

ExactOutputs exact_intpart(const Family& family, std::span<const std::uint64_t> arguments) {
    const bool single = family.results[0] == Lane::f32;
    const std::uint64_t sign = single ? 0x80000000 : 0x8000000000000000;
    if (family.operation == "fabs") return {{arguments[0] & ~sign}};
    if (family.operation == "copysign") return {{(arguments[0] & ~sign) | (arguments[1] & sign)}};
    if (family.operation == "nan") return {{arguments[0] | (single ? 0x7fc00000 : 0x7ff8000000000000)}};
    return std::nullopt;
}

}  // namespace tuvo

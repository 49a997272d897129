#include "tests/exact.hpp"

namespace tuvo {

ExactOutputs exact_intdiv(const Family& family, std::span<const std::uint64_t> arguments) {
    const std::string& operation = family.operation;
    const bool is_signed = operation.starts_with('i');
    const std::string_view kind = std::string_view(operation).substr(1);
    if (kind != "div" && kind != "rem" && kind != "divrem") return std::nullopt;
    // In 64 bits, where -2^31 / -1 has room.
    const auto wide = [is_signed](std::uint64_t pattern) {
        const auto low = static_cast<std::uint32_t>(pattern);
        return is_signed ? std::int64_t{static_cast<std::int32_t>(low)} : std::int64_t{low};
    };
    const std::int64_t x = wide(arguments[0]), y = wide(arguments[1]);
    const std::int64_t by_zero = is_signed ? 0x80000000 : 0;
    const auto quotient = static_cast<std::uint32_t>(y == 0 ? by_zero : x / y);
    const auto remainder = static_cast<std::uint32_t>(y == 0 ? x : x % y);
    if (kind == "div") return {{quotient}};
    if (kind == "rem") return {{remainder}};
    return {{quotient, remainder}};
}

}  // namespace tuvo

#include "bench/scalar.hpp"

#include <cstdint>
#include <string_view>

#include "frame/operations.hpp"

namespace tuvo {
namespace {

template <typename Int, int lanes>
struct VectorOf {
    typedef Int Type __attribute__((vector_size(lanes <= 4 ? 16 : 32)));
};

template <typename Int>
Int quotient(Int x, Int y) {
    return x / y;
}
template <typename Int>
Int remainder(Int x, Int y) {
    return x % y;
}
/// The quotient in the low word.
template <typename Int>
std::uint64_t both(Int x, Int y) {
    return static_cast<std::uint32_t>(x / y) | static_cast<std::uint64_t>(x % y) << 32;
}

template <auto divide, typename Int, int lanes>
Int* loop(Int* results, typename VectorOf<Int, lanes>::Type x, typename VectorOf<Int, lanes>::Type y) {
    constexpr int second = lanes <= 4 ? 4 : 8;
    for (int k = 0; k < lanes; ++k) {
        const auto result = divide(x[k], y[k]);
        results[k] = static_cast<Int>(result);
        if (sizeof(result) == 8) results[second + k] = static_cast<Int>(static_cast<std::uint64_t>(result) >> 32);
    }
    return results;
}

template <auto divide, typename Int>
const void* with_lanes(int lanes) {
    switch (lanes) {
    case 1: return reinterpret_cast<const void*>(divide);
    case 3: return reinterpret_cast<const void*>(loop<divide, Int, 3>);
    case 4: return reinterpret_cast<const void*>(loop<divide, Int, 4>);
    case 8: return reinterpret_cast<const void*>(loop<divide, Int, 8>);
    default: return nullptr;
    }
}

struct Division {
    std::string_view operation;
    const void* (*with_lanes)(int lanes);
};
using I = std::int32_t;
using U = std::uint32_t;
constexpr Division divisions[] = {
    {"idiv", with_lanes<quotient<I>, I>}, {"irem", with_lanes<remainder<I>, I>}, {"idivrem", with_lanes<both<I>, I>},
    {"udiv", with_lanes<quotient<U>, U>}, {"urem", with_lanes<remainder<U>, U>}, {"udivrem", with_lanes<both<U>, U>},
};

}  // namespace

const void* scalar_loop(const Family& family, int lanes) {
    for (const Division& division : divisions)
        if (division.operation == family.operation) return division.with_lanes(lanes);
    return nullptr;
}

}  // namespace tuvo

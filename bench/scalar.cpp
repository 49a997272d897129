#include "bench/scalar.hpp"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "frame/description/operations.hpp"

namespace tuvo {
namespace {

/// Lanes as they are passed: in one register, or in two of 256 bits.
template <typename T, int lanes>
struct VectorOf {
    static constexpr int bytes = (lanes == 3 ? 4 : lanes) * int(sizeof(T));
    static constexpr int parts = bytes > 32 ? 2 : 1, in_part = lanes / parts;
    typedef T Type __attribute__((vector_size(bytes / parts)));
};

// Integer division.

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
const void* division_of(int lanes) {
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
    {"idiv", division_of<quotient<I>, I>}, {"irem", division_of<remainder<I>, I>}, {"idivrem", division_of<both<I>, I>},
    {"udiv", division_of<quotient<U>, U>}, {"urem", division_of<remainder<U>, U>}, {"udivrem", division_of<both<U>, U>},
};

// Conversions.

template <typename To, typename From, Rounding word, bool saturates>
To convert(From x) {
    if constexpr (std::is_floating_point_v<To>) {
        return static_cast<To>(x);
    } else {
        using Limits = std::numeric_limits<To>;
        const From r = word == Rounding::rte   ? std::rint(x)
                       : word == Rounding::rtn ? std::floor(x)
                       : word == Rounding::rtp ? std::ceil(x)
                                               : x;  // a cast truncates
        if (saturates) {
            if (r != r) return 0;
            if (r >= static_cast<From>(Limits::max() / 2 + 1) * 2) return Limits::max();
            if (r < static_cast<From>(Limits::min())) return Limits::min();
        }
        return static_cast<To>(r);
    }
}

template <auto convert, typename To, typename From, int lanes>
To* loop(To* results, typename VectorOf<From, lanes>::Type x) {
    for (int k = 0; k < lanes; ++k) results[k] = convert(x[k]);
    return results;
}
template <auto convert, typename To, typename From, int lanes>
To* loop_of_two(To* results, typename VectorOf<From, lanes>::Type x, typename VectorOf<From, lanes>::Type y) {
    for (int k = 0; k < lanes / 2; ++k) results[k] = convert(x[k]);
    for (int k = 0; k < lanes / 2; ++k) results[lanes / 2 + k] = convert(y[k]);
    return results;
}

template <auto convert, typename To, typename From>
const void* conversion_of(int lanes) {
    switch (lanes) {
    case 1: return reinterpret_cast<const void*>(convert);
    case 3: return reinterpret_cast<const void*>(loop<convert, To, From, 3>);
    case 4: return reinterpret_cast<const void*>(loop<convert, To, From, 4>);
    case 8:
        if constexpr (sizeof(From) == 4)
            return reinterpret_cast<const void*>(loop<convert, To, From, 8>);
        else
            return reinterpret_cast<const void*>(loop_of_two<convert, To, From, 8>);
    default: return nullptr;
    }
}

template <typename To, typename From, bool saturates>
const void* rounding_to(Rounding word, int lanes) {
    switch (word) {
    case Rounding::rte: return conversion_of<convert<To, From, Rounding::rte, saturates>, To, From>(lanes);
    case Rounding::rtn: return conversion_of<convert<To, From, Rounding::rtn, saturates>, To, From>(lanes);
    case Rounding::rtp: return conversion_of<convert<To, From, Rounding::rtp, saturates>, To, From>(lanes);
    default: return conversion_of<convert<To, From, Rounding::rtz, saturates>, To, From>(lanes);
    }
}

/// Calls `use` with a value of the lane's C type.
template <typename Use>
const void* with_type(Lane lane, Use use) {
    switch (lane) {
    case Lane::f32: return use(float());
    case Lane::f64: return use(double());
    case Lane::i32: return use(std::int32_t());
    case Lane::u32: return use(std::uint32_t());
    case Lane::i64: return use(std::int64_t());
    default: return use(std::uint64_t());
    }
}

}  // namespace

const void* scalar_loop(const Family& family, int lanes) {
    for (const Division& division : divisions)
        if (division.operation == family.operation) return division.with_lanes(lanes);
    if (!family.stem.starts_with("cvt")) return nullptr;
    return with_type(family.arguments[0], [&](auto from) {
        return with_type(family.results[0], [&](auto to) -> const void* {
            using From = decltype(from);
            using To = decltype(to);
            if constexpr (std::is_floating_point_v<To>) {
                // Casts round to nearest; there is no plain code for the directed words.
                if (family.rounding != Rounding::rte) return nullptr;
                return conversion_of<convert<To, From, Rounding::rte, false>, To, From>(lanes);
            } else if constexpr (std::is_floating_point_v<From>) {
                return family.saturation == Saturation::sat ? rounding_to<To, From, true>(family.rounding, lanes)
                                                            : rounding_to<To, From, false>(family.rounding, lanes);
            } else {
                return nullptr;
            }
        });
    });
}

}  // namespace tuvo

#include "bench/headers.hpp"

#include <immintrin.h>

#include <cstdint>
#include <type_traits>

#if __has_include(<xsimd/xsimd.hpp>)
#include <xsimd/xsimd.hpp>
#define TUVO_HAVE_XSIMD 1
#endif
#if __has_include(<Eigen/Core>)
#include <Eigen/Core>
#define TUVO_HAVE_EIGEN 1
#endif

namespace tuvo {
namespace {

template <typename T, int lanes>
using Register = std::conditional_t<sizeof(T) == 4, std::conditional_t<lanes == 8, __m256, __m128>,
                                    std::conditional_t<lanes == 4, __m256d, __m128d>>;

/// The function that fits, of `Operation<T, lanes>::call`.
template <template <typename, int> typename Operation>
const void* pick(int lane_bytes, int lanes) {
    const auto address = [](auto* function) { return reinterpret_cast<const void*>(function); };
    if (lane_bytes == 4) return lanes == 8 ? address(&Operation<float, 8>::call) : address(&Operation<float, 4>::call);
    return lanes == 4 ? address(&Operation<double, 4>::call) : address(&Operation<double, 2>::call);
}

#ifdef TUVO_HAVE_XSIMD
template <typename T, int lanes>
using Batch = xsimd::batch<T, std::conditional_t<lanes * sizeof(T) == 32, xsimd::avx, xsimd::sse4_2>>;

#define XSIMD_UNARY(WITH)                                                                                          \
    WITH(exp)                                                                                                      \
    WITH(exp2) WITH(exp10) WITH(expm1) WITH(log) WITH(log2) WITH(log10) WITH(log1p) WITH(sin) WITH(cos) WITH(tan)  \
        WITH(asin) WITH(acos) WITH(atan) WITH(sinh) WITH(cosh) WITH(tanh) WITH(asinh) WITH(acosh) WITH(atanh)      \
            WITH(erf) WITH(erfc) WITH(cbrt) WITH(sqrt) WITH(lgamma) WITH(tgamma) WITH(rint) WITH(ceil) WITH(floor) \
                WITH(trunc) WITH(round)
#define XSIMD_BINARY(WITH) WITH(pow) WITH(hypot) WITH(atan2) WITH(fmod) WITH(remainder) WITH(nextafter)

#define DEFINE_UNARY(NAME)                                                                               \
    template <typename T, int lanes>                                                                     \
    struct xsimd_##NAME {                                                                                \
        static Register<T, lanes> call(Register<T, lanes> x) { return xsimd::NAME(Batch<T, lanes>(x)); } \
    };
XSIMD_UNARY(DEFINE_UNARY)
#undef DEFINE_UNARY
#define DEFINE_BINARY(NAME)                                                          \
    template <typename T, int lanes>                                                 \
    struct xsimd_##NAME {                                                            \
        static Register<T, lanes> call(Register<T, lanes> x, Register<T, lanes> y) { \
            return xsimd::NAME(Batch<T, lanes>(x), Batch<T, lanes>(y));              \
        }                                                                            \
    };
XSIMD_BINARY(DEFINE_BINARY)
#undef DEFINE_BINARY
#endif

#ifdef TUVO_HAVE_EIGEN
template <typename T, int lanes>
using Packet = std::conditional_t<sizeof(T) == 4,
                                  std::conditional_t<lanes == 8, Eigen::internal::Packet8f, Eigen::internal::Packet4f>,
                                  std::conditional_t<lanes == 4, Eigen::internal::Packet4d, Eigen::internal::Packet2d>>;

/// Those that it has in both types, and those in float alone.
#define EIGEN_BOTH(WITH) WITH(exp) WITH(log) WITH(sqrt) WITH(rsqrt)
#define EIGEN_FLOAT(WITH) WITH(sin) WITH(cos) WITH(tanh) WITH(expm1) WITH(log1p)
#define DEFINE(NAME)                                                                                                   \
    template <typename T, int lanes>                                                                                   \
    struct eigen_##NAME {                                                                                              \
        static Register<T, lanes> call(Register<T, lanes> x) { return Eigen::internal::p##NAME(Packet<T, lanes>(x)); } \
    };
EIGEN_BOTH(DEFINE)
EIGEN_FLOAT(DEFINE)
#undef DEFINE
#endif

}  // namespace

const void* by_xsimd([[maybe_unused]] std::string_view operation, [[maybe_unused]] int lane_bytes,
                     [[maybe_unused]] int lanes) {
#ifdef TUVO_HAVE_XSIMD
#define FIND(NAME) \
    if (operation == #NAME) return pick<xsimd_##NAME>(lane_bytes, lanes);
    XSIMD_UNARY(FIND)
    XSIMD_BINARY(FIND)
#undef FIND
#endif
    return nullptr;
}

const void* by_eigen([[maybe_unused]] std::string_view operation, [[maybe_unused]] int lane_bytes,
                     [[maybe_unused]] int lanes) {
#ifdef TUVO_HAVE_EIGEN
#define FIND(NAME) \
    if (operation == #NAME) return pick<eigen_##NAME>(lane_bytes, lanes);
    EIGEN_BOTH(FIND)
#undef FIND
    const auto single = [](auto* wide, auto* narrow, int count) {
        return count == 8 ? reinterpret_cast<const void*>(wide) : reinterpret_cast<const void*>(narrow);
    };
#define FIND(NAME)                             \
    if (operation == #NAME && lane_bytes == 4) \
        return single(&eigen_##NAME<float, 8>::call, &eigen_##NAME<float, 4>::call, lanes);
    EIGEN_FLOAT(FIND)
#undef FIND
#endif
    return nullptr;
}

}  // namespace tuvo

// What a compiler makes of an operation from the processor's correctly rounded divide and square root, as a peer where
// the vector library has none. 256-bit AVX and its 128-bit forms.
#include "bench/instructions.hpp"

#include <immintrin.h>

namespace tuvo {
namespace {

__m128 inv_f4(__m128 x) { return _mm_div_ps(_mm_set1_ps(1), x); }
__m256 inv_f8(__m256 x) { return _mm256_div_ps(_mm256_set1_ps(1), x); }
__m128d inv_d2(__m128d x) { return _mm_div_pd(_mm_set1_pd(1), x); }
__m256d inv_d4(__m256d x) { return _mm256_div_pd(_mm256_set1_pd(1), x); }
__m128 div_f4(__m128 a, __m128 b) { return _mm_div_ps(a, b); }
__m256 div_f8(__m256 a, __m256 b) { return _mm256_div_ps(a, b); }
__m128d div_d2(__m128d a, __m128d b) { return _mm_div_pd(a, b); }
__m256d div_d4(__m256d a, __m256d b) { return _mm256_div_pd(a, b); }
__m128 rsqrt_f4(__m128 x) { return inv_f4(_mm_sqrt_ps(x)); }
__m256 rsqrt_f8(__m256 x) { return inv_f8(_mm256_sqrt_ps(x)); }
__m128d rsqrt_d2(__m128d x) { return inv_d2(_mm_sqrt_pd(x)); }
__m256d rsqrt_d4(__m256d x) { return inv_d4(_mm256_sqrt_pd(x)); }

template <typename Function>
const void* address(Function* function) {
    return reinterpret_cast<const void*>(function);
}

}  // namespace

const void* by_instructions(std::string_view operation, int lane_bytes, int lanes) {
    const bool wide = lanes * lane_bytes == 32, single = lane_bytes == 4;
    const auto pick = [&](const void* f4, const void* f8, const void* d2, const void* d4) {
        return single ? (wide ? f8 : f4) : (wide ? d4 : d2);
    };
    if (operation == "inv") return pick(address(inv_f4), address(inv_f8), address(inv_d2), address(inv_d4));
    if (operation == "div") return pick(address(div_f4), address(div_f8), address(div_d2), address(div_d4));
    if (operation == "rsqrt") return pick(address(rsqrt_f4), address(rsqrt_f8), address(rsqrt_d2), address(rsqrt_d4));
    return nullptr;
}

}  // namespace tuvo

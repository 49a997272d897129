// Rare routines of the circular functions of pi times x. The kernels finish every finite argument themselves; only
// infinities and NaN come here. The sine and cosine in double have none.
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

/// The NaN that sinpif and cospif give for every argument that isn't finite.
inline RareStatus all_ones(float* r) {
    *r = f32(0x7fffffff);
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus sinpif_rare(const float*, float* r) { return all_ones(r); }
RareStatus cospif_rare(const float*, float* r) { return all_ones(r); }

RareStatus tanpif_rare(const float* x, float* r) {
    if (bits(*x) << 1 == 0xff000000) {
        *r = *x * 0.0f;  // an invalid operation
        return RareStatus::domain;
    }
    *r = *x + *x;  // quiet
    return RareStatus::ordinary;
}

RareStatus tanpi_rare(const double* x, double* r) {
    if (bits(*x) << 1 == 0xffe0000000000000) {
        *r = *x * 0.0;
        return RareStatus::domain;
    }
    *r = *x * *x;
    return RareStatus::ordinary;
}

}  // extern "C"

}  // namespace tuvo

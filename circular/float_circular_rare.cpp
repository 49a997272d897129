// Rare routines of the float circular functions. The kernels finish every finite argument themselves, however large;
// only infinities and NaN come here.
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

/// The result for an infinity or NaN, and its status.
inline RareStatus not_finite(float x, float* r) {
    if (bits(x) << 1 == 0xff000000) {
        *r = x * 0.0f;  // an invalid operation
        return RareStatus::domain;
    }
    *r = x * x;  // quiet
    return RareStatus::ordinary;
}

inline RareStatus not_finite(float x, float* sine, float* cosine) {
    const RareStatus status = not_finite(x, sine);
    *cosine = *sine;
    return status;
}

}  // namespace

extern "C" {

RareStatus sinf_rare(const float* x, float* r) { return not_finite(*x, r); }
RareStatus cosf_rare(const float* x, float* r) { return not_finite(*x, r); }
RareStatus tanf_rare(const float* x, float* r) { return not_finite(*x, r); }
RareStatus sincosf_rare(const float* x, float* sine, float* cosine) { return not_finite(*x, sine, cosine); }
RareStatus sincosregf_rare(const float* x, float* sine, float* cosine) { return not_finite(*x, sine, cosine); }

}  // extern "C"

}  // namespace tuvo

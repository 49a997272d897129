// Rare routines of the double circular functions. The kernels of the default tier and all of the tangent's finish every
// finite argument themselves, however large; only infinities and NaN come here.
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

/// The result for an infinity or NaN, and its status.
inline RareStatus not_finite(double x, double* r) {
    if (bits(x) << 1 == 0xffe0000000000000) {
        *r = x * 0.0;  // an invalid operation
        return RareStatus::domain;
    }
    *r = x * x;  // quiet
    return RareStatus::ordinary;
}

inline RareStatus not_finite(double x, double* sine, double* cosine) {
    const RareStatus status = not_finite(x, sine);
    *cosine = *sine;
    return status;
}

}  // namespace

extern "C" {

RareStatus sin_rare(const double* x, double* r) { return not_finite(*x, r); }
RareStatus cos_rare(const double* x, double* r) { return not_finite(*x, r); }
RareStatus tan_rare(const double* x, double* r) { return not_finite(*x, r); }
RareStatus sincos_rare(const double* x, double* sine, double* cosine) { return not_finite(*x, sine, cosine); }
RareStatus sincosreg_rare(const double* x, double* sine, double* cosine) { return not_finite(*x, sine, cosine); }

}  // extern "C"

}  // namespace tuvo

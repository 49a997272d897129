// Rare routines of the choices between two values. Kernels send them infinities and NaNs; the vector result of a lane
// without a NaN is right already and stays.

#include "intpart/format.hpp"

namespace tuvo {
namespace {

/// A NaN is the result; of two, the second.
template <class T>
inline RareStatus keep_nan(const T* x, const T* y, T* out) {
    if (is_nan(*x)) *out = *x;
    if (is_nan(*y)) *out = *y;
    return RareStatus::ordinary;
}

/// A NaN gives way to the other value; of two, the second stays.
template <class T>
inline RareStatus drop_nan(const T* x, const T* y, T* out) {
    if (is_nan(*y)) *out = *x;
    if (is_nan(*x)) *out = *y;
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus fdimf_rare(const float* x, const float* y, float* out) { return keep_nan(x, y, out); }
RareStatus fdim_rare(const double* x, const double* y, double* out) { return keep_nan(x, y, out); }

RareStatus fmaxf_rare(const float* x, const float* y, float* out) { return drop_nan(x, y, out); }
RareStatus fmax_rare(const double* x, const double* y, double* out) { return drop_nan(x, y, out); }
RareStatus fminf_rare(const float* x, const float* y, float* out) { return drop_nan(x, y, out); }
RareStatus fmin_rare(const double* x, const double* y, double* out) { return drop_nan(x, y, out); }
RareStatus maxmagf_rare(const float* x, const float* y, float* out) { return drop_nan(x, y, out); }
RareStatus maxmag_rare(const double* x, const double* y, double* out) { return drop_nan(x, y, out); }
RareStatus minmagf_rare(const float* x, const float* y, float* out) { return drop_nan(x, y, out); }
RareStatus minmag_rare(const double* x, const double* y, double* out) { return drop_nan(x, y, out); }

}  // extern "C"

}  // namespace tuvo

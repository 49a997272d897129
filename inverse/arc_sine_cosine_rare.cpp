// Rare routines of the arc sines and arc cosines: arguments outside [-1, 1], and for those in half turns its ends.
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

/// Infinities, NaNs, and finite numbers that are too large.
template <class T>
inline RareStatus outside(T x, T* out) {
    if (exponent_field(x) == exponent_field_all_ones<T>) {
        *out = x / x;
        return x == x ? RareStatus::domain : RareStatus::ordinary;
    }
    const T zero = x - x;
    *out = zero / zero;
    return RareStatus::domain;
}

/// With the results at 1 and -1. Inside the interval the kernel's own result stands.
template <class T>
inline RareStatus in_turns(T x, T at_one, T at_minus_one, T* out) {
    // A compare of a quiet NaN would raise a flag.
    if (exponent_field(x) == exponent_field_all_ones<T> || __builtin_fabs(x) > 1) return outside(x, out);
    if (x == 1) *out = at_one;
    if (x == -1) *out = at_minus_one;
    return RareStatus::ordinary;
}

}  // namespace

extern "C" {

RareStatus asinf_rare(const float* x, float* out) { return outside(*x, out); }
RareStatus acosf_rare(const float* x, float* out) { return outside(*x, out); }
RareStatus asin_rare(const double* x, double* out) { return outside(*x, out); }
RareStatus acos_rare(const double* x, double* out) { return outside(*x, out); }

RareStatus asinpif_rare(const float* x, float* out) { return in_turns(*x, 0.5f, -0.5f, out); }
RareStatus acospif_rare(const float* x, float* out) { return in_turns(*x, 0.0f, 1.0f, out); }
RareStatus asinpi_rare(const double* x, double* out) { return in_turns(*x, 0.5, -0.5, out); }
RareStatus acospi_rare(const double* x, double* out) { return in_turns(*x, 0.0, 1.0, out); }

}  // extern "C"

}  // namespace tuvo

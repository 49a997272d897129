// Rare routines of the inverse hyperbolic functions. Kernels send them what lies at the edge of the domain or outside,
// infinities and NaNs; they know nothing else. NaNs are made by infinity times zero.

#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

template <class T>
constexpr T infinity = static_cast<T>(__builtin_inf());

template <class T>
inline RareStatus invalid(T magnitude, T* r) {
    *r = magnitude * runtime(T(0));
    return RareStatus::domain;
}

template <class T>
inline RareStatus inverse_sine(T x, T* r) {
    *r = x != x ? multiply(x, x) : x;
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus inverse_cosine(T x, T* r) {
    if (x != x)
        *r = multiply(x, x);
    else if (x == 1)
        *r = 0;
    else if (x == infinity<T>)
        *r = x;
    else
        return invalid(runtime(infinity<T>), r);
    return RareStatus::ordinary;
}

template <class T>
inline RareStatus inverse_tangent(T x, T* r) {
    if (x != x) {
        *r = multiply(x, x);
        return RareStatus::ordinary;
    }
    if (x == 1 || x == -1) {
        // No divide-by-zero is raised: the infinity is a constant.
        *r = x < 0 ? 0 - runtime(infinity<T>) : infinity<T>;
        return RareStatus::pole;
    }
    return invalid(runtime(infinity<T>), r);
}

}  // namespace

extern "C" {

RareStatus asinhf_rare(const float* x, float* r) { return inverse_sine(*x, r); }
RareStatus asinh_rare(const double* x, double* r) { return inverse_sine(*x, r); }
RareStatus acoshf_rare(const float* x, float* r) { return inverse_cosine(*x, r); }
RareStatus acosh_rare(const double* x, double* r) { return inverse_cosine(*x, r); }
RareStatus atanhf_rare(const float* x, float* r) { return inverse_tangent(*x, r); }
RareStatus atanh_rare(const double* x, double* r) { return inverse_tangent(*x, r); }

}  // extern "C"

}  // namespace tuvo

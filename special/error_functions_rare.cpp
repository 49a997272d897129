// Rare routines of erfc. Kernels send them NaN, infinity, and arguments so large that the result underflows; only the
// least of those, in float, has a result other than zero.
#include "explog/exponential_steps.hpp"
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

/// erfc y exp(y^2) for y from 10 on, by the asymptotic series, which is good to 1e-13 there.
inline double scaled_complement(double y) {
    const double t = 1 / (2 * y * y);
    const double series = horner(t, 2027025.0, -135135.0, 10395.0, -945.0, 105.0, -15.0, 3.0, -1.0, 1.0);
    return series / (y * f64(0x3ffc5bf891b4ef6a, 1.7724538509055159));  // sqrt(pi)
}

template <class T>
inline RareStatus complement(T x, T* out) {
    if (x != x) {
        *out = x * x;
        return RareStatus::ordinary;
    }
    if (x == __builtin_huge_val()) {
        *out = 0;
        return RareStatus::ordinary;
    }
    // The result of the least float that comes here is 1.00001 times the tie between 0 and 2^-149.
    if (sizeof(T) == 4 && x < f64(0x40241bbf700dc3fb, 10.054194928818097)) {
        const double y = x;
        const Reduction a = reduce(-(y * y), natural_step);  // the square is exact
        *out = static_cast<T>(scaled(a.T + a.T * natural_excess(a), a.m) * scaled_complement(y));
        return RareStatus::ordinary;
    }
    return exponential_underflow(out);
}

}  // namespace

extern "C" {

RareStatus erfcf_rare(const float* x, float* out) { return complement(*x, out); }

RareStatus erfc_rare(const double* x, double* out) { return complement(*x, out); }

}  // extern "C"

}  // namespace tuvo

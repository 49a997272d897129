// Rare routines of the quotients and reciprocals: the divide itself yields every special value, so that there is
// nothing to branch on.
#include "frame/description/rare.hpp"

namespace tuvo {
namespace {

template <class T>
inline RareStatus store(T quotient, T* out, T divisor) {
    *out = quotient;
    return static_cast<RareStatus>(static_cast<int>(RareStatus::pole) * (divisor == 0));
}

}  // namespace

extern "C" {

RareStatus divf_rare(const float* a, const float* b, float* out) { return store(*a / *b, out, *b); }
RareStatus div_rare(const double* a, const double* b, double* out) { return store(*a / *b, out, *b); }

RareStatus invf_rare(const float* x, float* out) {
    const double wide = runtime(static_cast<double>(*x));  // or the compiler divides in float
    return store(static_cast<float>(1.0 / wide), out, *x);
}
RareStatus inv_rare(const double* x, double* out) { return store(1.0 / *x, out, *x); }

}  // extern "C"

}  // namespace tuvo

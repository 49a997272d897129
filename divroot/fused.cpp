// The fused multiply-add a b + c, which these processors don't have: fma.
//
// Every lane goes to the rare routine, which is exact. The kernel's own value, rounded twice, is always replaced.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> multiply_add(Value<T> a, Value<T> b, Value<T> c) {
    rare_always();
    return a * b + c;
}

const Describe families[] = {
    {{"fmaf", "fmaf_rm"}, describe(multiply_add<Type::f32>), {}},
    {{"fma"}, describe(multiply_add<Type::f64>), {}},
};

}  // namespace
}  // namespace tuvo

// Log-gamma and gamma: lgamma, lgammar, tgamma, and their float forms. They have no vector path: the rare routines do
// every lane.
#include "frame/description/families.hpp"

namespace tuvo {
namespace {

template <Type T>
Value<T> by_routine(Value<T> x) {
    rare_always();
    return x;
}

template <Type T>
std::pair<Value<T>, I32> by_routine_with_sign(Value<T> x) {
    rare_always();
    return {x, I32(0)};
}

// The zeros at 1 and 2 and the ends of intervals; of negative arguments, those of the ways they go, and some zeros.
const std::vector<std::uint64_t> log_thresholds_f{0x3f800000, 0x40000000, 0x3fa00000, 0x3fbb16c3, 0x3fe00000, 0x40800000,
                                                  0x46000000, 0x7c44af8e, 0x41100000, 0x401d3ff2, 0x402fda08, 0x40493070,
                                                  0x407d238a, 0x409fbac0, 0x411fffff};
const std::vector<std::uint64_t> log_thresholds{
    0x3ff0000000000000, 0x4000000000000000, 0x3fec000000000000, 0x3ff4000000000000, 0x3ffc000000000000,
    0x4002000000000000, 0x4010000000000000, 0x4080000000000000, 0x7f5754d9278b51a7, 0x4031000000000000};
const std::vector<std::uint64_t> thresholds_f{0x420c2910, 0x422c0000, 0x42200000, 0x00200000, 0x40000000, 0x41000000,
                                              0x3fa00000, 0x3fc00000, 0x3fe00000};
const std::vector<std::uint64_t> thresholds{0x406573fae561f647, 0x4067000000000000, 0x4065600000000000, 0x0004000000000000,
                                            0x4000000000000000, 0x4030000000000000, 0x3ff4000000000000, 0x3ff8000000000000,
                                            0x3ffc000000000000};

const Describe families[] = {
    {{"lgammaf"}, describe(by_routine<Type::f32>), {.ulp = 0.5025, .worst = {0x4001fb14}, .thresholds = log_thresholds_f}},
    {{"lgammarf"}, describe(by_routine_with_sign<Type::f32>), {.ulp = 0.5025, .worst = {0x4001fb14}, .thresholds = log_thresholds_f}},
    {{"lgamma"}, describe(by_routine<Type::f64>), {.ulp = 0.9573, .worst = {0xc02e0000000001af}, .thresholds = log_thresholds}},
    {{"lgammar"}, describe(by_routine_with_sign<Type::f64>), {.ulp = 0.9573, .worst = {0xc02e0000000001af}, .thresholds = log_thresholds}},
    {{"tgammaf"}, describe(by_routine<Type::f32>), {.ulp = 0.503, .worst = {0xbf8fc273}, .thresholds = thresholds_f}},
    {{"tgamma"}, describe(by_routine<Type::f64>), {.ulp = 0.533, .worst = {0x40654001cf9061b9}, .thresholds = thresholds}},
};

}  // namespace
}  // namespace tuvo

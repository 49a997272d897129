#include "inverse/arc_tangent_steps.hpp"

namespace tuvo {
namespace {

constexpr std::uint32_t float_odd[] = {
    0x3b322cc0,  // 0.0027187318
    0x3d2bc384,  // 0.041934505
    0x3dd96474,  // 0.10614863
    0x3e4cb79f,  // 0.19991921
};
constexpr std::uint32_t float_even[] = {
    0xbc7f2631,  // -0.01557307
    0xbd987629,  // -0.07444412
    0xbe1161f8,  // -0.14197528
    0xbeaaaa49,  // -0.33333042
};
constexpr std::uint32_t float_short_odd[] = {
    0xbd324820,  // -0.043525815
    0xbea6a8a3,  // -0.32550535
};
constexpr std::uint32_t float_short_even[] = {
    0x3e1e481b,  // 0.15457194
    0x3f7ff145,  // 0.99977523
};
constexpr std::uint64_t double_short_odd[] = {
    0xbf5c95b5ab286a02,  // -0.001744677935340833
    0xbf9f791909cb44c4,  // -0.03073538896825735
    0xbfb56fcd7489159a,  // -0.08373722167114864
    0xbfc2414862594647,  // -0.14261727144416822
    0xbfd55553391ce4c9,  // -0.3333328302138168
};
constexpr std::uint64_t double_short_even[] = {
    0x3f85e36a8ced7474,  // 0.010687668252723471
    0x3fad6ee2dace07af,  // 0.05748661919552888
    0x3fbc0236e7018ba7,  // 0.1094087900142272
    0x3fc999069c08617c,  // 0.1999824773672677
    0x3feffffffeb5a845,  // 0.9999999975964405
};

}  // namespace

Chains<Type::f32> arc_tangent_chains(F32 t2) { return {horner(t2, float_odd), horner(t2, float_even)}; }

F32 short_arc_tangent(F32 t) {
    const F32 t2 = t * t;
    return t * horner(t2, float_short_odd) + horner(t2, float_short_even);
}

F64 short_arc_tangent(F64 t) {
    const F64 t2 = t * t;
    return t * horner(t2, double_short_odd) + horner(t2, double_short_even);
}

F32 refined_reciprocal(F32 x) {
    const F32 y0 = reciprocal_approximation(x).as("y0");
    return y0 * (2.0f - x * y0);
}

}  // namespace tuvo

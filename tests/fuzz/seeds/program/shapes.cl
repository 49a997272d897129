float helper(float x, int n) { return n / 3 == 0 ? exp(-x) : native_log(x); }
typedef struct { float a; int b; } pair;
kernel void k(global float3* x, local int* l, pair p, double2 d, global void* v) {
    size_t i = get_global_id(0);
    int4 e;
    float t[2] = {x[i].x, helper(x[i].y, p.b % 7)};
    atomic_add((volatile global int*)v, 1);
    l[i] = convert_int_sat_rtn(t[i & 1]);
    barrier(CLK_LOCAL_MEM_FENCE);
    x[i] = frexp((float4)(x[i], d.x), &e).xyz + mad(t[1], 2.0f, l[0]);
}

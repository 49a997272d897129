// The built-ins that need no kernel, in OpenCL C itself. Compiled without the front end's own declarations.
//
// Work-groups hold one work-item each, and there is one dimension.

#pragma OPENCL EXTENSION cl_khr_fp64 : enable

typedef unsigned char uchar;
typedef unsigned short ushort;
typedef unsigned int uint;
typedef unsigned long ulong;
typedef ulong size_t;

#define overloadable __attribute__((overloadable))

// Defined by the client, which knows what runs.
size_t tuvo_global_id(void);
size_t tuvo_global_size(void);

overloadable size_t get_global_id(uint dimension) { return dimension == 0 ? tuvo_global_id() : 0; }
overloadable size_t get_group_id(uint dimension) { return dimension == 0 ? tuvo_global_id() : 0; }
overloadable size_t get_global_size(uint dimension) { return dimension == 0 ? tuvo_global_size() : 1; }
overloadable size_t get_num_groups(uint dimension) { return dimension == 0 ? tuvo_global_size() : 1; }
overloadable size_t get_local_id(uint dimension) { return 0; }
overloadable size_t get_global_offset(uint dimension) { return 0; }
overloadable size_t get_local_size(uint dimension) { return 1; }
overloadable uint get_work_dim(void) { return 1; }

// A barrier has nobody to wait for in a work-group of one.
overloadable void barrier(uint flags) {}
overloadable void work_group_barrier(uint flags) {}
overloadable void mem_fence(uint flags) {}
overloadable void read_mem_fence(uint flags) {}
overloadable void write_mem_fence(uint flags) {}

// ---- Smaller, larger, multiply and add -----------------------------------------------------------------------------

// Where neither of two values is smaller (larger), the first one counts.
#define EXTREMA(T, second)                                                          \
    overloadable T min(T x, second y) { return (T)y < x ? (T)y : x; }               \
    overloadable T max(T x, second y) { return x < (T)y ? (T)y : x; }               \
    overloadable T clamp(T x, second low, second high) { return min(max(x, low), high); }

#define VECTORS_OF(T)                                    \
    typedef T __attribute__((ext_vector_type(2))) T##2;  \
    typedef T __attribute__((ext_vector_type(3))) T##3;  \
    typedef T __attribute__((ext_vector_type(4))) T##4;  \
    typedef T __attribute__((ext_vector_type(8))) T##8;  \
    typedef T __attribute__((ext_vector_type(16))) T##16; \
    EXTREMA(T, T)                                        \
    EXTREMA(T##2, T##2)                                  \
    EXTREMA(T##2, T)                                     \
    EXTREMA(T##3, T##3)                                  \
    EXTREMA(T##3, T)                                     \
    EXTREMA(T##4, T##4)                                  \
    EXTREMA(T##4, T)                                     \
    EXTREMA(T##8, T##8)                                  \
    EXTREMA(T##8, T)                                     \
    EXTREMA(T##16, T##16)                                \
    EXTREMA(T##16, T)

#define MULTIPLY_ADD(T) \
    overloadable T mad(T a, T b, T c) { return a * b + c; }

#define MULTIPLY_ADDS(T) \
    MULTIPLY_ADD(T)      \
    MULTIPLY_ADD(T##2)   \
    MULTIPLY_ADD(T##3)   \
    MULTIPLY_ADD(T##4)   \
    MULTIPLY_ADD(T##8)   \
    MULTIPLY_ADD(T##16)

// ---- Vectors in arrays of their elements ---------------------------------------------------------------------------

#define LOAD(T, n, space)                                                                                    \
    overloadable T##n vload##n(size_t i, const space T* p) {                                                 \
        typedef T##n packed __attribute__((aligned(sizeof(T))));                                             \
        return *(const space packed*)(p + n * i);                                                            \
    }

#define STORE(T, n, space)                                                                                   \
    overloadable void vstore##n(T##n v, size_t i, space T* p) {                                              \
        typedef T##n packed __attribute__((aligned(sizeof(T))));                                             \
        *(space packed*)(p + n * i) = v;                                                                     \
    }

#define LOADS(T, space)                                                                                      \
    LOAD(T, 2, space)                                                                                        \
    overloadable T##3 vload3(size_t i, const space T* p) { return (T##3)(p[3 * i], p[3 * i + 1], p[3 * i + 2]); } \
    LOAD(T, 4, space)                                                                                        \
    LOAD(T, 8, space)                                                                                        \
    LOAD(T, 16, space)

#define STORES(T, space)                                                                                     \
    STORE(T, 2, space)                                                                                       \
    overloadable void vstore3(T##3 v, size_t i, space T* p) {                                                \
        p[3 * i] = v.x, p[3 * i + 1] = v.y, p[3 * i + 2] = v.z;                                              \
    }                                                                                                        \
    STORE(T, 4, space)                                                                                       \
    STORE(T, 8, space)                                                                                       \
    STORE(T, 16, space)

#define MEMORY(T)          \
    LOADS(T, __private)    \
    LOADS(T, __global)     \
    LOADS(T, __local)      \
    LOADS(T, __constant)   \
    STORES(T, __private)   \
    STORES(T, __global)    \
    STORES(T, __local)

#define TYPE(T)   \
    VECTORS_OF(T) \
    MEMORY(T)

TYPE(char)
TYPE(uchar)
TYPE(short)
TYPE(ushort)
TYPE(int)
TYPE(uint)
TYPE(long)
TYPE(ulong)
TYPE(float)
TYPE(double)
MULTIPLY_ADDS(float)
MULTIPLY_ADDS(double)

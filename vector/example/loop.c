/* A loop in C. Each element is compared with what the kernel gives for it alone. */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <tuvo/kernels.h>
#include <tuvo/simd.h>

enum { count = 4096 };
static float x[count], y[count];

int main(void) {
    int different = 0;
    for (int i = 0; i < count; i++) x[i] = 0.01f * (float)i - 10;
    for (int i = 0; i < count; i++) y[i] = expf(x[i]);
    for (int i = 0; i < count; i++) {
        const float alone = __ocl_tuvo_e9_expf1(x[i]);
        different += memcmp(&alone, &y[i], sizeof alone) != 0;
    }
    printf("C: exp(%g) = %g, %d of %d differ\n", x[count / 2], y[count / 2], different, count);
    return different != 0;
}

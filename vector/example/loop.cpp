// The same in C++, in double, over standard containers.
#include <cmath>
#include <cstdio>
#include <vector>

#include <tuvo/kernels.h>
#include <tuvo/simd.h>

int main() {
    std::vector<double> x(4096), y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = 0.01 * static_cast<double>(i + 1);
    for (std::size_t i = 0; i < x.size(); ++i) y[i] = std::log(x[i]);
    int different = 0;
    for (std::size_t i = 0; i < x.size(); ++i) different += __ocl_tuvo_e9_log1(x[i]) != y[i];
    std::printf("C++: log(%g) = %g, %d of %zu differ\n", x[2048], y[2048], different, x.size());
    return different != 0;
}

/* Times the loops in both forms, and compares both with long double. LOOPS names the list of them; the program fails where
 * an error is above LIMIT ulp. */
#define _GNU_SOURCE
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

enum { count = 2048, turns = 60 };

#define LOOP(type, function, exact)                                         \
    void function##_plain(const type* restrict x, type* restrict y, int n); \
    void function##_with_tuvo(const type* restrict x, type* restrict y, int n);
#define LOOP_OF_TWO LOOP
#include LOOPS
#undef LOOP
#undef LOOP_OF_TWO

static double seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + 1e-9 * (double)now.tv_nsec;
}

/* The distance of a result from the exact value, in units of the last of `bits` bits. */
static double ulps(double got, long double exact, int bits) {
    if (isnan(got) || isnan(exact)) return isnan(got) && isnan(exact) ? 0 : INFINITY;
    if (isinf(exact) || exact == 0) return (long double)got == exact ? 0 : INFINITY;
    return (double)(fabsl((long double)got - exact) / ldexpl(1, ilogbl(exact) - bits + 1));
}

struct tally {
    double logarithms;
    int functions;
};

static void report(const char* name, double plain, double with_tuvo, double error_plain, double error, struct tally* tally) {
    printf("  %-11s %5.1f times as fast; largest error %.2f ulp, plain %.2f ulp\n", name, plain / with_tuvo, error, error_plain);
    tally->logarithms += log(plain / with_tuvo);
    tally->functions++;
}

/* The quickest of several turns each, taken in alternation: the machine may be busy with something else. */
#define MEASURE(type, function, exact, bits, tally)                                              \
    {                                                                                            \
        static type x[count], plain[count], fast[count];                                         \
        double error_plain = 0, error = 0, time_plain = INFINITY, time_fast = INFINITY;          \
        for (int i = 0; i < count; i++) x[i] = (type)(0.003 * (i + 1));                          \
        for (int turn = 0; turn < turns; turn++) {                                               \
            const double start = seconds();                                                      \
            function##_plain(x, plain, count);                                                   \
            const double middle = seconds();                                                     \
            function##_with_tuvo(x, fast, count);                                                \
            const double end = seconds();                                                        \
            time_plain = fmin(time_plain, middle - start);                                       \
            time_fast = fmin(time_fast, end - middle);                                           \
        }                                                                                        \
        for (int i = 0; i < count; i++) {                                                        \
            const long double right = exact;                                                     \
            error_plain = fmax(error_plain, ulps((double)plain[i], right, bits));                \
            error = fmax(error, ulps((double)fast[i], right, bits));                             \
        }                                                                                        \
        worst = fmax(worst, error);                                                              \
        report(#function, time_plain, time_fast, error_plain, error, tally);                     \
    }

#define BITS(type) (sizeof(type) == 4 ? 24 : 53)
#define TALLY(type) (sizeof(type) == 4 ? &floats : &doubles)

int main(void) {
    struct tally floats = {0, 0}, doubles = {0, 0};
    double worst = 0;
    printf("y[i] = f(x[i]), compiled with gcc -O3 -mavx -fno-math-errno, without and with\n  #include <tuvo/simd.h>\n");
#define LOOP(type, function, exact) MEASURE(type, function, exact(x[i]), BITS(type), TALLY(type))
#define LOOP_OF_TWO(type, function, exact) MEASURE(type, function, exact(x[i], 1.5L), BITS(type), TALLY(type))
#include LOOPS
    printf("in the mean %.1f times as fast in float, %.1f in double; largest error %.2f ulp\n",
           exp(floats.logarithms / floats.functions), exp(doubles.logarithms / doubles.functions), worst);
    return !(worst <= LIMIT);
}

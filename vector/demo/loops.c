/* Loops as anybody writes them, without a word of vectors. They are compiled twice: as they are, and with one more line. */
#define _GNU_SOURCE
#include <math.h>
#ifdef WITH_TUVO
#include <tuvo/simd.h> /* the line */
#define NAME(function) function##_with_tuvo
#else
#define NAME(function) function##_plain
#endif

#define LOOP(type, function, exact)                                               \
    void NAME(function)(const type* restrict x, type* restrict y, int n) {        \
        for (int i = 0; i < n; i++) y[i] = function(x[i]);                        \
    }
#define LOOP_OF_TWO(type, function, exact)                                        \
    void NAME(function)(const type* restrict x, type* restrict y, int n) {        \
        for (int i = 0; i < n; i++) y[i] = function(x[i], 1.5f);                  \
    }
#include LOOPS

// Prices of options, eight in float or four in double at a time.

#define REAL float
#define VECTOR float8
#define VLOAD vload8
#define VSTORE vstore8
#define PRICES prices_float
#include "black_scholes.h"
#undef REAL
#undef VECTOR
#undef VLOAD
#undef VSTORE
#undef PRICES

#define REAL double
#define VECTOR double4
#define VLOAD vload4
#define VSTORE vstore4
#define PRICES prices_double
#include "black_scholes.h"

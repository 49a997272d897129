// Prices of European options by the formula of Black and Scholes, as many at a time as a VECTOR has lanes of REAL.
// vload and vstore are those of its width.

// Of degree `degree`, the highest coefficient first.
VECTOR __attribute__((overloadable)) polynomial(VECTOR x, constant REAL* coefficients, int degree) {
    VECTOR sum = coefficients[0];
    for (int k = 1; k <= degree; ++k) sum = sum * x + coefficients[k];
    return sum;
}

// Distribution function of the standard normal distribution: Hart's rational approximation up to sqrt(50), a continued
// fraction beyond.
VECTOR __attribute__((overloadable)) normal_distribution(VECTOR x) {
    static constant REAL above[] = {0.0352624965998911, 0.700383064443688, 6.37396220353165, 33.912866078383,
                                    112.079291497871,   221.213596169931,  220.206867912376};
    static constant REAL below[] = {0.0883883476483184, 1.75566716318264, 16.064177579207,  86.7807322029461,
                                    296.564248779674,   637.333633378831, 793.826512519948, 440.413735824752};
    const REAL continued = 0.65, root_two_pi = 2.50662827463100, near = 7.07106781186547;
    VECTOR z = x < 0 ? -x : x;
    VECTOR fraction = z + 1 / (z + 2 / (z + 3 / (z + 4 / (z + continued))));
    VECTOR tail = z < near ? polynomial(z, above, 6) / polynomial(z, below, 7) : 1 / (root_two_pi * fraction);
    tail *= exp(-z * z / 2);
    return x > 0 ? 1 - tail : tail;
}

// Spot and strike price, years to expiry, continuous rate and volatility in a year: price of the call and of the put.
kernel void PRICES(global const REAL* spot, global const REAL* strike, global const REAL* years,
                   global const REAL* rate, global const REAL* volatility, global REAL* call, global REAL* put) {
    size_t i = get_global_id(0);
    VECTOR s = VLOAD(i, spot), k = VLOAD(i, strike), t = VLOAD(i, years), r = VLOAD(i, rate), v = VLOAD(i, volatility);
    VECTOR deviation = v * sqrt(t);
    VECTOR d1 = (log(s / k) + (r + v * v / 2) * t) / deviation;
    VECTOR d2 = d1 - deviation;
    VECTOR discounted = k * exp(-r * t);
    VSTORE(s * normal_distribution(d1) - discounted * normal_distribution(d2), i, call);
    VSTORE(discounted * normal_distribution(-d2) - s * normal_distribution(-d1), i, put);
}

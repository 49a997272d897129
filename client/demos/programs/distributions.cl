// Densities and probabilities of statistics, four numbers at a time.

// The Gamma distribution's density at x, for unit scale: x^(shape - 1) e^-x / gamma(shape). One shape a lane.
kernel void gamma_densities(global const double* x, global const double* shape, global double* density) {
    size_t i = get_global_id(0);
    double4 at = vload4(i, x), k = vload4(i, shape);
    vstore4(exp((k - 1.0) * log(at) - at - lgamma(k)), i, density);
}

// The probability of a normal deviate at least as far from the mean as z, on either side.
kernel void p_values(global const double* z, global double* p) {
    size_t i = get_global_id(0);
    vstore4(erfc(vload4(i, z) * M_SQRT1_2), i, p);
}

// Mean and standard deviation of the Weibull distribution of unit scale.
kernel void weibull(global const double* shape, global double* mean, global double* deviation) {
    size_t i = get_global_id(0);
    double4 inverse = 1.0 / vload4(i, shape);
    double4 first = tgamma(1.0 + inverse);
    vstore4(first, i, mean);
    vstore4(sqrt(tgamma(1.0 + 2.0 * inverse) - first * first), i, deviation);
}

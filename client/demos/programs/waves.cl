// Interference of plane waves whose sources are so far away that a wave's phase at a pixel is up to 1e15 radians.
//
// Phases are sums of multiples of 1/8 below 2^50, so that no sum rounds: the sine and cosine of just these numbers is
// what counts, and all of it depends on how they are reduced.

// Intensity, from 0 to 1, of four pixels in a row, under a window that fades toward the edges. For each wave: its phase
// at pixel (0, 0), and what a column and a row add to it.
kernel void intensity(uint width, uint height, uint waves, global const double* phases, global double* intensities) {
    size_t i = get_global_id(0);
    double4 column = (double4)(0, 1, 2, 3) + (double)(4 * i % width);
    double row = (double)(4 * i / width);
    double4 real = 0, imaginary = 0;
    for (uint k = 0; k < waves; ++k) {
        double4 phase = phases[3 * k] + (phases[3 * k + 1] * column + phases[3 * k + 2] * row);
        double4 cosine, sine = sincos(phase, &cosine);
        real += cosine;
        imaginary += sine;
    }
    double4 across = cospi((column + 0.5) / width - 0.5);
    double4 down = cospi((double4)((row + 0.5) / height - 0.5));
    vstore4(across * down * (real * real + imaginary * imaginary) / (waves * waves), i, intensities);
}

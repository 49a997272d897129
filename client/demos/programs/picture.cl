// A complex function in colours: the hue is the direction of the value, rings of light and dark are its size.

// f(z) = sin(z^2) / ((z - 1.5)^2 + 1), for eight points.
void f(float8 x, float8 y, float8* real, float8* imaginary) {
    float8 a = (x - y) * (x + y), b = 2 * x * y;
    float8 cosine, sine = sincos(a, &cosine);
    float8 growing = exp(b), shrinking = exp(-b);
    float8 u = sine * (growing + shrinking) / 2, v = cosine * (growing - shrinking) / 2;
    // (z - 1.5)^2 + 1 = (z - 1.5 + i) (z - 1.5 - i), so that nothing cancels near the poles.
    float8 c = x - 1.5f;
    float8 p = c * c - (y + 1) * (y - 1), q = 2 * c * y;
    float8 square = (c * c + (y + 1) * (y + 1)) * (c * c + (y - 1) * (y - 1));
    *real = (u * p + v * q) / square;
    *imaginary = (v * p - u * q) / square;
}

// Eight pixels of a row: pixel (0, 0) is at (left, top), `step` is the distance of pixels. Colours from 0 to 1.
kernel void colour(uint width, float left, float top, float step, global float* red, global float* green,
                   global float* blue) {
    size_t i = get_global_id(0);
    float8 column = (float8)(0, 1, 2, 3, 4, 5, 6, 7) + (float)(8 * i % width);
    float8 x = left + step * column, y = top - step * (float)(8 * i / width);
    float8 u, v;
    f(x, y, &u, &v);
    float8 size = log(u * u + v * v) / 2;  // the logarithm of |f|
    float8 unit = exp(-size), cosine;
    float8 ring = sincos(4 * size, &cosine);
    float8 light = 0.4f + 0.1f * ring;
    float8 c = u * unit, s = 0.866025404f * v * unit;  // of the direction; sin(120 degrees)
    vstore8(light * (1 + c), i, red);
    vstore8(light * (1 - c / 2 + s), i, green);
    vstore8(light * (1 - c / 2 - s), i, blue);
}

// Local contrast of a grey picture, in fixed point: every pixel's distance from the mean around it, in units of the mean
// distance there.
//
// Planes hold sixteenths of a grey level as int. They have `stride` columns, the picture's among them behind `margin`
// columns of zeros, and zeros behind them. A work-item does eight pixels; a row has `items` of them.

#define margin 8
#define radius 8  // of the window, a square; it ends at the picture's edges

// Index of the work-item's first pixel in a plane.
size_t first_pixel(int stride, int items) {
    size_t id = get_global_id(0);
    return id / items * stride + margin + id % items * 8;
}

int8 columns(int items) { return (int8)(0, 1, 2, 3, 4, 5, 6, 7) + (int)(get_global_id(0) % items) * 8; }

// Sums over the rows of the window.
kernel void column_sums(global const int* plane, int stride, int items, int height, global int* sums) {
    int y = get_global_id(0) / items;
    size_t i = first_pixel(stride, items);
    int8 sum = 0;
    for (int row = max(y - radius, 0); row <= min(y + radius, height - 1); ++row)
        sum += vload8(0, plane + i + (row - y) * stride);
    vstore8(sum, 0, sums + i);
}

// Means over the window, of sums over its rows.
kernel void means(global const int* sums, int stride, int items, int width, int height, global int* mean) {
    int y = get_global_id(0) / items;
    size_t i = first_pixel(stride, items);
    int8 sum = 0;
    for (int column = -radius; column <= radius; ++column) sum += vload8(0, sums + i + column);
    int8 x = columns(items);
    int8 count = min(x + radius, width - 1) - max(x - radius, 0) + 1;
    count *= min(y + radius, height - 1) - max(y - radius, 0) + 1;
    vstore8(sum / max(count, 1), 0, mean + i);
}

// Distances from the mean.
kernel void distances(global const int* plane, global const int* mean, int stride, int items, int width,
                      global int* distance) {
    size_t i = first_pixel(stride, items);
    int8 difference = vload8(0, plane + i) - vload8(0, mean + i);
    vstore8(columns(items) < width ? max(difference, -difference) : 0, 0, distance + i);
}

// Grey levels: three times the mean distance from the mean reaches black and white, on a curve with soft ends. `grain`
// is added to the mean distance, so that smooth areas stay smooth.
kernel void levels(global const int* plane, global const int* mean, global const int* spread, int stride, int items,
                   int grain, global uchar* grey) {
    size_t i = first_pixel(stride, items);
    int8 difference = vload8(0, plane + i) - vload8(0, mean + i);
    int8 share = (difference << 16) / (3 * (vload8(0, spread + i) + grain));  // in units of 2^-16
    float8 x = fmin(fmax(convert_float8(share) * 0x1p-16f, -1.0f), 1.0f);
    float8 curve = x * (1.5f - 0.5f * (x * x));
    int8 level = convert_int8_sat_rte(127.5f + 127.5f * curve);
    vstore8(convert_uchar8(level), get_global_id(0), grey);
}

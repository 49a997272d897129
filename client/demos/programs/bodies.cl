// Bodies in a plane that attract one another, eight at a time. Distances are softened: sqrt(dx^2 + dy^2 + softening^2).

// What all bodies together do to each, with a constant of gravitation of 1.
kernel void accelerate(global const float* x, global const float* y, global const float* mass, uint count,
                       float softening, global float* ax, global float* ay) {
    size_t i = get_global_id(0);
    float8 own_x = vload8(i, x), own_y = vload8(i, y);
    float8 sum_x = 0, sum_y = 0;
    for (uint k = 0; k < count; ++k) {
        float8 dx = x[k] - own_x, dy = y[k] - own_y;
        float8 inverse = rsqrt(dx * dx + dy * dy + softening * softening);
        float8 pull = mass[k] * inverse * (inverse * inverse);
        sum_x += pull * dx;
        sum_y += pull * dy;
    }
    vstore8(sum_x, i, ax);
    vstore8(sum_y, i, ay);
}

// A kick and a drift, in units of time, of one coordinate of the velocities and positions. What all steps add up is
// rounded once a step.
kernel void move(global float* position, global float* velocity, global const float* acceleration, float kick,
                 float drift) {
    size_t i = get_global_id(0);
    float8 v = fma((float8)(kick), vload8(i, acceleration), vload8(i, velocity));
    vstore8(v, i, velocity);
    vstore8(fma((float8)(drift), v, vload8(i, position)), i, position);
}

// Each body's energy: its own motion, and half of what it shares with every other body.
kernel void energies(global const float* x, global const float* y, global const float* vx, global const float* vy,
                     global const float* mass, uint count, float softening, global float* energy) {
    size_t i = get_global_id(0);
    float8 own_x = vload8(i, x), own_y = vload8(i, y), speed = hypot(vload8(i, vx), vload8(i, vy));
    uint8 self = (uint8)(0, 1, 2, 3, 4, 5, 6, 7) + (uint)(8 * i);
    float8 potential = 0;
    for (uint k = 0; k < count; ++k) {
        float8 distance = hypot(hypot(x[k] - own_x, y[k] - own_y), (float8)(softening));
        potential -= self == k ? 0 : mass[k] / distance;
    }
    vstore8(vload8(i, mass) * (speed * speed + potential) / 2, i, energy);
}

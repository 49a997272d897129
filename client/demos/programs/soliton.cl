// The sine-Gordon equation, field'' in time = field'' in space - sin(field), eight points at a time. Arrays have eight
// points more on either side, which stay as they are.

// A breather of frequency w and width 1 / k, w^2 + k^2 = 1, that moves, and a kink. Positions and velocities at time 0.
kernel void start(float left, float dx, float w, float k, float breather, float breather_velocity, float kink,
                  float kink_velocity, global float* field, global float* velocity) {
    size_t i = get_global_id(0);
    float8 x = left + dx * (convert_float8((int8)(0, 1, 2, 3, 4, 5, 6, 7) + (int)(8 * i)) - 8);

    // In its own frame the breather is 4 atan(k / w sin(w t) / cosh(k x)).
    float gamma = rsqrt(1 - breather_velocity * breather_velocity);
    float8 own_x = gamma * (x - breather), phase = -w * breather_velocity * own_x;
    float8 height = k / cosh(k * own_x), u = height / w * sin(phase);
    float8 by_time = height * cos(phase), by_place = -k * u * tanh(k * own_x);
    float8 f = 4 * atan(u);
    float8 v = 4 * gamma * (by_time - breather_velocity * by_place) / (1 + u * u);

    gamma = rsqrt(1 - kink_velocity * kink_velocity);
    own_x = gamma * (x - kink);
    vstore8(f + 4 * atan(exp(own_x)), i, field);
    vstore8(v - 2 * gamma * kink_velocity / cosh(own_x), i, velocity);
}

// What the field does to its velocity in the time `step`.
kernel void kick(global const float* field, global float* velocity, float step, float dx) {
    size_t i = 8 * (get_global_id(0) + 1);
    float8 here = vload8(0, field + i);
    float8 bend = (vload8(0, field + i - 1) - here) + (vload8(0, field + i + 1) - here);
    vstore8(vload8(0, velocity + i) + step * (bend / (dx * dx) - sin(here)), 0, velocity + i);
}

kernel void drift(global float* field, global const float* velocity, float step) {
    size_t i = get_global_id(0) + 1;
    vstore8(vload8(i, field) + step * vload8(i, velocity), i, field);
}

// Energy of each point and of the way to the next. 1 - cos(field) is taken as a square.
kernel void energies(global const float* field, global const float* velocity, float dx, global float* energy) {
    size_t i = 8 * (get_global_id(0) + 1);
    float8 here = vload8(0, field + i), slope = (vload8(0, field + i + 1) - here) / dx;
    float8 speed = vload8(0, velocity + i), s = sin(here / 2);
    vstore8(dx * ((speed * speed + slope * slope) / 2 + 2 * s * s), 0, energy + i);
}

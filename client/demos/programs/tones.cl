// Tone mapping: light of any strength to the bytes of a picture. Lightness is bent in CIE Lab, where equal steps look
// equal, so that neither the sun nor what lies in its shadow is lost.
//
// Red, green and blue are linear, relative to the white of D65, eight pixels to a work-item.

// The curve of CIE Lab: a cube root, and a straight line near black.
float8 curve(float8 t) { return t > 216.0f / 24389 ? cbrt(t) : t * (841.0f / 108) + 4.0f / 29; }
float8 curve_back(float8 f) { return f > 6.0f / 29 ? f * f * f : (f - 4.0f / 29) * (108.0f / 841); }

// The bytes of sRGB.
uchar8 encode(float8 linear) {
    float8 c = fmin(fmax(linear, 0.0f), 1.0f);
    float8 bent = 1.055f * powr(fmax(c, 0.0031308f), 1 / 2.4f) - 0.055f;
    return convert_uchar8(convert_int8_sat_rte(255 * (c > 0.0031308f ? bent : 12.92f * c)));
}

// As a camera has it: what is brighter than white is white.
kernel void clip(global const float* red, global const float* green, global const float* blue, global uchar* r,
                 global uchar* g, global uchar* b) {
    size_t i = get_global_id(0);
    vstore8(encode(vload8(i, red)), i, r);
    vstore8(encode(vload8(i, green)), i, g);
    vstore8(encode(vload8(i, blue)), i, b);
}

// Lightness L goes to L / (1 + (L / 100)^n)^(1 / n), which leaves shadows and never passes 100. Colourfulness follows by a
// power of the same ratio.
kernel void map(float n, float colourfulness, global const float* red, global const float* green,
                global const float* blue, global uchar* r, global uchar* g, global uchar* b) {
    size_t i = get_global_id(0);
    float8 R = vload8(i, red), G = vload8(i, green), B = vload8(i, blue);
    float8 fx = curve(0.4339499f * R + 0.3762098f * G + 0.1898403f * B);
    float8 fy = curve(0.2126729f * R + 0.7151521f * G + 0.0721750f * B);
    float8 fz = curve(0.0177566f * R + 0.1094679f * G + 0.8727755f * B);

    float8 lightness = 116 * fy - 16;
    float8 ratio = powr(1 + powr(lightness * 0.01f, n), -1 / n);
    float8 colour = powr(ratio, colourfulness);
    float8 y = (lightness * ratio + 16) * (1.0f / 116);
    float8 x = y + (fx - fy) * colour, z = y - (fy - fz) * colour;

    float8 X = curve_back(x), Y = curve_back(y), Z = curve_back(z);
    vstore8(encode(3.0799558f * X - 1.5371396f * Y - 0.5428162f * Z), i, r);
    vstore8(encode(-0.9212589f * X + 1.8760114f * Y + 0.0452475f * Z), i, g);
    vstore8(encode(0.0528873f * X - 0.2040257f * Y + 1.1511384f * Z), i, b);
}

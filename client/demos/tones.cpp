// Tone mapping of a scene whose light spans six decades.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/png.hpp"

namespace tuvo::client {
namespace {

constexpr int width = 1024, height = 576, pixels = width * height;
constexpr float shoulder = 2.5f, colourfulness = 0.8f;

using Light = std::array<double, 3>;  ///< red, green and blue, linear, with paper in daylight at 1

void add(Light& sum, const Light& light, double factor) {
    for (std::size_t k = 0; k < 3; ++k) sum[k] += factor * light[k];
}

constexpr double sun_height = 0.16;

/// The sky at a point of the picture; distances in half widths, the horizon at 0.
Light sky(double x, double y) {
    const double sun = std::hypot(x, y - sun_height);
    Light light{};
    add(light, {0.20, 0.34, 0.80}, 0.35 * (0.25 + y));
    add(light, {1.00, 0.42, 0.18}, 1.1 * std::exp(-sun / 0.45));
    add(light, {1.00, 0.60, 0.25}, 9 * std::exp(-sun / 0.09));
    const double band = std::sin(38 * y + 2.2 * std::sin(4 * std::abs(x) + 1) + 0.8 * std::sin(11 * x * x));
    const double cloud = std::clamp(band - 0.35, 0.0, 1.0) * std::exp(-y);
    add(light, {1.0, 0.35, 0.30}, cloud * (0.25 + 1.6 * std::exp(-sun / 0.3)));
    if (sun < 0.05) add(light, {1.0, 0.80, 0.50}, 3000);
    return light;
}

/// What the lamp of a boat adds, and its glow in the air.
constexpr struct {
    double x, y;
    Light colour;
} lamps[] = {{0.78, -0.02, {1, 0.05, 0.04}}, {0.55, -0.04, {0.05, 0.9, 0.1}}, {0.32, -0.06, {0.1, 0.2, 1}}};

/// The scene is the same on both sides of the middle.
Light scene(int column, int row) {
    const double x = std::abs(column - 511.5) / 512, y = (360 - row) / 512.0;
    const double ridge = 0.10 + 0.05 * std::sin(7 * x + 1) + 0.02 * std::sin(23 * x) + 0.006 * std::sin(71 * x);
    Light light{};
    if (y >= 0 && y < ridge * std::min(1.0, 2.2 * x)) {
        light = {0.0012, 0.0016, 0.0030};
        add(light, {0.012, 0.005, 0.003}, std::exp(-x / 0.4) * y / 0.1);
    } else if (y >= 0) {
        light = sky(x, y);
    } else {
        // Waves tilt the mirror, the more the nearer they are.
        const double wave = std::sin(900 / (4 - 30 * y) + 9 * std::sin(6 * x + 40 * y) - 300 * y);
        const double mirrored = -y * (1 + 0.35 * wave);
        light = sky(x * (1 + 0.05 * wave), mirrored);
        for (double& part : light) part *= 0.30 + 0.25 * std::exp(5 * y);
        const double glint = std::exp(-x * x / (0.0006 + 0.02 * y * y)) * std::pow(std::max(wave, 0.0), 6);
        add(light, {1.0, 0.65, 0.3}, 120 * glint);
    }
    for (const auto& lamp : lamps) {
        const double distance = std::hypot(x - lamp.x, y - lamp.y);
        add(light, lamp.colour,
            distance < 0.008 ? 400 : 0.9 * std::exp(-distance / 0.02) + 0.1 * std::exp(-distance / 0.1));
    }
    return light;
}

/// What a byte of sRGB is before it is rounded.
double exact_level(double linear) {
    const double c = std::clamp(linear, 0.0, 1.0);
    return 255 * (c > 0.0031308 ? 1.055 * std::pow(c, 1 / 2.4) - 0.055 : 12.92 * c);
}

/// The program's steps.
Light exact_levels(const Light& light) {
    constexpr double to_xyz[3][3] = {
        {0.4339499, 0.3762098, 0.1898403}, {0.2126729, 0.7151521, 0.0721750}, {0.0177566, 0.1094679, 0.8727755}};
    constexpr double to_rgb[3][3] = {
        {3.0799558, -1.5371396, -0.5428162}, {-0.9212589, 1.8760114, 0.0452475}, {0.0528873, -0.2040257, 1.1511384}};
    const auto times = [](const double(&matrix)[3][3], const Light& v) {
        Light result{};
        for (std::size_t k = 0; k < 3; ++k) result[k] = matrix[k][0] * v[0] + matrix[k][1] * v[1] + matrix[k][2] * v[2];
        return result;
    };
    Light f = times(to_xyz, light);
    for (double& t : f) t = t > 216.0 / 24389 ? std::cbrt(t) : t * (841.0 / 108) + 4.0 / 29;
    const double lightness = 116 * f[1] - 16;
    const double n = shoulder, ratio = std::pow(1 + std::pow(lightness / 100, n), -1 / n);
    const double colour = std::pow(ratio, static_cast<double>(colourfulness));
    const double y = (lightness * ratio + 16) / 116;
    Light back{y + (f[0] - f[1]) * colour, y, y - (f[1] - f[2]) * colour};
    for (double& t : back) t = t > 6.0 / 29 ? t * t * t : (t - 4.0 / 29) * (108.0 / 841);
    Light levels = times(to_rgb, back);
    for (double& level : levels) level = exact_level(level);
    return levels;
}

bool map_tones(const DemoOptions& options) {
    const Contest contest(demo_program("tones"), options.settings);
    std::array<std::vector<float>, 3> light;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            const Light exact = scene(column, row);
            for (std::size_t k = 0; k < 3; ++k) light[k].push_back(static_cast<float>(exact[k]));
        }

    std::array<std::vector<std::uint8_t>, 3> clipped, mapped;
    for (auto* planes : {&clipped, &mapped})
        for (std::vector<std::uint8_t>& plane : *planes) plane.resize(pixels);
    const auto work = [&](const Program& program) {
        launch(program, "map", pixels / 8, shoulder, colourfulness, light[0], light[1], light[2], mapped[0], mapped[1],
               mapped[2]);
    };
    contest.report("float8", "pixels", pixels, work);
    work(contest.library);
    launch(contest.library, "clip", pixels / 8, light[0], light[1], light[2], clipped[0], clipped[1], clipped[2]);

    // A byte is within a half of the exact level; and by float's roundings, which the slope near black carries most of,
    // a little more.
    constexpr double allowed = 0.5 + 0x1p-8;
    Image image(width, height, {});
    Comparison comparison;
    for (std::size_t i = 0; i < pixels; ++i) {
        const Light here{light[0][i], light[1][i], light[2][i]}, levels = exact_levels(here);
        for (std::size_t k = 0; k < 3; ++k) {
            comparison.add(mapped[k][i], levels[k], allowed);
            comparison.add(clipped[k][i], exact_level(here[k]), allowed);
        }
        const auto& shown = i % width < width / 2 ? clipped : mapped;
        image.pixels[i] = {shown[0][i], shown[1][i], shown[2][i]};
    }
    const std::string path = (options.folder / "tones.png").string();
    write_png(image, path);
    std::printf("left of the middle clipped, right of it mapped: %s\n", path.c_str());
    return comparison.report("bytes");
}

const RegisterDemo registered({"tones", "tone mapping of a sunset in CIE Lab", map_tones});

}  // namespace
}  // namespace tuvo::client

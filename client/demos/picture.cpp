// A complex function in colours.
#include <cmath>
#include <complex>
#include <cstdio>

#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/png.hpp"

namespace tuvo::client {
namespace {

constexpr std::uint32_t width = 1024, height = 576;
/// Distance of pixels, and the middle of the first one: exact in float, as are all coordinates. Between the pixels lie
/// the zeros and poles that have round coordinates.
constexpr float step = 1.0f / 128, left = -4 + step / 2, top = 2.25f - step / 2;

/// Red, green and blue of the point.
std::array<double, 3> exact_colour(std::complex<double> z) {
    const std::complex<double> i(0, 1), value = std::sin(z * z) / ((z - 1.5 + i) * (z - 1.5 - i));
    const double light = 0.4 + 0.1 * std::sin(4 * std::log(std::abs(value)));
    std::array<double, 3> colour{};
    for (std::size_t k = 0; k < 3; ++k)
        colour[k] = light * (1 + std::cos(std::arg(value) - 2 * std::acos(-1) / 3 * static_cast<double>(k)));
    return colour;
}

std::uint8_t level(float colour) { return static_cast<std::uint8_t>(std::lround(255 * std::fmin(1.0f, colour))); }

bool draw_picture(const DemoOptions& options) {
    const Contest contest(demo_program("picture"), options.settings);
    constexpr std::size_t pixels = width * height;
    std::array<std::vector<float>, 3> colours;
    for (std::vector<float>& plane : colours) plane.resize(pixels);
    const auto work = [&](const Program& program) {
        launch(program, "colour", pixels / 8, width, left, top, step, colours[0], colours[1], colours[2]);
    };
    contest.report("float8", "pixels", pixels, work);
    work(contest.library);

    Image image(width, height, {});
    Comparison comparison;
    for (std::size_t i = 0; i < pixels; ++i) {
        const double x = left + step * static_cast<double>(i % width), y = top - step * static_cast<double>(i / width);
        const std::array<double, 3> exact = exact_colour({x, y});
        // z^2, up to 16, is rounded to 2^-20 and lies 2^-6 beside the next zero at least: the value turns by 2^-14, and
        // a ring moves four times as far.
        for (std::size_t k = 0; k < 3; ++k) comparison.add(colours[k][i], exact[k], 0x1p-12);
        image.pixels[i] = {level(colours[0][i]), level(colours[1][i]), level(colours[2][i])};
    }
    const std::string path = (options.folder / "picture.png").string();
    write_png(image, path);
    std::printf("picture: %s\n", path.c_str());
    return comparison.report("colours");
}

const RegisterDemo registered({"picture", "a complex function in colours", draw_picture});

}  // namespace
}  // namespace tuvo::client

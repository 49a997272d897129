// Waves from sources so far away that their phases have fifteen digits before the point.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/png.hpp"

namespace tuvo::client {
namespace {

constexpr std::uint32_t width = 512, height = 512, waves = 8;

/// For each wave the phase of pixel (0, 0), and what a column and a row add: multiples of 1/8.
std::vector<double> phases_of_waves() {
    std::vector<double> phases;
    for (std::uint32_t k = 0; k < waves; ++k) {
        const double angle = (2 * k + 0.5) * M_PI / waves;
        phases.push_back(1e15 - 3e13 * k - std::round(8e12 / (k + 1.3)));
        phases.push_back(std::round(8 * 0.45 * std::cos(angle)) / 8);
        phases.push_back(std::round(8 * 0.45 * std::sin(angle)) / 8);
    }
    return phases;
}

struct Unit {
    long double real, imaginary;
};
/// The C library's functions of extended precision reduce with as many bits of pi as it takes.
Unit exact_unit(double phase) { return {std::cos((long double)phase), std::sin((long double)phase)}; }
/// What a program does that takes 2 pi for a double.
Unit naive_unit(double phase) {
    const double rest = phase - 2 * M_PI * std::rint(phase / (2 * M_PI));
    return {std::cos(rest), std::sin(rest)};
}

double intensity_at(const std::vector<double>& phases, std::uint32_t column, std::uint32_t row, Unit (*unit)(double)) {
    long double real = 0, imaginary = 0;
    for (std::uint32_t k = 0; k < waves; ++k) {
        const Unit u = unit(phases[3 * k] + (phases[3 * k + 1] * column + phases[3 * k + 2] * row));
        real += u.real, imaginary += u.imaginary;
    }
    const long double pi = std::acos(-1.0L), across = (column + 0.5L) / width - 0.5L,
                      down = (row + 0.5L) / height - 0.5L;
    return static_cast<double>(std::cos(pi * across) * std::cos(pi * down) * (real * real + imaginary * imaginary) /
                               (waves * waves));
}

/// The sines and cosines are within 0.52 ulp, half an ulp of 1 each at most, and their sums of up to 8 add seven halves
/// of an ulp of 8. So real and imaginary part are off by 33 u, u = 2^-53, and the sum of the squares by 4 times 8 times
/// that, and 3 roundings; the window's two cosines add 4 ulp each.
constexpr double allowed = ((4 * 8 * 33 + 3 * 64) / 64.0 + 16) * 0x1p-53;

std::uint8_t level(double x) { return static_cast<std::uint8_t>(std::lround(255 * std::clamp(x, 0.0, 1.0))); }

bool show_waves(const DemoOptions& options) {
    const Contest contest(demo_program("waves"), options.settings);
    const std::vector<double> phases = phases_of_waves();
    std::vector<double> intensities(width * height);
    std::uint32_t columns = width, rows = height, count = waves;
    const auto work = [&](const Program& program) {
        launch(program, "intensity", intensities.size() / 4, columns, rows, count, phases, intensities);
    };
    contest.report("double4, phases up to 1e15", "waves at pixels", double(waves) * width * height, work);
    work(contest.library);

    Image image(2 * width, height, {});
    Comparison comparison;
    double naive_difference = 0;
    for (std::uint32_t row = 0; row < height; ++row)
        for (std::uint32_t column = 0; column < width; ++column) {
            const double computed = intensities[row * width + column];
            const double naive = intensity_at(phases, column, row, naive_unit);
            if ((row + column) % 8 == 0)
                comparison.add(computed, intensity_at(phases, column, row, exact_unit), allowed);
            naive_difference = std::max(naive_difference, std::fabs(naive - computed));
            // Brightness goes by the amplitude.
            const std::uint8_t grey = level(1.3 * std::sqrt(computed)), more = level(40 * (naive - computed)),
                               less = level(40 * (computed - naive));
            image.at(int(column), int(row)) = {grey, grey, grey};
            image.at(int(width + column), int(row)) = {more, std::uint8_t((more + less) / 4), less};
        }
    const std::string path = (options.folder / "waves.png").string();
    write_png(image, path);
    std::printf("picture: %s: amplitudes, and forty times the difference that a reduction by 2 pi in double makes\n",
                path.c_str());
    std::printf("a reduction by 2 pi in double is off by up to %.2g of the greatest intensity\n", naive_difference);
    return comparison.report("intensities");
}

const RegisterDemo registered({"waves", "interference of waves from far away: sines of 1e15", show_waves});

}  // namespace
}  // namespace tuvo::client

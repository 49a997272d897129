// Local contrast of a picture, in fixed point.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/png.hpp"

namespace tuvo::client {
namespace {

constexpr int margin = 8, radius = 8;  // as the program has them
constexpr int grain = 24;              // one grey level and a half

/// A pattern under a lamp in one corner, with noise: in the opposite corner a few grey levels are left of it.
Image badly_lit_picture() {
    Image image(960, 600, {});
    std::uint32_t random = 1;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const double lamp = std::exp(-std::hypot(x - 100.0, y - 80.0) / 260);
            const double rings = std::sin(std::hypot(x - 700.0, y - 420.0) / 9);
            const bool tile = (x / 60 + y / 60) % 2 == 0, bar = (x + y) % 150 < 12;
            random = random * 1664525 + 1013904223;
            const double noise = static_cast<double>(random >> 24) / 255 - 0.5;
            const double paint = 0.6 + 0.15 * rings + (tile ? 0.1 : -0.1) + (bar ? 0.15 : 0);
            const auto level = static_cast<std::uint8_t>(std::clamp(10 + 230 * lamp * paint + 2 * noise, 0.0, 255.0));
            image.at(x, y) = {level, level, level};
        }
    return image;
}

/// A picture in a plane as the program wants it, and the sizes that tell how.
struct Plane {
    int width, height;
    int items = (width + 7) / 8;
    int stride = items * 8 + 2 * margin;
    std::vector<int> values = std::vector<int>(static_cast<std::size_t>(stride * height));

    Plane(int columns, int rows) : width(columns), height(rows) {}
    int& at(int x, int y) { return values[static_cast<std::size_t>(y * stride + margin + x)]; }
    /// Means over the window around each pixel.
    Plane means();
};

Plane Plane::means() {
    Plane result(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int top = std::max(y - radius, 0), bottom = std::min(y + radius, height - 1);
            const int left = std::max(x - radius, 0), right = std::min(x + radius, width - 1);
            int sum = 0;
            for (int row = top; row <= bottom; ++row)
                for (int column = left; column <= right; ++column) sum += at(column, row);
            result.at(x, y) = sum / ((bottom - top + 1) * (right - left + 1));
        }
    return result;
}

/// The program's steps, pixel by pixel.
std::vector<std::uint8_t> reference_levels(Plane& plane) {
    Plane mean = plane.means(), distance(plane.width, plane.height);
    for (int y = 0; y < plane.height; ++y)
        for (int x = 0; x < plane.width; ++x) distance.at(x, y) = std::abs(plane.at(x, y) - mean.at(x, y));
    Plane spread = distance.means();
    std::vector<std::uint8_t> grey;
    for (int y = 0; y < plane.height; ++y)
        for (int x = 0; x < plane.width; ++x) {
            const int share = (plane.at(x, y) - mean.at(x, y)) * (1 << 16) / (3 * (spread.at(x, y) + grain));
            const float clipped = std::clamp(static_cast<float>(share) * 0x1p-16f, -1.0f, 1.0f);
            const float curve = clipped * (1.5f - 0.5f * (clipped * clipped));
            grey.push_back(static_cast<std::uint8_t>(std::lrint(127.5f + 127.5f * curve)));
        }
    return grey;
}

bool filter_picture(const DemoOptions& options) {
    std::string path = options.file;
    const Contest contest(demo_program("filter"), options.settings);
    if (path.empty()) {
        path = (options.folder / "filter_before.png").string();
        write_png(badly_lit_picture(), path);
    }
    Image image = read_png(path);
    Plane plane(image.width, image.height);
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const Colour& c = image.at(x, y);
            plane.at(x, y) = (77 * c.red + 150 * c.green + 29 * c.blue) >> 4;
        }

    auto& [width, height, items, stride, values] = plane;
    std::vector<int> sums(values.size()), mean(values.size()), distance(values.size()), spread(values.size());
    std::vector<std::uint8_t> grey(static_cast<std::size_t>(8 * items * height));
    const auto size = static_cast<std::uint64_t>(items * height);
    const auto work = [&](const Program& program) {
        launch(program, "column_sums", size, values, stride, items, height, sums);
        launch(program, "means", size, sums, stride, items, width, height, mean);
        launch(program, "distances", size, values, mean, stride, items, width, distance);
        launch(program, "column_sums", size, distance, stride, items, height, sums);
        launch(program, "means", size, sums, stride, items, width, height, spread);
        launch(program, "levels", size, values, mean, spread, stride, items, grain, grey);
    };
    contest.report("int8 and float8", "pixels", static_cast<double>(width) * height, work);
    work(contest.library);

    const std::vector<std::uint8_t> expected = reference_levels(plane);
    Comparison comparison;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint8_t level = grey[static_cast<std::size_t>(8 * items * y + x)];
            comparison.add(level, expected[static_cast<std::size_t>(width * y + x)], 0);
            image.at(x, y) = {level, level, level};
        }
    const std::string filtered = (options.folder / "filter.png").string();
    write_png(image, filtered);
    std::printf("%s filtered: %s\n", path.c_str(), filtered.c_str());
    return comparison.report("bytes");
}

const RegisterDemo registered({"filter", "local contrast of FILE, a PNG (of a badly lit one that it makes)",
                               filter_picture});

}  // namespace
}  // namespace tuvo::client

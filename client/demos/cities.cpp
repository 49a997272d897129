// Distances and bearings between cities, and a map of them as they are seen from one.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "client/demos/compare.hpp"
#include "client/demos/csv.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/png.hpp"

namespace tuvo::client {
namespace {

constexpr double radius = 6371.0088;  // km, the mean radius of the earth
constexpr long double degree = 0.017453292519943295769236907684886127L;

/// Pairs of places as the kernel takes them, and what it makes of them. Padded to whole vectors with copies of the
/// last.
struct Pairs {
    std::vector<double> latitude1, longitude1, latitude2, longitude2;
    std::vector<double> distance, bearing;

    void add(double from_latitude, double from_longitude, double to_latitude, double to_longitude) {
        latitude1.push_back(from_latitude), longitude1.push_back(from_longitude);
        latitude2.push_back(to_latitude), longitude2.push_back(to_longitude);
    }
    void compute(const Program& program) {
        for (std::vector<double>* column : {&latitude1, &longitude1, &latitude2, &longitude2})
            column->resize((column->size() + 3) / 4 * 4, column->back());
        distance.resize(latitude1.size());
        bearing.resize(latitude1.size());
        double unit = radius;
        launch(program, "great_circles", latitude1.size() / 4, latitude1, longitude1, latitude2, longitude2, unit,
               distance, bearing);
    }
};

using Vector = std::array<long double, 3>;
Vector direction(long double latitude, long double longitude) {
    const long double phi = latitude * degree, lambda = longitude * degree;
    return {cosl(phi) * cosl(lambda), cosl(phi) * sinl(lambda), sinl(phi)};
}
long double dot(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

/// By the vectors to both places. With u = 2^-53, an arc of the kernel is off by some 50 u, for the roundings of the
/// angles and of a dozen operations and for sines and cosines within 4 ulp; near the antipodes, where half the chord
/// hardly changes with the distance, by the tangent of half the distance more. A bearing is off by that over the
/// length of the vector that it is the angle of, the sine of the distance.
void compare(const Pairs& pairs, std::size_t k, Comparison& distances, Comparison& bearings) {
    const Vector from = direction(pairs.latitude1[k], pairs.longitude1[k]);
    const Vector to = direction(pairs.latitude2[k], pairs.longitude2[k]);
    const Vector east{-sinl(pairs.longitude1[k] * degree), cosl(pairs.longitude1[k] * degree), 0};
    const Vector north = direction(pairs.latitude1[k] + 90.0L, pairs.longitude1[k]);
    const long double y = dot(to, east), x = dot(to, north), sine = hypotl(x, y);
    const long double arc = atan2l(sine, dot(to, from)), bearing = atan2l(y, x) / degree;
    constexpr double u = 0x1p-53;
    const double conditioning = std::tan(static_cast<double>(arc) / 2);
    distances.add(pairs.distance[k], static_cast<double>(radius * arc), 50 * u * radius * (1 + conditioning));
    if (sine < 1e-9L) return;  // one place, which has no bearing
    const double off = static_cast<double>(remainderl(pairs.bearing[k] - bearing, 360));
    bearings.add(off, 0, static_cast<double>(50 * u / degree * (4 + 1 / sine)));
}

/// Every pixel by its distance and bearing from home: bands of 2000 km, in sectors of 30 degrees.
Image draw_map(const Program& program, const Table& cities, double home_latitude, double home_longitude) {
    constexpr int width = 1080, height = 540;
    Pairs pixels;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
            pixels.add(home_latitude, home_longitude, 90 - (row + 0.5) * 180 / height,
                       (column + 0.5) * 360 / width - 180);
    pixels.compute(program);
    Image image(width, height, {});
    for (std::size_t k = 0; k < image.pixels.size(); ++k) {
        const double km = pixels.distance[k], band = std::floor(km / 2000), sector = std::floor(pixels.bearing[k] / 30);
        const double light = 1 - km / 30000 - (std::fmod(band + sector + 12, 2) != 0 ? 0.07 : 0);
        const auto level = [&](double full) { return static_cast<std::uint8_t>(std::lround(full * light)); };
        image.pixels[k] = {level(150), level(195), level(235)};
    }
    const auto dot_at = [&](double latitude, double longitude, int size, Colour colour) {
        const int x = static_cast<int>((longitude + 180) * width / 360),
                  y = static_cast<int>((90 - latitude) * height / 180);
        for (int dy = -size; dy <= size; ++dy)
            for (int dx = -size; dx <= size; ++dx)
                if (dx * dx + dy * dy <= size * size + 1 && y + dy >= 0 && y + dy < height)
                    image.at((x + dx + width) % width, y + dy) = colour;
    };
    const auto& latitudes = cities.column("latitude");
    const auto& longitudes = cities.column("longitude");
    for (std::size_t k = 0; k < cities.rows(); ++k) {
        dot_at(latitudes[k], longitudes[k], 3, {40, 40, 50});
        dot_at(latitudes[k], longitudes[k], 2, {255, 235, 130});
    }
    dot_at(home_latitude, home_longitude, 5, {40, 40, 50});
    dot_at(home_latitude, home_longitude, 4, {225, 60, 40});
    return image;
}

bool measure_cities(const DemoOptions& options) {
    const std::string path = options.file.empty() ? demo_data("cities.csv").string() : options.file;
    Table cities = read_csv(path, Labels::first);
    const std::vector<double> latitudes = cities.column("latitude"), longitudes = cities.column("longitude");
    const std::size_t count = cities.rows();
    const Contest contest(demo_program("cities"), options.settings);

    Pairs pairs;
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t k = 0; k < count; ++k) pairs.add(latitudes[i], longitudes[i], latitudes[k], longitudes[k]);
    contest.report("double4", "pairs of cities", static_cast<double>(count * count),
                   [&](const Program& program) { pairs.compute(program); });
    pairs.compute(contest.library);
    Comparison distances, bearings;
    for (std::size_t k = 0; k < count * count; ++k) compare(pairs, k, distances, bearings);

    const std::size_t farthest = static_cast<std::size_t>(
        std::max_element(pairs.distance.begin(), pairs.distance.end()) - pairs.distance.begin());
    std::printf("%zu cities; farthest from each other: %s and %s, %.0f km\n", count,
                cities.labels[farthest / count].c_str(), cities.labels[farthest % count].c_str(),
                pairs.distance[farthest]);

    // The list again, as seen from its first city.
    cities.names.insert(cities.names.end(), {"distance", "bearing"});
    for (const std::vector<double>* column : {&pairs.distance, &pairs.bearing})
        cities.columns.emplace_back(column->begin(), column->begin() + static_cast<std::ptrdiff_t>(count));
    const std::string list = (options.folder / "cities.csv").string(), map = (options.folder / "cities.png").string();
    write_csv(cities, list);
    write_png(draw_map(contest.library, cities, latitudes[0], longitudes[0]), map);
    std::printf("from %s: %s, picture: %s\n", cities.labels[0].c_str(), list.c_str(), map.c_str());
    const bool distances_agree = distances.report("distances in km");
    return bearings.report("bearings in degrees") && distances_agree;
}

const RegisterDemo registered({"cities",
                               "distances and bearings between the places of FILE, a table in CSV (of cities)",
                               measure_cities});

}  // namespace
}  // namespace tuvo::client

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tuvo::client {

struct Colour {
    std::uint8_t red, green, blue;
};

/// Pixels in rows from the top, each from the left.
struct Image {
    int width, height;
    std::vector<Colour> pixels;

    Image(int columns, int rows, Colour fill)
        : width(columns), height(rows), pixels(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows), fill) {}
    Colour& at(int x, int y) { return pixels[static_cast<std::size_t>(y * width + x)]; }
};

/// Reads a PNG of up to 2^26 pixels; transparent ones lie on black. Throws `Failure` if the file can't be read.
Image read_png(const std::string& path);

/// Writes the image as PNG, and makes the folder for it. Throws `Failure` if the file can't be written.
void write_png(const Image& image, const std::string& path);

}  // namespace tuvo::client

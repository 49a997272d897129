#include "client/demos/png.hpp"

#include <filesystem>

#include <png.h>

#include "client/failure.hpp"

namespace tuvo::client {

Image read_png(const std::string& path) {
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&header, path.c_str()))
        throw Failure("cannot read '" + path + "': " + header.message);
    // The size is what the file says it is, however short it may be.
    constexpr std::uint64_t most_pixels = 1 << 26;
    if (std::uint64_t{header.width} * header.height > most_pixels) {
        png_image_free(&header);
        throw Failure("cannot read '" + path + "': it has more than " + std::to_string(most_pixels) + " pixels");
    }
    header.format = PNG_FORMAT_RGB;
    Image image(static_cast<int>(header.width), static_cast<int>(header.height), {});
    const png_color black{};
    if (!png_image_finish_read(&header, &black, image.pixels.data(), 0, nullptr))
        throw Failure("cannot read '" + path + "': " + header.message);
    return image;
}

void write_png(const Image& image, const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::error_code ignored;  // a folder that can't be made shows when the file is opened
    if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = static_cast<png_uint_32>(image.width);
    header.height = static_cast<png_uint_32>(image.height);
    header.format = PNG_FORMAT_RGB;
    if (!png_image_write_to_file(&header, path.c_str(), 0, image.pixels.data(), 0, nullptr))
        throw Failure("cannot write '" + path + "': " + header.message);
}

}  // namespace tuvo::client

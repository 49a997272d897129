// Pictures. One that is accepted has all its pixels. Checksums of chunks are mended first, so that what is inside is
// read.
#include "client/demos/png.hpp"

#include <zlib.h>

#include <vector>

#include "tests/fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tuvo;
    std::vector<std::uint8_t> bytes(data, data + size);
    const auto put = [&](std::size_t at, std::uint64_t value) {
        for (int shift = 24; shift >= 0; shift -= 8) bytes[at++] = static_cast<std::uint8_t>(value >> shift);
    };
    // Length, type, content, checksum.
    for (std::size_t at = 8; at + 12 <= size;) {
        const std::size_t length =
            static_cast<std::size_t>(bytes[at]) << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3];
        if (length > size - at - 12) break;
        put(at + 8 + length, crc32(0, &bytes[at + 4], static_cast<unsigned>(length + 4)));
        at += 12 + length;
    }
    return fuzz::accept_or_reject([&] {
        client::Image image = client::read_png(fuzz::as_file("picture.png", bytes.data(), size).string());
        if (image.width < 1 || image.height < 1) std::abort();
        (void)image.at(image.width - 1, image.height - 1).red;
    });
}

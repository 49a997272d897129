// The entropy of a file, block by block, as a chart.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "client/arguments.hpp"
#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/failure.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/plot.hpp"

namespace tuvo::client {
namespace {

using Counts = std::array<std::uint64_t, 256>;

/// Bytes for which one value is computed: few enough that a float counts them exactly.
constexpr std::uint32_t block = 4096;

Counts count_bytes(const std::byte* bytes, std::size_t size) {
    Counts counts{};
    for (std::size_t i = 0; i < size; ++i) ++counts[std::to_integer<std::size_t>(bytes[i])];
    return counts;
}

double reference_entropy(const Counts& counts, std::size_t size) {
    double sum = 0.0;
    for (std::uint64_t count : counts) {
        const double share = static_cast<double>(count) / static_cast<double>(size);
        if (count > 0) sum -= share * std::log2(share);
    }
    return sum;
}

/// Bound of the error of the program's entropy, where the exact one is `bits`.
///
/// With u = 2^-24, half an ulp of 1: a share is off by 3 u at most (count, size and quotient are rounded), which moves
/// the sum of p log2 p by up to 3 u (bits + 1 / ln 2). A logarithm is within 3 ulp, 6 u, and its product adds u. All
/// terms have the same sign, so that each of the 20 additions that a term goes through adds at most u times the sum.
double tolerance(double bits) {
    const double u = 0x1p-24;
    return 3 * u * (bits + 1 / std::log(2.0)) + (6 + 1 + 20) * u * bits;
}

bool show_entropy(const DemoOptions& options) {
    const std::string path = options.file.empty() ? options.settings.library.string() : options.file;
    const Buffer bytes = read_file(path);
    std::uint64_t size = bytes.size();
    if (size == 0) throw Failure("'" + path + "' is empty; an entropy needs at least one byte");
    const std::uint64_t blocks = (size - 1) / block + 1;
    const Contest contest(demo_program("entropy"), options.settings);

    std::vector<float> block_bits(blocks), file_bits(1);
    std::uint32_t length_of_block = block;
    const auto work = [&](const Program& program) {
        launch(program, "entropy_of_blocks", blocks, bytes, size, length_of_block, block_bits);
    };
    contest.report("blocks of 4096 bytes", "bytes", static_cast<double>(size), work);
    work(contest.library);
    Counts counts = count_bytes(bytes.data(), size);
    launch(contest.library, "entropy_of_counts", 1, counts, file_bits);

    Comparison comparison;
    const double exact = reference_entropy(counts, size);
    comparison.add(file_bits[0], exact, tolerance(exact));
    for (std::uint64_t i = 0; i < blocks; ++i) {
        const std::uint64_t length = std::min<std::uint64_t>(block, size - i * block);
        const double bits = reference_entropy(count_bytes(bytes.data() + i * block, length), length);
        comparison.add(block_bits[i], bits, tolerance(bits));
    }

    const std::string name = std::filesystem::path(path).filename().string();
    std::printf("%s: %.6f bits per byte over %llu bytes\n", name.c_str(), static_cast<double>(file_bits[0]),
                static_cast<unsigned long long>(size));
    const std::string picture = (options.folder / "entropy.png").string();
    std::filesystem::create_directories(options.folder);
    draw_plot({.title = name, .values = block_bits, .level = file_bits[0], .step = block, .length = size}, picture);
    std::printf("picture: %s\n", picture.c_str());
    return comparison.report("entropies");
}

const RegisterDemo registered({"entropy", "the entropy of FILE (of the library, if none is named), as a chart",
                               show_entropy});

}  // namespace
}  // namespace tuvo::client

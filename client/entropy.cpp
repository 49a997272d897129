#include "client/entropy.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "client/arguments.hpp"
#include "client/failure.hpp"
#include "client/plot.hpp"

namespace tuvo::client {
namespace {

using Counts = std::array<std::uint64_t, 256>;

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

struct Comparison {
    double largest_error = 0.0;
    bool agrees = true;

    void add(float computed, double exact) {
        const double error = std::fabs(static_cast<double>(computed) - exact);
        largest_error = std::max(largest_error, error);
        // A NaN fails this way round.
        if (!(error <= tolerance(exact))) agrees = false;
    }
};

}  // namespace

bool show_entropy(const EntropyOptions& options, const Settings& settings) {
    Buffer bytes = read_file(options.file);
    std::uint64_t size = bytes.size();
    if (size == 0) throw Failure("'" + options.file + "' is empty; an entropy needs at least one byte");
    std::uint32_t block = options.block;
    const std::uint64_t blocks = (size - 1) / block + 1;
    const Program program = build_program(TUVO_ENTROPY_PROGRAM, settings);

    std::vector<float> block_bits(blocks);
    void* bytes_address = bytes.data();
    void* bits_address = block_bits.data();
    run_kernel(program, find_kernel(program, "entropy_of_blocks"), {&bytes_address, &size, &block, &bits_address},
               blocks, "entropy of blocks");

    Counts counts = count_bytes(bytes.data(), size);
    float file_bits = 0.0f;
    void* counts_address = counts.data();
    bits_address = &file_bits;
    run_kernel(program, find_kernel(program, "entropy_of_counts"), {&counts_address, &bits_address}, 1);

    Comparison comparison;
    const double exact = reference_entropy(counts, size);
    comparison.add(file_bits, exact);
    for (std::uint64_t i = 0; i < blocks; ++i) {
        const std::uint64_t length = std::min<std::uint64_t>(block, size - i * block);
        comparison.add(block_bits[i], reference_entropy(count_bytes(bytes.data() + i * block, length), length));
    }

    const std::string name = std::filesystem::path(options.file).filename().string();
    std::printf("%s: %.6f bits per byte over %llu bytes\n", name.c_str(), static_cast<double>(file_bits),
                static_cast<unsigned long long>(size));
    std::printf("reference: %.6f; %llu blocks of %u bytes; largest error %.1e, at most %.1e at 8 bits\n", exact,
                static_cast<unsigned long long>(blocks), block, comparison.largest_error, tolerance(8.0));
    if (!options.picture.empty()) {
        const Plot plot{
            .title = name,
            .values = block_bits,
            .level = file_bits,
            .step = block,
            .length = size,
        };
        write_png(draw_plot(plot), options.picture);
        std::printf("picture: %s\n", options.picture.c_str());
    }
    if (!comparison.agrees) std::fprintf(stderr, "tuvo-client: the program's entropy differs from the reference\n");
    return comparison.agrees;
}

}  // namespace tuvo::client

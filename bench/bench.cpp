// tuvo-bench: the speed of the kernels beside their peers, measured in one run, and the model's figures.
//
// Within each measurement the kernel and its peers take turns of some microseconds, and the measurements are repeated
// in random order over the whole run. What counts is each one's quietest turns: a busy neighbour on the same core
// halves the window in which calls overlap and slows some kernels more than others, for milliseconds or for minutes.
#include <benchmark/benchmark.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <span>
#include <sstream>

#include "bench/headers.hpp"
#include "bench/measure.hpp"
#include "bench/model.hpp"
#include "tests/library.hpp"

namespace {

using namespace tuvo;

/// The fastest turn but for one in ten: what the entry does when nothing disturbs it.
double undisturbed(std::vector<double>& turns) {
    const auto quick = turns.begin() + static_cast<std::ptrdiff_t>(turns.size() / 10);
    std::nth_element(turns.begin(), quick, turns.end());
    return *quick;
}

void compete(benchmark::State& state, const Family& family, int width, Mode mode) {
    struct Rival {
        const char* name;
        Contestant contestant;
        std::vector<double> turns;
    };
    std::vector<Rival> rivals;
    const auto add = [&](const char* name, const std::optional<Entry>& entry) {
        // Calls for one value that don't depend on each other overlap: their latencies don't add up.
        if (entry && (mode != Mode::latency || entry->calls == 1))
            rivals.push_back({name, Contestant(*entry, family, mode), {}});
    };
    const Shape shape = shape_of(family, width);
    const Peers peers = peers_of(family, width);
    add("own", Entry{"", find_kernel(family, width), shape, width, 1});
    add("empty", Entry{"", empty_call(), shape, width, 1});
    add("accurate", peers.accurate);
    add("fast", peers.fast);
    add("scalar", peers.scalar);
    if (mode == Mode::throughput) add("xsimd", peers.xsimd), add("eigen", peers.eigen);
    for (auto _ : state)
        for (Rival& rival : rivals) rival.turns.push_back(rival.contestant.run());
    for (Rival& rival : rivals) state.counters[rival.name] = undisturbed(rival.turns);
}

/// Keeps the least ticks of every contestant over the repetitions, and prints a table of ratios.
class Table : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration) continue;
            const std::string& name = run.run_name.function_name;
            const std::size_t slash = name.find('/');
            for (const auto& [contestant, ticks] : run.counters) {
                double& least = ticks_[name.substr(0, slash)][name.substr(slash + 1)][contestant];
                least = least == 0 ? ticks.value : std::min(least, ticks.value);
            }
        }
    }
    void print(std::ostream& out) const;

private:
    static std::string mean(const char* label, const std::vector<double>& ratios);
    static void print_cell(std::ostream& out, double value);
    static void print_titles(std::ostream& out, std::span<const char* const> titles);
    void print_large(std::ostream& out) const;
    /// Whether anything was measured in that mode.
    bool has(const char* mode) const {
        return std::ranges::any_of(ticks_, [&](const auto& row) { return row.second.contains(mode); });
    }
    using Ticks = std::map<std::string, double>;  // by contestant, for one call of the kernel
    using Row = std::map<std::string, Ticks>;     // by mode
    /// Ticks of the kernel, and how many times as many another contestant takes; 0 where it wasn't measured.
    static double own(const Row& row, const char* mode) { return row.contains(mode) ? row.at(mode).at("own") : 0; }
    static double ratio(const Row& row, const char* mode, const char* contestant) {
        if (!row.contains(mode) || !row.at(mode).contains(contestant)) return 0;
        return row.at(mode).at(contestant) / own(row, mode);
    }
    std::map<std::string, Row> ticks_;  // by kernel
};

std::string Table::mean(const char* label, const std::vector<double>& ratios) {
    if (ratios.empty()) return "";
    double sum = 0;
    for (double ratio : ratios) sum += std::log(ratio);
    char text[200];
    std::snprintf(text, sizeof text, "\n%s: %.2f in the geometric mean over %zu kernels, %.2f at least.\n", label,
                  std::exp(sum / static_cast<double>(ratios.size())), ratios.size(), *std::ranges::min_element(ratios));
    return text;
}

void Table::print_cell(std::ostream& out, double value) {
    char text[32] = "-";
    if (value != 0) std::snprintf(text, sizeof text, "%.2f", value);
    out << "| " << std::setw(10) << text << " ";
}

void Table::print_titles(std::ostream& out, std::span<const char* const> titles) {
    out << "| kernel           ";
    for (const char* title : titles) out << "| " << std::setw(10) << title << " ";
    out << "|\n|:-----------------";
    for (std::size_t k = 0; k < titles.size(); ++k) out << "|-----------:";
    out << "|\n";
}

void Table::print(std::ostream& out) const {
    constexpr std::array titles{"ticks/lane", "empty call", "1 ulp",  "3.5 ulp",  "libm",     "xsimd",
                                "Eigen",      "latency",    "lat. 1", "lat. 3.5", "lat. libm"};
    const bool latency = has("latency");
    print_titles(out, std::span(titles).first(latency ? titles.size() : 7));
    std::vector<double> standard, shorter, by_xsimd, by_eigen;
    for (const Family& family : families()) {
        for (int width : widths) {
            const auto found = ticks_.find(short_name(family, width));
            if (found == ticks_.end()) continue;
            const auto& [name, row] = *found;
            out << "| " << std::left << std::setw(16) << name << std::right << " ";
            print_cell(out, own(row, "throughput") / width);
            for (const char* rival : {"empty", "accurate", "fast", "scalar", "xsimd", "eigen"})
                print_cell(out, ratio(row, "throughput", rival));
            if (latency) {
                print_cell(out, own(row, "latency"));
                for (const char* rival : {"accurate", "fast", "scalar"}) print_cell(out, ratio(row, "latency", rival));
            }
            out << "|\n";
            // The narrower calls have no peer of their own width, and the shortest kernels are lost in the call.
            if (width == 3 || width * lane_size(family.element) < 16 || ratio(row, "throughput", "empty") > 0.5)
                continue;
            const double accurate = ratio(row, "throughput", "accurate"), fast = ratio(row, "throughput", "fast");
            const double xsimd = ratio(row, "throughput", "xsimd"), eigen = ratio(row, "throughput", "eigen");
            if (family.tier == Tier::standard && accurate != 0) standard.push_back(accurate);
            if (family.tier == Tier::standard && xsimd != 0) by_xsimd.push_back(xsimd);
            if (family.tier == Tier::standard && eigen != 0) by_eigen.push_back(eigen);
            if ((family.tier == Tier::native || family.tier == Tier::half) && fast != 0) shorter.push_back(fast);
        }
    }
    out << mean("Default tiers against the entries of 1 ulp", standard)
        << mean("Shorter tiers against the entries of 3.5 ulp", shorter)
        << mean("Default tiers against xsimd", by_xsimd) << mean("Default tiers against Eigen", by_eigen);
    if (has("large")) print_large(out);
}

void Table::print_large(std::ostream& out) const {
    out << "\nAll arguments large, from 1e15 to 1e30:\n\n";
    print_titles(out, std::array{"ticks/lane", "slower", "1 ulp", "3.5 ulp", "libm"});
    for (const Family& family : families()) {
        for (int width : widths) {
            const auto found = ticks_.find(short_name(family, width));
            if (found == ticks_.end() || !found->second.contains("large")) continue;
            const auto& [name, row] = *found;
            out << "| " << std::left << std::setw(16) << name << std::right << " ";
            print_cell(out, own(row, "large") / width);
            print_cell(out, row.contains("throughput") ? own(row, "large") / own(row, "throughput") : 0);
            for (const char* rival : {"accurate", "fast", "scalar"}) print_cell(out, ratio(row, "large", rival));
            out << "|\n";
        }
    }
}

void write_file(const std::string& file, const std::string& text) {
    std::ofstream out(file);
    out << text;
    if (!out.flush()) throw std::runtime_error("can't write " + file);
    std::cerr << "wrote " << file << "\n";
}

std::string document(const Table& table) {
    std::ostringstream out;
    out << R"(# Performance

Written by `tuvo-bench --markdown`, with the filter `(4|8|16)(_[a-z]+)?/(throughput|large)`; run `./run bench` for all
widths, for latencies, and for the figures of another machine.

## Beside peers

All of one run on one machine. Each kernel takes turns of some microseconds with its peers, and the
measurements are repeated in random order over the whole run; the quietest turns count. Figures are ratios: how many
times as fast the kernel is as the peer. On a shared machine they move by some percent from run to run, and a figure of
one run is not to be compared with a figure of another.

- ticks/lane: of the time stamp counter, from array to array in the first-level cache, calls independent. They are a
  base for the ratios, not cycles of the core.
- empty call: the part of the time that the loop takes around a function that only returns.
- 1 ulp, 3.5 ulp: SLEEF's entries of that accuracy for AVX (256 bits) and SSE4 (128 bits), as many calls as the value
  takes. Where there is no entry of 1 ulp, that of 0.5 or 1.5 ulp or the exact one stands in; for div, inv and rsqrt,
  which it doesn't have, a function of the divide and root instructions. Widths 1 to 3 take one 128-bit call.
- libm: the C library's scalar function, one call a lane. It may use instructions that the kernels must not. For
  integer division and conversions, a compiled loop of the processor's own divisions and of casts.
- xsimd, Eigen: those libraries' functions in their AVX forms (128 bits: SSE 4, in AVX's encoding), without fused
  multiply-add. Their errors are their own; xsimd's hypot is the root of the sum of squares, whatever overflows.
- latency: ticks of a call whose argument waits for the last call's result; lat.: the ratios of that to the same
  peers. Values that take the peer more than one call have none.
- slower: how many times as long a call takes whose arguments are all large, against one whose arguments are small.

The means leave out widths below 128 bits, width 3, and kernels that take less than two empty calls. One operation
pulls them down: `fma` in double, which also looks at the rounding modes, and keeps to the flags of one rounding.

)";
    table.print(out);
    const std::string model = model_table();
    out << "\n## On the model of the first processors with AVX\n\n"
           "The text of the common paths on llvm-mca's model: the same figures on every machine, in `bench/model.txt`. "
           "A "
           "test\nholds the kernels to them; `./run bench --model` renews them after a deliberate change.\n"
        << model.substr(model.rfind('#') + 2);
    return out.str();
}

/// What another program has put behind this one's part of the document.
std::string part_of_runtimes(const std::string& file) {
    std::ifstream in(file);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const std::size_t start = text.find("\n## In an OpenCL runtime\n");
    return start == std::string::npos ? "" : text.substr(start);
}

int run(int argc, char** argv) {
    CLI::App app{"All built kernels beside their peers, in one run, as a table."};
    std::string markdown, filter = ".", model = TUVO_MODEL;
    app.add_option("--filter", filter, "regular expression for names such as logf8_native/latency");
    app.add_option("--markdown", markdown, "writes the document to this file as well");
    CLI::Option* renew =
        app.add_option("--model", model, "renews the table of the machine model's figures that a test compares")
            ->expected(0, 1);
    app.allow_extras();
    app.footer(
        "--benchmark_... options go to the benchmark library; --benchmark_repetitions=4 makes a quicker, noisier run.");
    CLI11_PARSE(app, argc, argv);
    if (renew->count() > 0) {
        write_file(model.empty() ? TUVO_MODEL : model, model_table());
        return 0;
    }
    std::vector<std::string> passed{argv[0], "--benchmark_repetitions=16",
                                    "--benchmark_enable_random_interleaving=true"};
    for (const std::string& extra : app.remaining()) passed.push_back(extra);
    std::vector<char*> pointers;
    for (std::string& argument : passed) pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;
    if (!have_vector_peer()) std::cerr << "SLEEF is not installed (package libsleef3): its columns stay empty\n";
    if (!by_xsimd("exp", 4, 8))
        std::cerr << "built without xsimd (package libxsimd-dev): its column stays empty until it is built again\n";
    if (!by_eigen("exp", 4, 8))
        std::cerr << "built without Eigen (package libeigen3-dev): its column stays empty until it is built again\n";

    for (const Family* family : built_families())
        for (int width : widths)
            for (const auto& [mode, name] : {std::pair(Mode::throughput, "/throughput"),
                                             std::pair(Mode::latency, "/latency"), std::pair(Mode::large, "/large")}) {
                if (mode == Mode::large && !large_range(*family)) continue;
                benchmark::RegisterBenchmark((short_name(*family, width) + name).c_str(), [=](benchmark::State& state) {
                    compete(state, *family, width, mode);
                })->MinTime(0.03);
            }
    Table table;
    if (benchmark::RunSpecifiedBenchmarks(&table, filter) == 0) return 1;
    table.print(std::cout);
    if (!markdown.empty()) write_file(markdown, document(table) + part_of_runtimes(markdown));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "tuvo-bench: " << error.what() << "\n";
        return 1;
    }
}

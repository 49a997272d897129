#include "bench/model.hpp"

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <nlohmann/json.hpp>

#include "bench/shapes.hpp"
#include "tests/library.hpp"

namespace tuvo {
namespace {

std::string output_of(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) throw std::runtime_error("can't run " + command);
    std::string text;
    std::array<char, 65536> buffer;
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), pipe.get()))
        text.append(buffer.data(), size);
    return text;
}

struct Tool {
    std::string command, version;
};
/// Figures differ between releases of the model, so the one that the kept table was made with goes first.
Tool find_tool() {
    for (const char* command : {"llvm-mca-14", "llvm-mca"}) {
        const std::string text = output_of(std::string(command) + " --version 2>&1");
        const std::size_t at = text.find("LLVM version ");
        if (at != std::string::npos) return {command, text.substr(at, text.find('\n', at) - at)};
    }
    throw std::runtime_error("llvm-mca is not installed; it is in the package llvm-14");
}

/// The instructions from the kernel's entry to its return with every conditional jump not taken, or nothing if there is
/// no such way without a call.
std::string common_path(std::istream& text, const std::string& symbol) {
    std::string line, path;
    while (std::getline(text, line) && line != symbol + ":") {
    }
    while (std::getline(text, line)) {
        line = line.substr(0, line.find('#'));
        const std::size_t first = line.find_first_not_of(' ');
        if (first == std::string::npos || line[first] == '.') continue;
        path += line + "\n";
        if (line.compare(first, 3, "ret") == 0) return path;
        if (line.compare(first, 4, "call") == 0 || line.compare(first, 4, "jmp ") == 0) return "";
    }
    return "";
}

/// Zeroed arguments: without that, each call of the simulation would wait for the result of the last.
std::string fresh_arguments(const Shape& shape) {
    std::string text;
    int number = 0;
    if (shape.kind == Shape::Kind::memory) return text;
    for (const Shape::Part& part : shape.arguments) {
        if (part.general) continue;
        const std::string name = "xmm" + std::to_string(number++);
        text += "    vxorps " + name + ", " + name + ", " + name + "\n";
    }
    return text;
}

/// What the description's own operations come to: the path without spills, copies, moves between halves of registers,
/// and what keeps the caller's registers.
std::string without_moves(const std::string& path) {
    static const std::regex moved(
        " *(vmov[au]p[sd] [xy]mm[0-9]+, [xy]mm[0-9]+|vmov\\w+ .*\\[r[sb]p .*|vinsertf128 .*|vextractf128 .*|vzeroupper|"
        "push .*|leave|(mov|sub|and) r[sb]p, .*|mov \\w+, \\w+) *");
    std::istringstream in(path);
    std::string line, left;
    while (std::getline(in, line))
        if (!std::regex_match(line, moved)) left += line + "\n";
    return left;
}

/// The model's report on regions of code.
nlohmann::json simulate(const Tool& tool, const std::string& regions, int iterations) {
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("tuvo-model-" + std::to_string(getpid()) + ".s");
    std::ofstream(file) << "    .intel_syntax noprefix\n" << regions;
    const std::string report = output_of(
        tool.command +
        " -mtriple=x86_64 -mcpu=sandybridge -json -resource-pressure=false -instruction-info=false -iterations=" +
        std::to_string(iterations) + " " + file.string() + " 2>/dev/null");
    std::filesystem::remove(file);
    nlohmann::json json = nlohmann::json::parse(report, nullptr, false);
    if (json.is_discarded()) throw std::runtime_error(tool.command + " can't read the generated text");
    return json.at("CodeRegions");
}

}  // namespace

std::string model_table() {
    constexpr int iterations = 100;
    const Tool tool = find_tool();
    struct Row {
        std::string kernel;
        int width;
        bool modelled;
    };
    std::vector<Row> rows;
    std::string regions, own_regions;
    for (const Family* family : built_families()) {
        for (int width : widths) {
            std::ifstream text(TUVO_GENERATED "/" + family->name() + ".s");
            const std::string kernel = short_name(*family, width),
                              path = common_path(text, export_name(*family, width));
            rows.push_back({kernel, width, !path.empty()});
            if (path.empty()) continue;
            const auto region = [&](const std::string& code) {
                return "# LLVM-MCA-BEGIN " + kernel + "\n" + code + "# LLVM-MCA-END\n";
            };
            regions += region(fresh_arguments(shape_of(*family, width)) + path);
            own_regions += region(without_moves(path));
        }
    }
    const nlohmann::json simulated = simulate(tool, regions, iterations), own = simulate(tool, own_regions, 1);

    std::ostringstream out;
    out << "# llvm-mca -mcpu=sandybridge, " << tool.version
        << ", on the kernels' common paths. Written by `tuvo-bench --model`.\n# cycles: of a call, simulated, among "
        << iterations
        << " equal and independent calls. bound: the least that the busiest ports\n"
           "# and the dispatch of four micro-operations a cycle allow; own: the same of the description's own "
           "operations\n"
           "# alone, without spills, copies and moves between halves of registers.\n"
           "# kernel               cycles    bound    ratio      own    ratio     uops cycles/lane\n";
    double logarithms = 0, own_logarithms = 0;
    int wide = 0;
    auto region = simulated.begin(), own_region = own.begin();
    for (const Row& row : rows) {
        char line[160];
        if (!row.modelled) {
            out << row.kernel << " has no common path\n";
            continue;
        }
        if (region->at("Name") != row.kernel || own_region->at("Name") != row.kernel)
            throw std::runtime_error(tool.command + " can't read " + row.kernel);
        const nlohmann::json& summary = (*region++).at("SummaryView");
        const double cycles = summary.at("TotalCycles").get<double>() / iterations,
                     bound = summary.at("BlockRThroughput"),
                     own_bound = (*own_region++).at("SummaryView").at("BlockRThroughput");
        std::snprintf(line, sizeof line, "%-20s %8.2f %8.2f %8.2f %8.2f %8.2f %8d %11.2f\n", row.kernel.c_str(), cycles,
                      bound, cycles / bound, own_bound, cycles / own_bound,
                      summary.at("TotaluOps").get<int>() / iterations, cycles / row.width);
        out << line;
        if (row.width >= 8) {
            logarithms += std::log(cycles / bound), own_logarithms += std::log(cycles / own_bound);
            ++wide;
        }
    }
    char line[160];
    std::snprintf(
        line, sizeof line,
        "# Widths 8 and 16: %.2f times the bound in the geometric mean, %.2f times that of the own operations.\n",
        wide ? std::exp(logarithms / wide) : 0.0, wide ? std::exp(own_logarithms / wide) : 0.0);
    out << line;
    return out.str();
}

}  // namespace tuvo

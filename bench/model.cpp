#include "bench/model.hpp"

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
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
    std::string regions = "    .intel_syntax noprefix\n";
    for (const Family* family : built_families()) {
        for (int width : widths) {
            std::ifstream text(TUVO_GENERATED "/" + family->name() + ".s");
            const std::string kernel = short_name(*family, width),
                              path = common_path(text, export_name(*family, width));
            rows.push_back({kernel, width, !path.empty()});
            if (!path.empty())
                regions += "# LLVM-MCA-BEGIN " + kernel + "\n" + fresh_arguments(shape_of(*family, width)) + path +
                           "# LLVM-MCA-END\n";
        }
    }
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("tuvo-model-" + std::to_string(getpid()) + ".s");
    std::ofstream(file) << regions;
    const std::string report = output_of(
        tool.command +
        " -mtriple=x86_64 -mcpu=sandybridge -json -resource-pressure=false -instruction-info=false -iterations=" +
        std::to_string(iterations) + " " + file.string() + " 2>/dev/null");
    std::filesystem::remove(file);
    const nlohmann::json json = nlohmann::json::parse(report, nullptr, false);
    if (json.is_discarded()) throw std::runtime_error(tool.command + " can't read the generated text");

    std::ostringstream out;
    out << "# llvm-mca -mcpu=sandybridge, " << tool.version
        << ", on the kernels' common paths. Written by `tuvo-bench --model`.\n# cycles: of a call, simulated, among "
        << iterations
        << " equal and independent calls. bound: the least that the busiest ports\n"
           "# and the dispatch of four micro-operations a cycle allow.\n"
           "# kernel               cycles    bound    ratio     uops cycles/lane\n";
    double logarithms = 0;
    int wide = 0;
    auto region = json.at("CodeRegions").begin();
    for (const Row& row : rows) {
        char line[160];
        if (!row.modelled) {
            out << row.kernel << " has no common path\n";
            continue;
        }
        if (region->at("Name") != row.kernel) throw std::runtime_error(tool.command + " can't read " + row.kernel);
        const nlohmann::json& summary = (*region++).at("SummaryView");
        const double cycles = summary.at("TotalCycles").get<double>() / iterations,
                     bound = summary.at("BlockRThroughput");
        std::snprintf(line, sizeof line, "%-20s %8.2f %8.2f %8.2f %8d %11.2f\n", row.kernel.c_str(), cycles, bound,
                      cycles / bound, summary.at("TotaluOps").get<int>() / iterations, cycles / row.width);
        out << line;
        if (row.width >= 8) {
            logarithms += std::log(cycles / bound);
            ++wide;
        }
    }
    char line[120];
    std::snprintf(line, sizeof line, "# Widths 8 and 16: %.2f times the bound in the geometric mean.\n",
                  wide ? std::exp(logarithms / wide) : 0.0);
    out << line;
    return out.str();
}

}  // namespace tuvo

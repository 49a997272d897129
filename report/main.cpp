// Writes the report: static pages of every operation's accuracy, speed, special values and code.
#include <CLI/CLI.hpp>

#include <bit>
#include <fstream>
#include <iostream>
#include <regex>

#include "report/pages.hpp"
#include "report/plots.hpp"

namespace {

using namespace tuvo;
using namespace tuvo::report;

void write_file(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush()) throw std::runtime_error("can't write " + path.string());
}

double limit_of(const Report& report, const std::string& family) {
    const std::string cell = report.accuracy.cell(family, "limit");
    return cell.empty() ? -1 : std::stod(cell);
}

Plot plot_of(const Report& report, const DescribedFamily& described) {
    const Family& family = *described.family;
    Plot plot{family.name() + ", error in ulp over the " + (family.arguments.size() > 1 ? "first argument" : "argument"),
              report.out / plot_name(family), family.arguments[0], sample_errors(described), {}, limit_of(report, family.name())};
    for (std::uint64_t threshold : described.accuracy.thresholds)
        plot.thresholds.push_back(family.element == Lane::f32 ? std::bit_cast<float>(static_cast<std::uint32_t>(threshold))
                                                              : std::bit_cast<double>(threshold));
    std::erase_if(plot.thresholds, [](double x) { return !(std::abs(x) > 0x1p-24 && std::abs(x) < 1e300); });
    return plot;
}

void write_report(const Report& report, const std::regex& filter) {
    std::filesystem::create_directories(report.out);
    std::vector<Operation> wanted = operations();
    std::erase_if(wanted, [&](const Operation& operation) { return !std::regex_search(operation.name, filter); });
    if (wanted.empty()) throw std::runtime_error("no operation's name fits the filter");
    write_file(report.out / "style.css", style_sheet);
    write_file(report.out / "index.html", index_page(report, wanted));
    for (std::size_t k = 0; k < wanted.size(); ++k) {
        std::cerr << "\r" << k + 1 << " of " << wanted.size() << " operations" << std::flush;
        std::vector<Plot> plots;
        std::vector<std::string> plotted;
        for (const DescribedFamily* described : wanted[k].families) {
            Plot plot = plot_of(report, *described);
            if (plot.bins.empty()) continue;
            plotted.push_back(described->family->name());
            plots.push_back(std::move(plot));
        }
        draw(plots);
        write_file(report.out / page_name(wanted[k]), operation_page(report, wanted[k], plotted));
    }
    std::cerr << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Writes static pages of every operation's accuracy, speed, special values and code.", "tuvo-report");
    std::string out, docs = TUVO_DOCS, filter;
    app.add_option("folder", out, "where the pages go")->required();
    app.add_option("--docs", docs, "folder of accuracy.md and performance.md, whose figures are quoted");
    app.add_option("--filter", filter, "regular expression of operations");
    CLI11_PARSE(app, argc, argv);
    try {
        const std::filesystem::path documents = docs;
        write_report({out, TUVO_SOURCES, TUVO_GENERATED, read_table(documents / "accuracy.md", "family"),
                      read_table(documents / "performance.md", "kernel")},
                     std::regex(filter));
        std::cout << "wrote " << out << "/index.html\n";
    } catch (const std::exception& error) {
        std::cerr << "tuvo-report: " << error.what() << "\n";
        return 1;
    }
    return 0;
}

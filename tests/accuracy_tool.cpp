// tuvo-accuracy: the errors of the built kernels, measured against exact values. `--help` tells the rest.
#include <CLI/CLI.hpp>
#include <bit>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <regex>
#include <sstream>

#include "tests/accuracy.hpp"

namespace {

using namespace tuvo;

void write_file(const std::string& file, const std::string& text) {
    std::ofstream out(file);
    out << text;
    if (!out.flush()) throw std::runtime_error("can't write " + file);
    std::cerr << "wrote " << file << "\n";
}

std::string lane_text(Lane lane, std::uint64_t pattern) {
    char text[64];
    if (lane == Lane::f32)
        std::snprintf(text, sizeof text, "%.9g (0x%08x)", std::bit_cast<float>(static_cast<std::uint32_t>(pattern)),
                      static_cast<unsigned>(pattern));
    else if (lane == Lane::f64)
        std::snprintf(text, sizeof text, "%.17g (0x%016llx)", std::bit_cast<double>(pattern),
                      static_cast<unsigned long long>(pattern));
    else
        std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(pattern));
    return text;
}

std::string lanes_text(const std::vector<Lane>& lanes, const std::vector<std::uint64_t>& patterns) {
    std::string text;
    for (std::size_t k = 0; k < patterns.size(); ++k) text += (k ? ", " : "") + lane_text(lanes[k], patterns[k]);
    return text;
}

/// The figure as an accuracy line has it: rounded up at the fourth significant digit.
std::string line_text(double ulp) {
    if (ulp == 0 || !std::isfinite(ulp)) return ulp == 0 ? "0" : "wrong";
    const double unit = std::pow(10.0, std::floor(std::log10(ulp)) - 3);
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", std::max(0, -static_cast<int>(std::floor(std::log10(unit) + 0.5))),
                  std::ceil(ulp / unit) * unit);
    return text;
}

/// Where the figure of a family is reached, and what results there.
std::string at_text(const Family& family, const Measured& measured) {
    if (measured.ulp == 0) return " | ";
    return lanes_text(family.arguments, measured.worst) + " | " + lanes_text(family.outputs(), measured.got);
}

std::string domain_text(const DescribedFamily& described) {
    const std::vector<std::uint64_t>& domain = described.accuracy.domain;
    const std::vector<Lane>& lanes = described.family->arguments;
    std::string text;
    for (std::size_t k = 0; k < domain.size(); k += 2)
        text += (k ? " and " : ", of magnitude ") + lane_text(lanes[k / 2], domain[k]) + " to " +
                lane_text(lanes[k / 2], domain[k + 1]);
    return text;
}

std::string limit_text(const Family& family) {
    std::ostringstream text;
    if (const double limit = full_profile_limit(family); limit >= 0) text << limit;
    return text.str();
}

std::string table(const std::regex& filter) {
    std::ostringstream out;
    out << "| family | ulp | at | result | estimate | exact | here | arguments tried | limit |\n"
           "|:---|---:|:---|:---|:---|---:|---:|---:|---:|\n";
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        if (!std::regex_search(family.name(), filter)) continue;
        out << "| " << family.name() << " | ";
        if (!has_oracle(family)) {
            out << "not measured | | | | | | | |\n";
            continue;
        }
        const Measured here = measure(described);
        if (const Accuracy& line = described.accuracy; line.stand_in != StandIn::none) {
            Measured any{.worst = line.worst, .got = ByDescription(described, line.stand_in)(line.worst)};
            any.ulp = error_of(family, any.worst, any.got);
            const Measured exact = measure_stand_ins(described, std::array{StandIn::exact});
            out << line_text(any.ulp) << " | " << at_text(family, any) << " | " << name_of(line.stand_in) << " | "
                << line_text(exact.ulp) << " | " << line_text(here.ulp);
        } else {
            out << line_text(here.ulp) << " | " << at_text(family, here) << " | | | ";
        }
        out << " | " << here.inputs << domain_text(described) << " | " << limit_text(family) << " |\n";
    }
    return out.str();
}

std::string estimates_text() {
    const auto [reciprocal, root] = estimate_errors({});
    char text[200];
    std::snprintf(text, sizeof text, "%.3f * 2^-12 (`vrcpps`) and %.3f * 2^-12 (`vrsqrtps`)", reciprocal * 0x1p12,
                  root * 0x1p12);
    return text;
}

std::string remarks() {
    std::string text;
    std::map<std::string, std::string> families;  // by remark
    for (const DescribedFamily& described : described_families())
        if (const char* remark = described.accuracy.remark) {
            std::string& names = families[remark];
            names += (names.empty() ? "`" : ", `") + described.family->name() + "`";
        }
    for (const auto& [remark, names] : families) text += "- " + names + ": " + remark + ".\n";
    return text;
}

constexpr const char* introduction = R"(# Accuracy

Written by `./run accuracy`. Errors are in ulp of the result's type at the exact value, measured on the built library's
kernels at width 16 against MPFR; the other widths give the same bits. An exact family has 0.

Arguments are stratified: every exponent, powers of two and their neighbours, arguments near 1, subnormals, special
values, the neighbours of each threshold of the method, and random ones from 2^-6 to 2^7. The worst case that a family's
registration claims is among them; for families of one float it is the worst of all 2^32 arguments
(`./run accuracy --exhaustive FAMILY`). A test fails where a family exceeds its claim, and where the claimed worst case
no longer gives the claimed error. Where magnitudes stand beside the number of arguments tried, the family leaves its
results for others as they come.

The limit is that of the compute language's full profile for the operation, and for its half_ functions at the tier
`_half`. It sets none for native_ functions.

Some families start from the processor's approximate reciprocal or reciprocal root, whose bits are each maker's own. All
that is promised of them is a relative error of at most 1.5 * 2^-12. The figure of such a family is a bound for any
processor: the largest error that a search has found over approximations computed in software that are allowed. The
column "estimate" tells the one that gave it: `low` and `high` are as far below and above the exact value as allowed,
`alternating` takes either by the last bit of the argument, `scattered` lies anywhere between, by the argument's
pattern, and `exact` is rounded to nearest, as emulators do. The test repeats the worst case with that one, and so
passes or fails alike on every machine. The next two columns are the largest errors over stratified arguments with exact
estimates, and on the processor here, whose own are up to )";

std::string document() {
    return introduction + estimates_text() + " off.\n\n" + table(std::regex("")) + "\n## Remarks\n\n" + remarks();
}

int exhaustive(const std::string& name, const std::string& file) {
    const DescribedFamily* described = find_described(name);
    if (!described) throw std::runtime_error("no family " + name + " is described");
    const Family& family = *described->family;
    const Exhaustive errors = measure_all(*described, [&](double part) {
        std::cerr << "\r" << name << " " << static_cast<int>(100 * part) << " %" << std::flush;
    });
    std::cerr << "\r";
    file.empty() ? void(std::cout << plot(errors)) : write_file(file, plot(errors));
    char ulp[32];
    std::snprintf(ulp, sizeof ulp, "%.6f", errors.measured.ulp);
    std::cout << name << ": " << ulp << " ulp at " << lanes_text(family.arguments, errors.measured.worst) << ", result "
              << lanes_text(family.outputs(), errors.measured.got) << "\n";
    return 0;
}

void search_all(const std::regex& filter, int effort) {
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        if (!std::regex_search(family.name(), filter) || !has_oracle(family)) continue;
        const auto print = [&](const Measured& found) {
            std::printf("%s: %.6g ulp, %s, at %s, result %s, of %llu tried\n", family.name().c_str(), found.ulp,
                        std::string(name_of(found.stand_in)).c_str(), lanes_text(family.arguments, found.worst).c_str(),
                        lanes_text(family.outputs(), found.got).c_str(), static_cast<unsigned long long>(found.inputs));
            std::fflush(stdout);
        };
        search(described, effort, print);
    }
}

int run(int argc, char** argv) {
    CLI::App app{"Each family's largest error over stratified arguments, as a table."};
    std::string markdown, filter, family, plot_file, hashes = TUVO_HASHES;
    std::vector<std::string> search;
    app.add_option("--filter", filter, "regular expression for names of families");
    app.add_option("--markdown", markdown, "writes the document to this file");
    CLI::Option* exhaustive_run = app.add_option(
        "--exhaustive", family, "runs all 2^32 arguments of a family of one float and shows the errors by exponent");
    app.add_option("--plot", plot_file, "with --exhaustive: file for the errors by exponent")->needs(exhaustive_run);
    app.add_option(
           "--search", search,
           "regular expression, and an effort from 1 up: climbs to large errors of the families named, over every "
           "approximation that stands in for the processor's own")
        ->expected(1, 2);
    CLI::Option* renew =
        app.add_option("--hashes", hashes, "renews the hashes of the results that a test compares")->expected(0, 1);
    CLI11_PARSE(app, argc, argv);
    if (renew->count() > 0)
        write_file(hashes.empty() ? TUVO_HASHES : hashes, hash_file());
    else if (!search.empty())
        search_all(std::regex(search[0]), search.size() > 1 ? std::stoi(search[1]) : 1);
    else if (!family.empty())
        return exhaustive(family, plot_file);
    else if (markdown.empty())
        std::cout << table(std::regex(filter));
    else
        write_file(markdown, document());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "tuvo-accuracy: " << error.what() << "\n";
        return 1;
    }
}

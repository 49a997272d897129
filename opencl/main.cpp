// tuvo-opencl: runs the built-ins through the OpenCL host interface. --help tells the rest.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>

#include "opencl/check.hpp"

namespace {

using namespace tuvo::opencl;

std::string read_text(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

constexpr const char* part = R"(
## In an OpenCL runtime

How many times as fast the library's built-ins are as PoCL's own, in one program in PoCL; by `./run opencl times`, and with
`./run opencl --avx times` as if the processor had AVX and nothing newer. PoCL's own may use all that the processor named has.
)";

/// Puts a section into the document's part about runtimes, in the place of the one with that heading if there is one.
void renew_section(const std::string& file, const std::string& heading, const std::string& text) {
    std::string document = read_text(file);
    if (document.find(part) == std::string::npos) document += part;
    const std::size_t start = document.find("\n" + heading + "\n", document.find(part));
    if (start != std::string::npos) document.erase(start, document.find("\n### ", start + 1) - start);
    document += "\n" + heading + "\n\n" + text;
    std::ofstream out(file);
    out << document;
    if (!out.flush()) throw std::runtime_error("cannot write " + file);
}

int perform(int count, char** words) {
    CLI::App app{"Runs the library's built-ins through the OpenCL host interface of the runtime at hand."};
    app.require_subcommand(1);
    std::string filter, markdown;
    std::vector<std::string> files;
    app.add_subcommand("devices", "names the device");
    CLI::App* compile = app.add_subcommand("compile", "compiles OpenCL C files");
    compile->add_option("FILE", files)->required();
    CLI::App* check = app.add_subcommand("check",
                                         "compares every built-in, at all widths, with its kernel and with exact "
                                         "values, within the family's accuracy line");
    check->add_option("--filter", filter, "regular expression for names of families: ^logf$");
    CLI::App* times = app.add_subcommand("times", "times the built-ins beside the runtime's own, in one run");
    times->add_option("--filter", filter, "regular expression for family and width: ^logf/8$");
    times->add_option("--markdown", markdown,
                      "document whose section about this processor is renewed; the standard output, if none is named");
    CLI11_PARSE(app, count, words);

    const Host host = open_host();
    std::cout << describe(host) << std::endl;
    for (const std::string& file : files) {
        build(host, read_text(file));
        std::cout << file << ": compiles\n";
    }
    if (check->parsed()) return check_families(host, std::regex(filter)) == 0 ? 0 : 1;
    if (times->parsed() && markdown.empty()) time_families(host, std::regex(filter), std::cout);
    if (times->parsed() && !markdown.empty()) {
        std::ostringstream table;
        time_families(host, std::regex(filter), table);
        renew_section(markdown, "### " + processor(host), table.str());
    }
    return 0;
}

}  // namespace

int main(int count, char** words) {
    try {
        return perform(count, words);
    } catch (const std::exception& error) {
        std::cerr << "tuvo-opencl: " << error.what() << "\n";
        return 2;
    }
}

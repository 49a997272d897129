// tuvo-builtins: writes the built-ins of OpenCL C as a module for a runtime to link.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>

#include "builtins/write_ir.hpp"
#include "frame/description/families.hpp"

namespace {

using namespace tuvo;
using namespace tuvo::builtins;

/// Families of the library, in the table's order.
std::vector<const Family*> built_families(const std::vector<std::string>& wanted) {
    for (const std::string& name : wanted)
        if (!find_described(name)) throw std::runtime_error("the library has no family " + name);
    std::vector<const Family*> built;
    for (const DescribedFamily& described : described_families())
        if (wanted.empty() || std::ranges::find(wanted, described.family->name()) != wanted.end())
            built.push_back(described.family);
    return built;
}

void write(const std::string& file, const std::string& text) {
    if (file == "-") {
        std::cout << text;
        return;
    }
    std::ofstream out(file, std::ios::binary);
    out << text;
    if (!out.flush()) throw std::runtime_error("can't write " + file);
}

int run(int count, char** words) {
    CLI::App app{"Writes the built-ins of OpenCL C as a module in LLVM's language, each by a call of a kernel."};
    ModuleOptions options;
    std::string file = "-";
    std::vector<std::string> families;
    bool names_only = false;
    app.add_option("--out", file, "file to write; - for the standard output")->capture_default_str();
    app.add_option("--prefix", options.abi.prefix, "in front of every built-in's name, for runtimes that rename them");
    app.add_option("--abi", options.abi.target,
                   "how names are mangled and values passed: clang's rules for that target")
        ->transform(
            CLI::CheckedTransformer(std::map<std::string, Target>{{"spir", Target::spir}, {"x86-64", Target::x86_64}}));
    app.add_option("--register-bits", options.abi.register_bits,
                   "with x86-64: the widest vector that goes in a register; 256 with AVX, 512 with AVX-512")
        ->check(CLI::IsMember({128, 256, 512}))
        ->capture_default_str();
    app.add_option("--plain", options.plain,
                   "the tier of names without native_ or half_; where there is none, the default")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Plain>{
            {"default", Plain::standard}, {"rm", Plain::relaxed}, {"native", Plain::native}}));
    app.add_option("--pointers", options.abi.pointers, "typed for LLVM 14 and 15, opaque for 15 and later")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, Pointers>{{"typed", Pointers::typed}, {"opaque", Pointers::opaque}}));
    app.add_option(
           "--variants", options.variants,
           "what keeps the kernels for several values until the loop vectoriser has run: a list, calls, nothing")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Variants>{
            {"listed", Variants::listed}, {"called", Variants::called}, {"none", Variants::none}}));
    app.add_flag("--names", names_only, "write the symbols instead, one a line with the built-in that it stands for");
    app.add_option("family", families, "families that the library has; all if none is named");
    CLI11_PARSE(app, count, words);

    std::ostringstream text;
    if (names_only)
        for (const Builtin& builtin : catalogue(built_families(families), options.plain))
            text << symbol(builtin, options.abi) << " " << builtin.signature() << "\n";
    else
        write_module(text, built_families(families), options);
    write(file, text.str());
    return 0;
}

}  // namespace

int main(int count, char** words) {
    try {
        return run(count, words);
    } catch (const std::exception& error) {
        std::cerr << "tuvo-builtins: " << error.what() << "\n";
        return 1;
    }
}

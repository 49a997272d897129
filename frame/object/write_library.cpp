// The generator: writes the library's assembly text and manifests. --help tells the rest.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "frame/description/families.hpp"
#include "frame/generator/compile.hpp"
#include "frame/generator/emit.hpp"
#include "frame/generator/layout.hpp"
#include "frame/object/manifest.hpp"
#include "frame/object/rare_tables.hpp"

namespace {

using namespace tuvo;

void write_file(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush()) throw std::runtime_error("can't write " + path.string());
}

/// A family's six kernels and its constant blocks. Appends the blocks' symbols to `block_symbols`.
std::string family_text(const DescribedFamily& described, std::vector<std::string>& block_symbols) {
    const Program program = record_family(described);
    const BlockLayout blocks = lay_out_blocks(program, described.family->name());
    std::ostringstream text;
    text << "# " << described.family->name() << "\n    .text\n";
    for (int width : widths) {
        const Kernel kernel = lay_out(program, blocks, *described.family, width, export_name(*described.family, width));
        emit(text, kernel, compile(kernel), blocks);
    }
    write_blocks(text, program, blocks);
    for (const ConstBlock& block : blocks.blocks) block_symbols.push_back(block.symbol);
    return text.str();
}

/// The array of pointers to the blocks. The loader fills it in before any kernel runs, and then it is read-only.
std::string pointer_table(const std::vector<std::string>& symbols) {
    std::ostringstream text;
    text << "    .section .data.rel.ro, \"aw\"\n    .balign 8\n";
    for (const std::string& symbol : symbols)
        text << "    .hidden " << symbol << "_slot\n    .globl " << symbol << "_slot\n"
             << symbol << "_slot:\n    .quad " << symbol << "\n";
    return text.str();
}

int generate(const std::filesystem::path& directory, const std::set<std::string>& wanted) {
    for (const std::string& name : wanted)
        if (!find_described(name)) throw std::runtime_error("no family " + name + " is described; see --families");
    std::filesystem::create_directories(directory);
    std::vector<std::string> block_symbols;
    std::vector<const Family*> built;
    std::ostringstream library, tables, json, declarations;
    library << "# The library, family by family.\n    .intel_syntax noprefix\n";
    for (const DescribedFamily& described : described_families()) {
        const std::string name = described.family->name();
        if (!wanted.empty() && !wanted.contains(name)) continue;
        write_file(directory / (name + ".s"), family_text(described, block_symbols));
        library << "    .include \"" << name << ".s\"\n";
        built.push_back(described.family);
    }
    write_rare_tables(tables, rare_tables());
    write_file(directory / "rare_tables.s", tables.str());
    library << pointer_table(block_symbols) << "    .section .note.GNU-stack,\"\",@progbits\n";
    write_file(directory / "library.s", library.str());
    write_exports_json(json, built);
    write_file(directory / "exports.json", json.str());
    write_exports_ll(declarations, built);
    write_file(directory / "exports.ll", declarations.str());
    return 0;
}

int status() {
    std::size_t built = 0;
    std::string missing;
    std::cout << "built:\n";
    for (const Family& family : families()) {
        if (!find_described(family.name())) {
            missing += "  " + family.name() + "\n";
            continue;
        }
        std::cout << "  " << family.name() << "\n";
        ++built;
    }
    std::cout << "missing:\n"
              << missing << built << " of " << families().size() << " families built, " << 6 * built << " of "
              << 6 * families().size() << " exports\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Writes the library's assembly text and manifests."};
    std::string directory;
    std::vector<std::string> wanted;
    bool show_status = false, names = false;
    CLI::Option* out = app.add_option("--out", directory, "folder to write to: all described families, or those named");
    app.add_option("FAMILY", wanted, "families to write")->needs(out);
    app.add_flag("--status", show_status, "which families are built and which are missing")->excludes(out);
    app.add_flag("--families", names, "names of the described families, one a line")->excludes(out);
    app.require_option(1, 0);
    CLI11_PARSE(app, argc, argv);
    try {
        if (show_status) return status();
        if (!names) return generate(directory, std::set<std::string>(wanted.begin(), wanted.end()));
        for (const DescribedFamily& described : described_families()) std::cout << described.family->name() << "\n";
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "tuvo-generate: " << error.what() << "\n";
        return 1;
    }
}

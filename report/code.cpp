#include "report/code.hpp"

#include <cctype>
#include <fstream>
#include <regex>
#include <sstream>
#include <vector>

namespace tuvo::report {
namespace {

std::string read(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The function of that name, from the start of its line (or of the template's line above) to the brace that ends it.
std::string function_text(const std::string& source, const std::string& name) {
    const std::regex head("(^|\\n)((template [^\\n]*\\n)?[A-Za-z][^\\n;=]*\\b" + name + "\\([^;{}]*\\{)");
    std::smatch found;
    if (!std::regex_search(source, found, head)) return "";
    const std::size_t start = static_cast<std::size_t>(found.position(2));
    const std::size_t line_end = source.find('\n', start), end = source.find("\n}", start);
    const bool one_line = source.find('}', start) < line_end && found[3].length() == 0;
    return source.substr(start, (one_line ? line_end : end + 2) - start);
}

}  // namespace

std::string description_text(const std::filesystem::path& sources, const Family& family) {
    const std::string quoted = '"' + family.name() + '"';
    for (const auto& folder : std::filesystem::directory_iterator(sources)) {
        if (!folder.is_directory()) continue;
        for (const auto& file : std::filesystem::directory_iterator(folder)) {
            if (file.path().extension() != ".cpp") continue;
            const std::string source = read(file.path());
            const std::size_t families = source.find("const Describe families[]");
            if (families == std::string::npos) continue;
            const std::size_t entry = source.find(quoted, families);
            if (entry == std::string::npos) continue;
            const std::size_t described = source.find("describe(", entry) + 9;
            std::size_t end = described;
            while (std::isalnum(static_cast<unsigned char>(source[end])) || source[end] == '_') ++end;
            const std::string text = function_text(source, source.substr(described, end - described));
            if (text.empty()) return "";
            return "// " + folder.path().filename().string() + "/" + file.path().filename().string() + "\n" + text;
        }
    }
    return "";
}

std::string kernel_text(const std::filesystem::path& generated, const Family& family, int width) {
    std::istringstream in(read(generated / (family.name() + ".s")));
    const std::string label = export_name(family, width) + ":";
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line == label) {
            inside = true;
            text = line + "\n";
            continue;
        }
        if (!inside || line.starts_with("    .cfi") || line.starts_with(".L")) continue;
        text += line + "\n";
        if (line == "    ret") break;
    }
    return text;
}

}  // namespace tuvo::report

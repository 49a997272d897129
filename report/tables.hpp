// The figures of docs/accuracy.md and docs/performance.md, as the pages quote them.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tuvo::report {

/// A table of a Markdown document: rows by their first cell, cells by the heading of their column.
struct Table {
    std::vector<std::string> headings;
    std::map<std::string, std::map<std::string, std::string>> rows;

    /// The cell, or "" where there is none.
    std::string cell(const std::string& row, const std::string& heading) const;
};

/// Reads the first table whose heading line begins with that cell. Throws std::runtime_error if the document can't be read
/// or has no such table.
Table read_table(const std::filesystem::path& document, const std::string& first_heading);

}  // namespace tuvo::report

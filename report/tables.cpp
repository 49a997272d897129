#include "report/tables.hpp"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tuvo::report {
namespace {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::vector<std::string> cells_of(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream in(line.substr(1));
    for (std::string cell; std::getline(in, cell, '|');) cells.push_back(trimmed(cell));
    return cells;
}

}  // namespace

std::string Table::cell(const std::string& row, const std::string& heading) const {
    const auto found = rows.find(row);
    if (found == rows.end()) return "";
    const auto cell = found->second.find(heading);
    return cell == found->second.end() ? "" : cell->second;
}

Table read_table(const std::filesystem::path& document, const std::string& first_heading) {
    std::ifstream in(document);
    if (!in) throw std::runtime_error("can't read " + document.string());
    Table table;
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with("|")) {
            if (!table.headings.empty()) break;
            continue;
        }
        const std::vector<std::string> cells = cells_of(line);
        if (table.headings.empty()) {
            if (!cells.empty() && cells[0] == first_heading) table.headings = cells;
        } else if (!cells.empty() && cells[0].find_first_not_of(":-") != std::string::npos) {
            for (std::size_t k = 0; k < cells.size() && k < table.headings.size(); ++k)
                table.rows[cells[0]][table.headings[k]] = cells[k];
        }
    }
    if (table.headings.empty())
        throw std::runtime_error(document.string() + " has no table with the first heading '" + first_heading + "'");
    return table;
}

}  // namespace tuvo::report

#include "client/demos/csv.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "client/failure.hpp"

namespace tuvo::client {
namespace {

std::vector<std::string> cells(std::string line) {
    if (line.ends_with('\r')) line.pop_back();
    std::vector<std::string> result;
    std::istringstream stream(line);
    for (std::string cell; std::getline(stream, cell, ',');) result.push_back(cell);
    return result;
}

}  // namespace

const std::vector<double>& Table::column(const std::string& name) const {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) throw Failure("the table has no column '" + name + "'");
    return columns[static_cast<std::size_t>(found - names.begin())];
}

Table read_csv(const std::string& path, Labels labels) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) throw Failure("cannot read '" + path + "': " + std::strerror(errno));
    Table table{cells(line), {}};
    const std::size_t first = labels == Labels::first && !table.names.empty() ? 1 : 0;
    if (first == 1) {
        table.label_name = table.names[0];
        table.names.erase(table.names.begin());
    }
    table.columns.resize(table.names.size());
    for (int number = 2; std::getline(file, line); ++number) {
        const std::vector<std::string> row = cells(line);
        const std::string place = path + ":" + std::to_string(number) + ": ";
        if (row.size() != table.names.size() + first)
            throw Failure(place + std::to_string(table.names.size() + first) + " values are wanted, not " +
                          std::to_string(row.size()));
        if (first == 1) table.labels.push_back(row[0]);
        for (std::size_t k = first; k < row.size(); ++k) {
            char* end = nullptr;
            table.columns[k - first].push_back(std::strtod(row[k].c_str(), &end));
            if (end == row[k].c_str() || *end != '\0') throw Failure(place + "'" + row[k] + "' is not a number");
        }
    }
    if (table.rows() == 0) throw Failure("'" + path + "' has no rows");
    return table;
}

void write_csv(const Table& table, const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::error_code ignored;  // a folder that can't be made shows when the file is opened
    if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
    std::ofstream file(path);
    const bool labelled = !table.labels.empty();
    file << table.label_name;
    for (std::size_t k = 0; k < table.names.size(); ++k) file << (k || labelled ? "," : "") << table.names[k];
    for (std::size_t row = 0; row < table.rows(); ++row) {
        file << "\n";
        if (labelled) file << table.labels[row];
        for (std::size_t k = 0; k < table.columns.size(); ++k)
            file << (k || labelled ? "," : "") << table.columns[k][row];
    }
    file << "\n";
    if (!file.flush()) throw Failure("cannot write '" + path + "': " + std::strerror(errno));
}

}  // namespace tuvo::client

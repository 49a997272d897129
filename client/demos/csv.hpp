// Tables of numbers with a line of names on top, and perhaps with a label for each row.
#pragma once

#include <string>
#include <vector>

namespace tuvo::client {

struct Table {
    std::vector<std::string> names;
    std::vector<std::vector<double>> columns;
    std::vector<std::string> labels{};  ///< of rows; empty or one each
    std::string label_name{};           ///< what stands above them

    std::size_t rows() const { return columns.empty() ? 0 : columns[0].size(); }
    /// The column of that name. Throws `Failure` if there is none.
    const std::vector<double>& column(const std::string& name) const;
};

/// Whether the first value of each line is a label.
enum class Labels { none, first };

/// Reads values separated by commas. Throws `Failure`, with the line, if the file can't be read or isn't such a table.
Table read_csv(const std::string& path, Labels labels = Labels::none);
/// Writes it likewise, with six significant digits.
void write_csv(const Table& table, const std::string& path);

}  // namespace tuvo::client

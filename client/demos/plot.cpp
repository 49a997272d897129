#include "client/demos/plot.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "client/failure.hpp"

namespace tuvo::client {
namespace {

constexpr std::size_t most_columns = 800;

/// Within single quotes of gnuplot's language.
std::string quoted(std::string text) {
    for (std::size_t k = 0; (k = text.find('\'', k)) != std::string::npos; k += 2) text.insert(k, 1, '\'');
    std::erase_if(text, [](char c) { return c == '\n' || c == '\r'; });
    return "'" + text + "'";
}

/// Position in kilobytes, lowest, mean and highest value of each column.
std::string data_of(const Plot& plot) {
    const std::size_t count = plot.values.size(), columns = std::min(count, most_columns);
    std::ostringstream out;
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t first = column * count / columns, last = (column + 1) * count / columns;
        const auto begin = plot.values.begin() + static_cast<std::ptrdiff_t>(first);
        const auto end = plot.values.begin() + static_cast<std::ptrdiff_t>(last);
        const auto [low, high] = std::minmax_element(begin, end);
        double sum = 0;
        for (auto value = begin; value != end; ++value) sum += *value;
        const double middle = (static_cast<double>(first + last) / 2) * static_cast<double>(plot.step);
        out << std::min(middle, static_cast<double>(plot.length)) / 1024 << " " << *low << " "
            << sum / static_cast<double>(last - first) << " " << *high << "\n";
    }
    return out.str();
}

}  // namespace

void draw_plot(const Plot& plot, const std::string& file) {
    std::ostringstream script;
    script << "set terminal pngcairo size 1000,420 font 'sans,11'\nset output " << quoted(file) << "\nset title "
           << quoted(plot.title) << " noenhanced\nset xlabel 'KiB'\nset ylabel 'bits per byte'\nset yrange [0:8.4]\nset xrange [0:"
           << static_cast<double>(plot.length) / 1024
           << "]\nset border 3\nset tics nomirror out\nset grid ytics lc rgb '#e0e0e0'\nunset key\n$data << E\n"
           << data_of(plot) << "E\nplot $data using 1:2:4 with filledcurves lc rgb '#c8d8ea', $data using 1:3 with lines lw 1.5 lc "
           << "rgb '#2060a0', " << plot.level << " with lines dt 2 lc rgb '#b04040'\n";
    std::filesystem::remove(file);
    FILE* gnuplot = popen("gnuplot", "w");
    if (!gnuplot) throw Failure("can't run gnuplot; is it installed (gnuplot-nox)?");
    const std::string text = script.str();
    const bool written = std::fwrite(text.data(), 1, text.size(), gnuplot) == text.size();
    if (pclose(gnuplot) != 0 || !written || !std::filesystem::exists(file))
        throw Failure("gnuplot has not drawn '" + file + "'; is it installed (gnuplot-nox)?");
}

}  // namespace tuvo::client

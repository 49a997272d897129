#include "report/plots.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tuvo::report {
namespace {

/// Powers of two at round distances, on both sides.
std::string tics(Lane lane) {
    std::ostringstream out;
    const char* separator = "";
    for (int exponent : {-16, -8, 0, 8, 16, 24, lane == Lane::f32 ? 127 : 1023}) {
        const double position = axis_position(lane, std::exp2(exponent));
        for (const char* sign : {"-", ""}) {
            out << separator << '"' << sign << (exponent ? "2^{" + std::to_string(exponent) + "}" : "1") << "\" " << sign << position;
            separator = ", ";
        }
    }
    return out.str();
}

std::string script_of(const Plot& plot) {
    double most = 0.5;
    for (const Bin& bin : plot.bins) most = std::max(most, bin.worst);
    const bool tall = most > 40;
    std::ostringstream out;
    out << "set output '" << plot.file.string() << "'\nset title '" << plot.title << "' noenhanced\nset xtics (" << tics(plot.lane)
        << ")\nset xrange [" << plot.bins.front().position - 0.5 << ":" << plot.bins.back().position + 0.5 << "]\n"
        << (tall ? "set logscale y\nset format y '10^{%T}'\nset yrange [0.1:" : "unset logscale y\nset format y '%g'\nset yrange [0:")
        << (tall ? most * 2 : most * 1.15) << "]\nunset arrow\n";
    for (double threshold : plot.thresholds) {
        for (double sign : {-1.0, 1.0}) {
            const double position = axis_position(plot.lane, sign * std::abs(threshold));
            if (position < plot.bins.front().position || position > plot.bins.back().position) continue;
            out << "set arrow from " << position << ", graph 0 to " << position << ", graph 1 nohead lc rgb '#a0a0a0' dt 3\n";
        }
    }
    if (plot.limit > 0 && plot.limit < most * 1.15)
        out << "set arrow from graph 0, first " << plot.limit << " to graph 1, first " << plot.limit
            << " nohead lc rgb '#b04040' dt 2\n";
    out << "plot '-' using 1:2 with steps lc rgb '#2060a0' title 'largest', '-' using 1:2 with steps lc rgb '#e09030' title 'median'\n";
    for (const bool worst : {true, false}) {
        for (const Bin& bin : plot.bins) out << bin.position << " " << (worst ? bin.worst : bin.typical) << "\n";
        out << "e\n";
    }
    return out.str();
}

}  // namespace

void draw(const std::vector<Plot>& plots) {
    if (plots.empty()) return;
    FILE* gnuplot = popen("gnuplot", "w");
    if (!gnuplot) throw std::runtime_error("can't run gnuplot");
    std::string script =
        "set terminal svg size 900,260 dynamic font 'sans-serif,13' background '#ffffff'\nset encoding utf8\n"
        "set grid ytics lc rgb '#e0e0e0'\nset border 3\nset tics nomirror out\nset ylabel 'ulp'\nset key outside top right horizontal\n";
    for (const Plot& plot : plots) script += script_of(plot);
    const bool written = std::fwrite(script.data(), 1, script.size(), gnuplot) == script.size();
    if (pclose(gnuplot) != 0 || !written) throw std::runtime_error("gnuplot failed");
    for (const Plot& plot : plots)
        if (!std::filesystem::exists(plot.file)) throw std::runtime_error("gnuplot has drawn no " + plot.file.string());
}

}  // namespace tuvo::report

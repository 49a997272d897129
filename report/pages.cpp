#include "report/pages.hpp"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "report/code.hpp"
#include "report/samples.hpp"

namespace tuvo::report {
namespace {

std::string escaped(const std::string& text) {
    std::string result;
    for (char c : text) {
        switch (c) {
        case '<': result += "&lt;"; break;
        case '>': result += "&gt;"; break;
        case '&': result += "&amp;"; break;
        default: result += c;
        }
    }
    return result;
}

std::string page(const std::string& title, const std::string& body) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" + escaped(title) +
           "</title>\n<link rel=\"stylesheet\" href=\"style.css\">\n</head>\n<body>\n" + body + "</body>\n</html>\n";
}

/// A table in a box of its own, which scrolls where the screen is narrow.
std::string table(const std::vector<std::string>& headings, const std::vector<std::vector<std::string>>& rows) {
    std::ostringstream out;
    out << "<div class=\"wide\"><table>\n<tr>";
    for (const std::string& heading : headings) out << "<th>" << heading << "</th>";
    out << "</tr>\n";
    for (const std::vector<std::string>& row : rows) {
        out << "<tr>";
        for (const std::string& cell : row) out << "<td>" << cell << "</td>";
        out << "</tr>\n";
    }
    out << "</table></div>\n";
    return out.str();
}

std::string code(const std::string& text) { return "<code>" + escaped(text) + "</code>"; }

std::string type_text(Lane lane, int width) { return std::string(lane_name(lane)) + (width == 1 ? "" : std::to_string(width)); }

std::string types_text(const std::vector<Lane>& lanes, int width) {
    std::string text;
    for (Lane lane : lanes) text += (text.empty() ? "" : ", ") + type_text(lane, width);
    return text;
}

/// "ymm0, ymm1", counting on from `next`.
std::string registers_text(const std::vector<Lane>& lanes, int width, const char* integer) {
    std::string text;
    int next = 0;
    for (Lane lane : lanes) {
        if (width == 1 && !is_floating(lane)) {
            text += (text.empty() ? "" : ", ") + std::string(integer);
            continue;
        }
        for (int bits : part_bits(lane, width)) text += (text.empty() ? "" : ", ") + std::string(bits == 256 ? "ymm" : "xmm") + std::to_string(next++);
    }
    return text;
}

/// What a call looks like at each width.
std::string signatures(const Family& family) {
    std::vector<std::vector<std::string>> rows;
    for (int width : widths) {
        const bool memory = call_form(family, width) == Form::memory;
        std::string arguments = types_text(family.arguments, width);
        if (family.out) arguments += ", " + type_text(*family.out, width) + "*";
        const bool packed = width == 1 && family.results.size() == 2;
        rows.push_back({code(export_name(family, width)),
                        code(types_text(family.results, width) + " (" + arguments + ")"),
                        memory ? "stack" : registers_text(family.arguments, width, "edi, esi or rdi"),
                        memory ? "buffer at rdi" : packed ? (is_floating(family.element) ? "xmm0, packed" : "rax, packed") : registers_text(family.results, width, "eax or rax")});
    }
    return table({"symbol", "call", "arguments in", "results in"}, rows);
}

double number(const std::string& text) { return std::strtod(text.c_str(), nullptr); }

std::string peer_cell(const Report& report, const Family& family, int width, const char* peer) {
    const std::string cell = report.performance.cell(short_name(family, width), peer);
    return cell == "-" ? "" : cell;
}

/// Bars that tell how many times as fast each width is as the peers. One is the length of a mark on the axis.
std::string speed_bars(const Report& report, const Operation& operation) {
    constexpr const char* peers[] = {"1 ulp", "3.5 ulp", "libm", "xsimd", "Eigen"};
    std::ostringstream out;
    for (const DescribedFamily* described : operation.families) {
        for (int width : widths) {
            std::string bars;
            for (const char* peer : peers) {
                const std::string cell = peer_cell(report, *described->family, width, peer);
                if (cell.empty()) continue;
                const double length = std::min(100.0, number(cell) * 6);
                bars += "<div class=\"bar\"><span class=\"label\">" + std::string(peer) + "</span><span class=\"track\"><span class=\"fill\" style=\"width:" +
                        std::to_string(static_cast<int>(length)) + "%\"></span><span class=\"one\"></span></span><span class=\"figure\">" + cell + "</span></div>\n";
            }
            if (!bars.empty()) out << "<h4>" << code(short_name(*described->family, width)) << "</h4>\n" << bars;
        }
    }
    return out.str();
}

std::string accuracy_rows(const Report& report, const Operation& operation) {
    std::vector<std::vector<std::string>> rows;
    for (const DescribedFamily* described : operation.families) {
        std::vector<std::string> row;
        for (const std::string& heading : report.accuracy.headings) {
            const std::string cell = report.accuracy.cell(described->family->name(), heading);
            row.push_back(escaped(heading == report.accuracy.headings[0] ? described->family->name() : cell));
        }
        rows.push_back(row);
    }
    std::vector<std::string> headings;
    for (const std::string& heading : report.accuracy.headings) headings.push_back(escaped(heading));
    return table(headings, rows);
}

std::string special_table(const Family& family) {
    std::vector<std::vector<std::string>> rows;
    for (const SpecialValue& value : special_values(family)) {
        std::vector<std::string> row;
        for (const auto* texts : {&value.arguments, &value.outputs})
            for (const std::string& text : *texts) row.push_back(escaped(text));
        rows.push_back(row);
    }
    std::vector<std::string> headings;
    for (std::size_t a = 0; a < family.arguments.size(); ++a)
        headings.push_back(family.arguments.size() == 1 ? "argument" : "argument " + std::to_string(a + 1));
    for (std::size_t k = 0; k < family.results.size(); ++k) headings.push_back("result");
    if (family.out) headings.push_back("stored");
    return table(headings, rows);
}

std::string type_heading(const Family& family) {
    const std::string_view tier = tier_suffix(family.tier);
    return code(family.name()) + (tier.empty() ? ", default tier" : "");
}

}  // namespace

std::vector<Operation> operations() {
    std::vector<Operation> list;
    for (const DescribedFamily& described : described_families()) {
        const auto found = std::ranges::find(list, described.family->operation, &Operation::name);
        (found == list.end() ? list.emplace_back(described.family->operation, std::vector<const DescribedFamily*>{}) : *found)
            .families.push_back(&described);
    }
    for (Operation& operation : list)
        std::ranges::stable_sort(operation.families, {}, [](const DescribedFamily* described) {
            return std::pair(described->family->element == Lane::f64, described->family->tier);
        });
    return list;
}

std::string page_name(const Operation& operation) { return operation.name + ".html"; }
std::string plot_name(const Family& family) { return family.name() + ".svg"; }

std::string index_page(const Report& report, const std::vector<Operation>& operations) {
    std::ostringstream body;
    body << "<h1>tuvo</h1>\n<p>Short-vector math kernels for x86-64 processors with AVX. One line a family; each operation "
            "has a page. Errors are the largest found, in ulp, beside the limit of the compute language's full profile; speed is how "
            "many times as fast a call of the widest kernel is as SLEEF's entries of 1 and 3.5 ulp and the C library's scalar "
            "function, in one run.</p>\n";
    std::vector<std::vector<std::string>> rows;
    for (const Operation& operation : operations) {
        for (const DescribedFamily* described : operation.families) {
            const Family& family = *described->family;
            const std::string name = family.name();
            rows.push_back({"<a href=\"" + page_name(operation) + "\">" + escaped(operation.name) + "</a>", code(name),
                            "1 2 3 4 8 16", escaped(report.accuracy.cell(name, "ulp")), escaped(report.accuracy.cell(name, "limit")),
                            peer_cell(report, family, 16, "1 ulp"), peer_cell(report, family, 16, "3.5 ulp"),
                            peer_cell(report, family, 16, "libm")});
        }
    }
    body << table({"operation", "family", "widths", "largest error", "limit", "1 ulp", "3.5 ulp", "libm"}, rows);
    return page("tuvo", body.str());
}

std::string operation_page(const Report& report, const Operation& operation, const std::vector<std::string>& plotted) {
    std::ostringstream body;
    body << "<p><a href=\"index.html\">All operations</a></p>\n<h1>" << escaped(operation.name) << "</h1>\n<h2>Accuracy</h2>\n"
         << accuracy_rows(report, operation);
    for (const DescribedFamily* described : operation.families) {
        const std::string name = described->family->name();
        if (std::ranges::find(plotted, name) == plotted.end()) continue;
        body << "<figure><img src=\"" << plot_name(*described->family) << "\" alt=\"Errors of " << name
             << " over its argument\"></figure>\n";
    }
    if (const std::string bars = speed_bars(report, operation); !bars.empty())
        body << "<h2>Speed</h2>\n<p>Times as fast as SLEEF's entries of 1 and 3.5 ulp, as the C library's scalar function, and as "
                "xsimd and Eigen compiled for AVX. The mark is 1.</p>\n"
             << bars;
    std::string last;
    for (const DescribedFamily* described : operation.families) {
        const Family& family = *described->family;
        if (family.tier == Tier::standard)
            body << "<h2>" << type_heading(family) << "</h2>\n" << signatures(family) << "<h3>Special values</h3>\n" << special_table(family);
        const std::string description = description_text(report.sources, family);
        const std::string kernel = kernel_text(report.generated, family, lane_size(family.element) == 4 ? 8 : 4);
        if (description == last) continue;  // tiers that share their steps
        last = description;
        body << "<h3>" << type_heading(family) << ": description and code</h3>\n<div class=\"beside\">";
        if (!description.empty()) body << "<pre>" << escaped(description) << "</pre>";
        body << "<pre>" << escaped(kernel) << "</pre></div>\n";
    }
    return page("tuvo: " + operation.name, body.str());
}

const char* const style_sheet = R"(:root { color-scheme: light; }
body { font: 16px/1.5 system-ui, sans-serif; margin: 0 auto; max-width: 70rem; padding: 1rem; color: #202428; background: #fff; }
a { color: #1a5fa0; }
h1 { font-size: 1.8rem; margin: 0.5rem 0; }
h2 { border-bottom: 1px solid #d8dce0; margin-top: 2rem; }
h4 { margin: 0.8rem 0 0.1rem; font-weight: 500; }
.wide { overflow-x: auto; }
table { border-collapse: collapse; font-size: 0.9rem; }
th, td { border-bottom: 1px solid #e4e8ec; padding: 0.2rem 0.7rem; text-align: left; white-space: nowrap; }
th { background: #f4f6f8; }
code, pre { font: 0.85rem/1.4 ui-monospace, monospace; }
pre { background: #f6f8fa; border-radius: 4px; margin: 0; overflow-x: auto; padding: 0.7rem; }
figure { margin: 1rem 0; overflow-x: auto; }
figure img { width: 100%; min-width: 38rem; height: auto; }
.beside { display: grid; gap: 0.7rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 26rem), 1fr)); align-items: start; }
.bar { display: grid; grid-template-columns: 4rem 1fr 3.5rem; gap: 0.5rem; align-items: center; font-size: 0.85rem; max-width: 44rem; }
.track { position: relative; background: #f0f2f4; height: 0.8rem; }
.fill { position: absolute; inset: 0 auto 0 0; background: #2060a0; }
.one { position: absolute; left: 6%; top: -2px; bottom: -2px; border-left: 2px solid #e09030; }
.figure { text-align: right; }
)";

}  // namespace tuvo::report

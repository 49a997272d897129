// The report, as its readers get it: pages of a few operations, written into a folder of the test's own.
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/command.hpp"

namespace tuvo {
namespace {

/// What the regular expression's group finds, everywhere in a text.
std::set<std::string> all_matches(const std::string& text, const std::string& expression) {
    std::set<std::string> found;
    const std::regex regex(expression);
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) found.insert((*match)[1]);
    return found;
}

/// The cells of the row of a Markdown table that begins with that name.
std::vector<std::string> row_of(const std::string& document, const std::string& name) {
    std::smatch row;
    std::vector<std::string> cells;
    if (!std::regex_search(document, row, std::regex("\\n\\| " + name + " +\\|([^\\n]*)\\|\\n"))) return cells;
    std::istringstream in(row[1]);
    for (std::string cell; std::getline(in, cell, '|');)
        cells.push_back(std::regex_replace(cell, std::regex("^ +| +$"), ""));
    return cells;
}

TEST(Report, LinksHoldAndFiguresAreThoseOfTheDocuments) {
    const TemporaryFolder folder;
    const CommandResult written = run_command(folder.path, "'" TUVO_REPORT "' pages --filter '^(log|copysign)$'");
    ASSERT_EQ(written.status, 0) << written.out;
    std::string all;
    std::size_t links = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder.path / "pages")) {
        if (file.path().extension() != ".html") continue;
        const std::string page = read_text(file.path());
        all += page;
        for (const std::string& link : all_matches(page, "(?:href|src)=\"([^\"]*)\"")) {
            EXPECT_TRUE(std::filesystem::is_regular_file(folder.path / "pages" / link)) << file.path() << ": " << link;
            EXPECT_GT(std::filesystem::file_size(folder.path / "pages" / link), 500u) << link;
            ++links;
        }
    }
    EXPECT_GT(links, 8u);
    const std::string page = read_text(folder.path / "pages/log.html"), index = read_text(folder.path / "pages/index.html");
    const std::string accuracy = read_text(TUVO_DOCS "/accuracy.md"), performance = read_text(TUVO_DOCS "/performance.md");
    for (const std::string family : {"logf", "logf_native", "log"}) {
        const std::vector<std::string> cells = row_of(accuracy, family);
        ASSERT_GE(cells.size(), 2u) << family;
        std::string row = "<td>" + family + "</td>";
        for (const std::string& cell : cells) row += "<td>" + cell + "</td>";
        EXPECT_NE(page.find(row), std::string::npos) << row;
        EXPECT_NE(index.find("<td>" + cells[0] + "</td>"), std::string::npos) << family;
    }
    for (const std::string kernel : {"logf8", "log16_native"}) {
        const std::vector<std::string> cells = row_of(performance, kernel);
        ASSERT_EQ(cells.size(), 7u) << kernel;
        const std::size_t at = page.find("<code>" + kernel + "</code></h4>");
        ASSERT_NE(at, std::string::npos) << kernel;
        const std::string bars = page.substr(at, page.find("<h4>", at + 1) - at);
        for (std::size_t k = 2; k < 7; ++k)
            EXPECT_TRUE(cells[k] == "-" || bars.find("<span class=\"figure\">" + cells[k] + "</span>") != std::string::npos) << cells[k];
    }
    // The description, cut out of the sources, and the code that it became.
    EXPECT_NE(page.find("F32 log_default(F32 x) {"), std::string::npos);
    EXPECT_NE(page.find("__ocl_tuvo_e9_logf8:\n"), std::string::npos);
    EXPECT_NE(page.find("<td>-inf</td><td>nan</td>"), std::string::npos) << "the logarithm of minus infinity";
}

TEST(Report, UnfitRequestsAreRefused) {
    const TemporaryFolder folder;
    const CommandResult none = run_command(folder.path, "'" TUVO_REPORT "' pages --filter nothing");
    EXPECT_NE(none.status, 0);
    EXPECT_NE(none.out.find("no operation's name fits the filter"), std::string::npos) << none.out;
    const CommandResult docs = run_command(folder.path, "'" TUVO_REPORT "' pages --docs .");
    EXPECT_NE(docs.status, 0);
    EXPECT_NE(docs.out.find("can't read ./accuracy.md"), std::string::npos) << docs.out;
}

}  // namespace
}  // namespace tuvo

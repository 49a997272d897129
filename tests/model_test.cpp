// The machine model's figures of the generated code, kept so that a slower kernel doesn't slip in.
#include "bench/model.hpp"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tuvo {
namespace {

TEST(Model, TableIsCurrent) {
    std::ifstream file(TUVO_MODEL);
    const std::string kept{std::istreambuf_iterator<char>(file), {}};
    const std::string now = model_table();
    ASSERT_EQ(kept.substr(0, kept.find('\n')), now.substr(0, now.find('\n')))
        << "figures of another release can't be compared";
    const auto lines = [](const std::string& text) {
        std::set<std::string> set;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) set.insert(line);
        return set;
    };
    const std::set<std::string> before = lines(kept), after = lines(now);
    std::vector<std::string> differing;
    std::ranges::set_symmetric_difference(before, after, std::back_inserter(differing));
    EXPECT_EQ(differing, std::vector<std::string>{}) << "after a deliberate change of the generated code: ./run bench --model";
}

}  // namespace
}  // namespace tuvo

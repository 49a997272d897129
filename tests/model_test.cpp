// The machine model's figures of the generated code, kept so that a slower kernel doesn't slip in.
#include "bench/model.hpp"

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace tuvo {
namespace {

TEST(Model, TableIsCurrent) {
    std::ifstream file(TUVO_MODEL);
    const std::string kept{std::istreambuf_iterator<char>(file), {}};
    const std::string now = model_table();
    ASSERT_EQ(kept.substr(0, kept.find('\n')), now.substr(0, now.find('\n')))
        << "figures of another release can't be compared";
    EXPECT_EQ(kept, now) << "after a deliberate change of the generated code: ./run bench --model";
}

}  // namespace
}  // namespace tuvo

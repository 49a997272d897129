// Holds every family to its accuracy line, in both directions, and to the bits of its results.
#include "tests/accuracy.hpp"

#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/inputs.hpp"

namespace tuvo {
namespace {

class AccuracyLine : public testing::TestWithParam<std::string> {};

TEST_P(AccuracyLine, IsTheLargestErrorAndIsReached) {
    const DescribedFamily& described = *find_described(GetParam());
    const Family& family = *described.family;
    const Accuracy& line = described.accuracy;
    ASSERT_TRUE(has_oracle(family)) << "the oracle has to learn " << family.operation;

    const Measured measured = measure(described);
    EXPECT_GT(measured.inputs, 10000u);
    EXPECT_LE(measured.ulp, line.ulp) << "at " << hex(measured.worst);
    if (line.ulp == 0) {
        EXPECT_TRUE(line.worst.empty());
    } else {
        ASSERT_EQ(line.worst.size(), family.arguments.size());
        // The line is rounded up at its third or fourth digit. Another processor's reciprocal may miss the worst case.
        const double reached = error_of(family, line.worst, outputs_of(family, line.worst));
        EXPECT_GE(reached, line.ulp * (depends_on_processor(described) ? 0.9 : 0.999)) << "at " << hex(line.worst);
    }
    const double limit = full_profile_limit(family);
    EXPECT_EQ(limit >= 0 && line.ulp > limit, line.beyond_profile) << "the full profile allows " << limit;
}

std::vector<std::string> described_names() {
    std::vector<std::string> names;
    for (const DescribedFamily& described : described_families()) names.push_back(described.family->name());
    return names;
}
INSTANTIATE_TEST_SUITE_P(Families, AccuracyLine, testing::ValuesIn(described_names()),
                         [](const auto& info) { return info.param; });

TEST(Hashes, AreThoseOfTheResults) {
    const auto entries = [](std::istream& text) {
        std::map<std::string, std::string> hashes;
        for (std::string line; std::getline(text, line);) {
            std::istringstream words(line);
            std::string name, hash;
            if (words >> name >> hash && name != "#") hashes[name] = hash;
        }
        return hashes;
    };
    std::ifstream file(TUVO_HASHES);
    std::istringstream now(hash_file());
    EXPECT_EQ(entries(file), entries(now)) << "after a deliberate change of results: ./run accuracy --hashes";
}

// The other tests rest on these figures; here they meet a function whose errors are known.
TEST(Accuracy, TellsErrorsOfKnownResults) {
    const Family& log2f = *find_family("log2f");
    const std::uint64_t eight[] = {0x41000000};
    EXPECT_EQ(error_of(log2f, eight, std::array{0x40400000ul}), 0);
    EXPECT_EQ(error_of(log2f, eight, std::array{0x40400001ul}), 1);
    const Family& copysign = *find_family("copysignf");
    const std::uint64_t negative_nan[] = {0x7f800001, 0x80000000};
    EXPECT_EQ(error_of(copysign, negative_nan, std::array{0xff800001ul}), 0);
    EXPECT_GT(error_of(copysign, negative_nan, std::array{0xffc00001ul}), 1e9);
    // Of two outputs the worse one counts; the cosine of 0 is 1.
    const Family& sincosf = *find_family("sincosf");
    EXPECT_EQ(error_of(sincosf, std::array{0ul}, std::array{0ul, 0x3f800000ul}), 0);
    EXPECT_EQ(error_of(sincosf, std::array{0ul}, std::array{0ul, 0x3f800003ul}), 3);
    EXPECT_THROW(measure_all(*find_described("copysignf"), [](double) {}), std::invalid_argument);
}

}  // namespace
}  // namespace tuvo

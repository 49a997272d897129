// Holds every family to its accuracy line, in both directions, and to the bits of its results.
#include "tests/accuracy.hpp"

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/call.hpp"
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
    // The line speaks of every processor: its worst case is that of a stand-in for the estimates.
    const bool estimates = depends_on_processor(described);
    EXPECT_EQ(line.stand_in != StandIn::none, estimates && line.ulp != 0);
    if (estimates) {
        const Measured any = measure_stand_ins(described, stand_ins, family.arguments[0] == Lane::f64 ? 5 : 1);
        EXPECT_LE(any.ulp, line.ulp) << "at " << hex(any.worst) << " with the stand-in " << name_of(any.stand_in);
    }
    if (line.ulp == 0) {
        EXPECT_TRUE(line.worst.empty());
    } else {
        ASSERT_EQ(line.worst.size(), family.arguments.size());
        const auto got =
            estimates ? ByDescription(described, line.stand_in)(line.worst) : outputs_of(family, line.worst);
        // The line is rounded up at its third or fourth digit.
        EXPECT_GE(error_of(family, line.worst, got), line.ulp * 0.999) << "at " << hex(line.worst);
    }
    const double limit = full_profile_limit(family);
    EXPECT_EQ(limit >= 0 && line.ulp > limit, line.beyond_profile) << "the full profile allows " << limit;
}

// The stand-ins reach both ends of what is allowed, and don't leave it; special results are the processor's.
TEST(Estimates, AreAllowedOnes) {
    for (StandIn stand_in : stand_ins) {
        SCOPED_TRACE(name_of(stand_in));
        const double bound = stand_in == StandIn::exact ? 0x1p-24 : estimate_bound;
        for (double error : estimate_errors(estimates_of(stand_in), 101)) {
            EXPECT_LE(error, bound * (1 + 0x1p-30));
            EXPECT_GE(error, bound * 0.999);
        }
    }
    for (double error : estimate_errors({}, 101)) EXPECT_LE(error, estimate_bound) << "the processor's";
    for (float x : {1.5f, std::nextafter(1.5f, 2.0f)}) {
        const bool odd = x != 1.5f;
        EXPECT_EQ(estimates_of(StandIn::high).reciprocal(x) > 1 / x, true);
        EXPECT_EQ(estimates_of(StandIn::low).reciprocal_sqrt(x) < 1 / std::sqrt(x), true);
        EXPECT_EQ(estimates_of(StandIn::alternating).reciprocal(x) > 1 / x, odd);
    }
    // Below the normal range there is nothing: emulators may differ there.
    EXPECT_EQ(estimates_of(StandIn::high).reciprocal(0x1p127f), 0);
    EXPECT_EQ(estimates_of(StandIn::exact).reciprocal(0x1p-127f), INFINITY);

    const auto expect_processors = [](const Description& estimate, std::initializer_list<std::uint64_t> arguments) {
        const Program program = record_program("estimate", 0, {Type::f32}, estimate.body);
        for (std::uint64_t x : arguments)
            for (StandIn stand_in : stand_ins)
                EXPECT_EQ(interpret(program, {&x, 1}, false, false, estimates_of(stand_in)).outputs,
                          interpret(program, {&x, 1}).outputs)
                    << hex({x});
    };
    expect_processors(describe(+[](F32 x) { return reciprocal_approximation(x); }),
                      {0, 0x80000000, 0x7f800000, 0xff800000, 0x7f800001, 0xff912345});
    expect_processors(describe(+[](F32 x) { return reciprocal_sqrt_approximation(x); }),
                      {0, 0x80000000, 0x7f800000, 0xff800000, 0x7f800001, 0xff912345, 0xc0000000});
}

std::vector<std::string> described_names() {
    std::vector<std::string> names;
    for (const DescribedFamily& described : described_families()) names.push_back(described.family->name());
    return names;
}
INSTANTIATE_TEST_SUITE_P(Families, AccuracyLine, testing::ValuesIn(described_names()),
                         [](const auto& info) { return info.param; });

TEST(Hashes, AreThoseOfTheResults) {
    if (emulated()) GTEST_SKIP() << "an emulator keeps another of two NaNs";
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
    const auto kept = entries(file), found = entries(now);
    std::string differing;
    for (const auto& [name, hash] : found)
        if (const auto entry = kept.find(name); entry == kept.end() || entry->second != hash) differing += " " + name;
    EXPECT_EQ(differing, "") << "after a deliberate change of results: ./run accuracy --hashes";
    EXPECT_EQ(kept.size(), found.size());
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

#include "tests/inputs.hpp"

#include <sstream>
#include <stdexcept>

namespace tuvo {
namespace {

/// A number between 2^-6 and 2^7 of either sign; an integer between -16 and 16.
std::uint64_t moderate_pattern(Lane lane, RandomBits& random) {
    const std::uint64_t ones = ~std::uint64_t{0} >> (64 - 8 * lane_size(lane));
    if (!is_floating(lane)) return (random() % 33 - 16) & ones;
    const int fraction_bits = lane == Lane::f32 ? 23 : 52;
    const std::uint64_t bias = lane == Lane::f32 ? 127 : 1023;
    const std::uint64_t fraction = random() & ((std::uint64_t{1} << fraction_bits) - 1);
    const std::uint64_t sign = (ones ^ ones >> 1) & -(random() & 1);
    return sign | (bias - 6 + random() % 13) << fraction_bits | fraction;
}

}  // namespace

std::vector<LaneCase> lane_cases(const DescribedFamily& described, std::uint64_t seed, std::size_t count) {
    const Program program = record_family(described);
    const std::vector<Lane>& lanes = described.family->arguments;
    const std::vector<std::uint64_t>& thresholds = described.accuracy.thresholds;
    std::vector<std::vector<std::uint64_t>> patterns;
    for (Lane lane : lanes)
        patterns.push_back(stratified_patterns(lane, seed, patterns.empty() ? thresholds : decltype(thresholds){}, 2));
    const std::size_t telling = 18 * (thresholds.size() + 1);

    RandomBits random(seed);
    std::vector<LaneCase> cases(count);
    for (std::size_t k = 0; k < count; ++k) {
        std::vector<std::uint64_t>& arguments = cases[k].arguments;
        const bool moderate = k >= telling && k % 4 == 0, beside = k % 4 == 1;
        for (std::size_t a = 0; a < lanes.size(); ++a) {
            const std::uint64_t drawn = patterns[a][a == 0 && k < telling ? k : random() % patterns[a].size()];
            if (moderate)
                arguments.push_back(moderate_pattern(lanes[a], random));
            else if (beside && a > 0 && lanes[a] == lanes[0])
                arguments.push_back(arguments[0] ^ (random() & 3));
            else
                arguments.push_back(drawn);
        }
        cases[k].expected = interpret(program, arguments);
        const LaneResult wide = interpret(program, arguments, false, true);
        if (wide.rare != cases[k].expected.rare || (!wide.rare && wide.outputs != cases[k].expected.outputs))
            throw std::logic_error(program.name + ": the result depends on the size of parts for " + hex(arguments));
        cases[k].wide_outputs = wide.outputs;
    }
    return cases;
}

std::vector<std::vector<std::uint64_t>> arguments_of(const std::vector<const LaneCase*>& lanes) {
    std::vector<std::vector<std::uint64_t>> arguments(lanes.at(0)->arguments.size());
    for (const LaneCase* lane : lanes)
        for (std::size_t a = 0; a < arguments.size(); ++a) arguments[a].push_back(lane->arguments[a]);
    return arguments;
}

std::string hex(const std::vector<std::uint64_t>& patterns) {
    std::ostringstream text;
    for (std::uint64_t pattern : patterns) text << (text.tellp() ? " 0x" : "0x") << std::hex << pattern;
    return text.str();
}

Lanes::Lanes(const DescribedFamily& described, std::uint64_t seed, std::size_t count)
    : all(lane_cases(described, seed, count)) {
    for (const LaneCase& lane : all) (lane.expected.rare ? rare : ordinary).push_back(&lane);
}

std::vector<const LaneCase*> Lanes::choose(const std::vector<bool>& kinds, RandomBits& random) const {
    std::vector<const LaneCase*> chosen;
    for (bool is_rare : kinds) {
        const std::vector<const LaneCase*>& from = is_rare ? rare : ordinary;
        chosen.push_back(from.at(random() % from.size()));
    }
    return chosen;
}

std::vector<std::vector<bool>> Lanes::mixtures(int width, RandomBits& random) const {
    std::vector<std::vector<bool>> result;
    if (!ordinary.empty()) result.emplace_back(width, false);
    if (!rare.empty()) result.emplace_back(width, true);
    if (ordinary.empty() || rare.empty() || width == 1) return result;
    for (bool kind : {false, true})
        for (int odd = 0; odd < width; ++odd) {
            result.emplace_back(width, kind);
            result.back()[odd] = !kind;
        }
    for (int k = 0; k < 8; ++k) {
        result.emplace_back(width);
        for (int lane = 0; lane < width; ++lane) result.back()[lane] = random() & 1;
    }
    return result;
}

}  // namespace tuvo

// Shared by the tests of the circular functions.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "frame/description/real.hpp"
#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/library.hpp"

namespace tuvo {

using Patterns = std::vector<std::uint64_t>;

inline Patterns entry(const RawTable& table, int index) {
    const auto first = table.patterns.begin() + index * table.fields;
    return {first, first + table.fields};
}

inline Patterns results(const char* family, const Patterns& arguments, std::size_t output = 0, int width = 8) {
    const Family& found = *find_family(family);
    return call_all(find_kernel(found, width), found, width, {{arguments}}).outputs.at(output);
}

inline void expect_errors_below(const char* family, double bound, const Patterns& arguments) {
    const Family& found = *find_family(family);
    const CallResult got = call_all(find_kernel(found, 16), found, 16, {{arguments}});
    for (std::size_t k = 0; k < arguments.size(); ++k) {
        Patterns outputs;
        for (const Patterns& output : got.outputs) outputs.push_back(output[k]);
        EXPECT_LE(error_of(found, {&arguments[k], 1}, outputs), bound) << family << std::hex << " 0x" << arguments[k];
    }
}

}  // namespace tuvo

// tuvo-undefined: the rare routines, compiled with the undefined-behaviour sanitizer, over special values in every
// combination. Ends with an error where an integer overflows, a shift or a conversion is out of range, or the like.
#include <dlfcn.h>

#include <cstdio>
#include <string>
#include <vector>

#include "frame/description/families.hpp"

namespace {

using namespace tuvo;
using Patterns = std::vector<std::uint64_t>;

/// Around every power of two that a step may care about, and the values with a meaning of their own; both signs.
Patterns special_values(Lane lane, bool many) {
    const bool wide = lane_size(lane) == 8;
    const int bits = wide ? 64 : 32, fraction = wide ? 52 : 23;
    const std::uint64_t one = std::uint64_t{1}, sign = one << (bits - 1), exponents = (one << (bits - 1 - fraction)) - 1;
    Patterns magnitudes;
    if (is_floating(lane)) {
        for (std::uint64_t field = 0; field <= exponents; field += many ? 1 : exponents / 16)
            for (std::uint64_t low : {std::uint64_t{0}, one, (one << fraction) - 1, one << (fraction - 1)})
                magnitudes.push_back(field << fraction | low);
        for (std::uint64_t field : {exponents / 2 - 1, exponents / 2, exponents / 2 + 1, exponents - 1, exponents})
            for (std::uint64_t low : {std::uint64_t{0}, one, (one << fraction) - 1, one << (fraction - 1)})
                magnitudes.push_back(field << fraction | low);
    } else {
        for (int shift = 0; shift < bits - 1; ++shift)
            for (std::uint64_t near : {(one << shift) - 1, one << shift, (one << shift) + 1}) magnitudes.push_back(near);
    }
    Patterns both = magnitudes;
    for (const std::uint64_t magnitude : magnitudes)
        both.push_back(is_floating(lane) ? magnitude | sign : (0 - magnitude) & (sign | (sign - 1)));
    if (!is_floating(lane)) both.push_back(sign);
    return both;
}

/// Calls the routine on each combination of the arguments' values. Returns the number of calls.
long run(const DescribedFamily& described) {
    const Family& family = *described.family;
    using Routine = int (*)(const void*, const void*, const void*, const void*);
    const auto routine = reinterpret_cast<Routine>(dlsym(RTLD_DEFAULT, family.rare_routine.c_str()));
    if (!routine) {
        std::fprintf(stderr, "tuvo-undefined: no routine %s\n", family.rare_routine.c_str());
        return 0;
    }
    const std::size_t count = family.arguments.size();
    std::vector<Patterns> values;
    for (const Lane lane : family.arguments) values.push_back(special_values(lane, count == 1));
    values[0].insert(values[0].end(), described.accuracy.thresholds.begin(), described.accuracy.thresholds.end());
    std::vector<std::size_t> at(count, 0);
    std::vector<std::uint64_t> arguments(count);
    long calls = 0;
    for (std::size_t k = 0; k < count;) {
        std::uint64_t outputs[2] = {};
        const void* pointers[4] = {};
        for (std::size_t i = 0; i < count; ++i) arguments[i] = values[i][at[i]], pointers[i] = &arguments[i];
        for (std::size_t i = 0; i < family.outputs().size(); ++i) pointers[count + i] = &outputs[i];
        routine(pointers[0], pointers[1], pointers[2], pointers[3]);
        ++calls;
        for (k = 0; k < count && ++at[k] == values[k].size(); ++k) at[k] = 0;
    }
    return calls;
}

}  // namespace

int main() {
    long calls = 0;
    int routines = 0;
    for (const DescribedFamily& described : described_families()) {
        // Tiers share their routine.
        if (!described.family->has_rare || (described.family->tier != Tier::standard &&
                                            find_family(described.family->stem) && find_family(described.family->stem)->has_rare))
            continue;
        const long own = run(described);
        if (own == 0) return 1;
        calls += own, ++routines;
    }
    std::printf("%d routines, %ld calls\n", routines, calls);
}

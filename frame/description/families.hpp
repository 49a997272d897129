// The registry of described families. A family group's source file ends with one object of `Describe` for each
// description; from there the generator, the tests, the benches and the accuracy report find it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "frame/description/notation.hpp"

namespace tuvo {

/// How far a family's results are from the exact ones. The accuracy test measures again and holds the family to it.
struct Accuracy {
    double ulp = 0;                      ///< largest error seen, in ulp of the result's type; 0 for exact families
    std::vector<std::uint64_t> worst{};  ///< the arguments that gave it, as bit patterns
    /// Of a family that starts from an approximate reciprocal or reciprocal root: the one that gave it. The figure is
    /// the largest over all stand-ins, and so a bound for every processor.
    StandIn stand_in = StandIn::none;
    /// Patterns of the first argument around which the test samples densely: thresholds of the method.
    std::vector<std::uint64_t> thresholds{};
    /// The error exceeds what the compute language's full profile allows, by the method as it is.
    bool beyond_profile = false;
    /// Least and greatest magnitude, as patterns, of the arguments that the figure is about: one pair for all of them,
    /// or one for each; empty without limits. Only a family that leaves the results of other arguments as they come
    /// has one.
    std::vector<std::uint64_t> domain{};
    /// Where a figure needs a word: why it exceeds the limit, what becomes of arguments outside the domain. A sentence
    /// for the document, without a full stop.
    const char* remark = nullptr;
};

struct DescribedFamily {
    const Family* family;
    Description description;
    Accuracy accuracy;
};

/// Families with a description, in the order of the operation table.
const std::vector<DescribedFamily>& described_families();
/// The described family of that name, or null.
const DescribedFamily* find_described(std::string_view name);

/// Records a family's description.
Program record_family(const DescribedFamily& described);

/// Registers one description for the families named: tiers that run the same steps share it, each with exports and
/// constants of its own. Ends the program with a message if the operation table doesn't know a name.
struct Describe {
    Describe(std::initializer_list<const char*> names, Description description, Accuracy accuracy);
};

}  // namespace tuvo

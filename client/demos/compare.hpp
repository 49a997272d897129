// How far a program is from its reference, and how fast it runs: the last lines of every demonstration.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "client/program.hpp"

namespace tuvo::client {

/// Gathers differences between what a program computed and what it should have.
class Comparison {
public:
    /// `allowed` is the largest difference that the program's arithmetic explains.
    void add(double computed, double exact, double allowed);

    /// Prints a line with the largest difference and how much of the allowance it takes; returns whether none exceeds
    /// it.
    bool report(const std::string& what) const;

private:
    std::uint64_t values_ = 0;
    double largest_ = 0.0;
    double share_ = 0.0;  ///< of what is allowed
};

/// A program bound to the library, and bound to the scalar functions of the C library.
struct Contest {
    Program library, scalar;

    Contest(const std::filesystem::path& source, const Settings& settings);
    /// Lets `work` run the one and the other several times, and prints how many of its `count` items a second each
    /// does.
    void report(const std::string& what, const std::string& items, double count,
                const std::function<void(const Program&)>& work) const;
};

}  // namespace tuvo::client

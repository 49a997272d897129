// Demonstrations: OpenCL C programs with some work around them, each in a file of its own that registers it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "client/program.hpp"

namespace tuvo::client {

struct DemoOptions {
    Settings settings;
    std::string file;              ///< what it works on; empty: something of its own
    std::filesystem::path folder;  ///< for the pictures and tables that it writes
};

struct Demo {
    const char* name;
    const char* help;  ///< one line, which says what FILE is if it takes one
    /// Prints figures, the last line of which tells how far the program is from its reference. Returns whether that is
    /// within what the demo allows. Throws `MissingKernels` if the library can't serve it, `Failure` otherwise.
    bool (*run)(const DemoOptions& options);
};

/// All demonstrations, by name.
const std::vector<Demo>& demos();

/// Stands behind a demonstration's function, at the end of its file.
struct RegisterDemo {
    explicit RegisterDemo(Demo demo);
};

/// Runs the demonstration of that name, or all of them if it is empty; then those that the library can't serve are
/// named and left out. Returns whether all that ran agree with their references. Throws `Failure` for an unknown name.
bool run_demos(const std::string& name, const DemoOptions& options);

/// The OpenCL C program of a demonstration, and a file that comes with one.
std::filesystem::path demo_program(const std::string& name);
std::filesystem::path demo_data(const std::string& file);

}  // namespace tuvo::client

// Programs run by a test, in a folder of its own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace tuvo {

/// A folder that goes with the object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        static int made = 0;
        path = std::filesystem::temp_directory_path() / ("tuvo-test-" + std::to_string(getpid()) + "-" + std::to_string(made++));
        std::filesystem::create_directories(path);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path path;
};

inline std::string read_text(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_text(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

struct CommandResult {
    int status;       ///< what the program exited with, or 128 and the signal that ended it
    std::string out;  ///< what it printed, errors included
};

/// Runs a line of the shell in that folder.
inline CommandResult run_command(const std::filesystem::path& folder, const std::string& command) {
    const std::filesystem::path out = folder / "command.out";
    const int status = std::system(("cd '" + folder.string() + "' && ( " + command + " ) > '" + out.string() + "' 2>&1").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_text(out)};
}

}  // namespace tuvo

// What the fuzz targets share: bytes as a file, and a rejection as the client's user would get it.
#pragma once

#include <pthread.h>
#include <sanitizer/common_interface_defs.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "client/failure.hpp"

namespace tuvo::fuzz {

/// A folder of the process's own, gone when it ends in peace.
inline const std::filesystem::path& folder() {
    static const struct Folder {
        std::filesystem::path path = std::filesystem::temp_directory_path() / ("tuvo-fuzz-" + std::to_string(getpid()));
        Folder() { std::filesystem::create_directories(path); }
        ~Folder() { std::filesystem::remove_all(path); }
    } own;
    return own.path;
}

/// The bytes as a file of that name in the folder.
inline std::filesystem::path as_file(const char* name, const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path path = folder() / name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return path;
}

/// What a child process dies of is told to its parent, which refuses the file: it is no finding.
inline const int children_end_in_peace =
    pthread_atfork(nullptr, nullptr, [] { __sanitizer_set_death_callback(nullptr); });

/// Runs the function. It may throw `Failure` with a message, and nothing else.
template <typename Function>
int accept_or_reject(Function function) {
    try {
        function();
    } catch (const client::Failure& failure) {
        if (failure.what()[0] == '\0') std::abort();
    }
    return 0;
}

}  // namespace tuvo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

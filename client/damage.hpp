// Files that are loaded as they are, looked at beforehand: neither the system's loader nor LLVM's reader is made for
// damaged ones, and they may end the process.
#pragma once

#include <filesystem>

namespace tuvo::client {

/// The file of checksums that lies beside the library and the built-ins: lines as sha256sum writes them.
inline constexpr const char* checksums_name = "tuvo.sha256";

/// Throws `Failure` if the library can't be read or won't load: if it differs from its checksum or, where it has none,
/// if its headers contradict each other or the file, or a child process can't load it.
void check_library(const std::filesystem::path& library);

/// Throws `Failure` if the built-ins can't be read, differ from their checksum or, where they have none, if a child
/// process finds them no sound module.
void check_builtins(const std::filesystem::path& builtins);

}  // namespace tuvo::client

// Shared objects, loaded once they are accepted, and, where it begins otherwise than one, the file of checksums.
#include <dlfcn.h>

#include "client/damage.hpp"
#include "tests/fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tuvo;
    std::filesystem::remove(fuzz::folder() / client::checksums_name);
    if (size == 0 || data[0] != 0x7f) {
        fuzz::as_file(client::checksums_name, data, size);
        return fuzz::accept_or_reject([] { client::check_library(fuzz::as_file("object.so", nullptr, 0)); });
    }
    return fuzz::accept_or_reject([&] {
        const auto path = fuzz::as_file("object.so", data, size);
        client::check_library(path);
        if (void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) dlclose(handle);
    });
}

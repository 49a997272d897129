// OpenCL programs, up to the code that would run.
#include "client/program.hpp"
#include "tests/fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tuvo;
    // Neither files of the machine at hand nor the front end's own work without end.
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (text.find("include") != text.npos || text.find("??") != text.npos || text.find('\\') != text.npos) return -1;
    return fuzz::accept_or_reject([&] {
        const client::Settings settings{
            .library = TUVO_DEFAULT_LIBRARY, .builtins = TUVO_DEFAULT_BUILTINS, .clang = TUVO_DEFAULT_CLANG};
        (void)client::bound_ir(fuzz::as_file("program.cl", data, size), settings);
    });
}

// Kernel arguments, one on a line, and how they fit a kernel. What stands behind a value of a pointer is touched.
#include "client/arguments.hpp"

#include <sstream>

#include "tests/fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tuvo;
    using namespace tuvo::client;
    const KernelSignature kernel{"k",
                                 {{Scalar::f32, 4, true, false},
                                  {Scalar::f64, 3, true, false},
                                  {Scalar::i16, 1, true, true},
                                  {Scalar::u8, 2, false, false}}};
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<Argument> arguments;
    for (std::string line; std::getline(lines, line);)
        fuzz::accept_or_reject([&] {
            if (line.starts_with("in:")) line += ".absent";  // no file of the machine at hand
            arguments.push_back(parse_argument(line));
            Buffer& memory = arguments.back().memory;
            if (memory.size() > 0) memory.data()[memory.size() - 1] = memory.data()[0];
        });
    // A pointer to vectors of three has its memory copied.
    for (const Argument& argument : arguments)
        if (argument.memory.size() > 1 << 20) return 0;
    return fuzz::accept_or_reject([&] {
        fit_arguments(kernel, arguments);
        if (arguments.size() != kernel.parameters.size()) std::abort();
    });
}

// An OpenCL C program, bound to the library and ready to run.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <llvm/ExecutionEngine/Orc/LLJIT.h>

#include "client/compile.hpp"
#include "client/scalar.hpp"

namespace tuvo::client {

/// How programs are built.
struct Settings {
    std::filesystem::path library;
    std::filesystem::path builtins;  ///< bitcode or text that defines them by calls of the library's kernels
    std::string clang;
    std::string features = default_features;
    bool vectorize = true;     ///< several work-items at a time, where a program is written for one
    bool scalar_libm = false;  ///< the library's kernels are not used
};

/// A parameter of a kernel.
struct Parameter {
    std::optional<Scalar> element;  ///< element type of the value or behind the pointer; none for structures and void
    int lanes = 1;
    bool pointer = false;
    bool local = false;  ///< pointer to memory of the work-group

    /// "float4", "float4*", "local float*".
    std::string spelling() const;
};

struct KernelSignature {
    std::string name;
    std::vector<Parameter> parameters;
};

struct Program {
    std::vector<KernelSignature> kernels;
    std::unique_ptr<llvm::orc::LLJIT> jit;
};

/// The bound module as text.
std::string bound_ir(const std::filesystem::path& source, const Settings& settings);

/// Compiles, binds and loads a program. Throws `Failure` if a file can't be read, the program doesn't compile, or a
/// built-in has no kernel.
Program build_program(const std::filesystem::path& source, const Settings& settings);

/// The kernel of that name. Throws `Failure` with the names that there are.
const KernelSignature& find_kernel(const Program& program, const std::string& name);

/// Runs a kernel over the global ids 0 to `size` - 1, in ascending order or several at a time. `values[i]` is the
/// address of argument i: of the pointer for a pointer parameter, of the value for any other. After a second, a line
/// with the text of `progress` and the share done is kept up to date on stderr, unless the text is empty.
void run_kernel(const Program& program, const KernelSignature& kernel, std::vector<void*> values, std::uint64_t size,
                const std::string& progress = "");

}  // namespace tuvo::client

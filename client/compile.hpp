// From OpenCL C to a module for the processor.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <llvm/ExecutionEngine/Orc/JITTargetMachineBuilder.h>
#include <llvm/IR/Module.h>

namespace tuvo::client {

/// Code is generated for AVX and nothing newer, whatever the machine at hand offers.
inline constexpr const char* default_features = "+avx,-avx2,-fma,-avx512f";

/// The processor that code is generated for; `features` is a comma-separated list such as `default_features`.
llvm::orc::JITTargetMachineBuilder target_machine(const std::string& features);

/// Compiles an OpenCL C program with the clang named `clang`. In the module, built-ins are still calls of mangled
/// names, calls carry source lines, and every function has the C calling convention. clang's diagnostics go to stderr.
/// Throws `Failure` if the program can't be read or doesn't compile.
std::unique_ptr<llvm::Module> compile_program(llvm::LLVMContext& context, const std::string& clang,
                                              const std::filesystem::path& program, const std::string& features);

/// Makes all functions and calls of a module that the front end wrote those of the C convention.
void use_c_calls(llvm::Module& module);

/// Lets accesses to memory that isn't private assume no more than that elements are aligned: arrays end where a page
/// ends (see `Buffer`), so that what lies behind can't be touched. Moves of vectors cost no more for it.
void rely_on_element_alignment(llvm::Module& module);

/// Lets the module's functions be compiled for the client's processor with these features.
void generate_for(llvm::Module& module, const std::string& features);

}  // namespace tuvo::client

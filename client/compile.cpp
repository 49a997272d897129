#include "client/compile.hpp"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include <llvm/IR/InstIterator.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/IntrinsicInst.h>
#include <llvm/IRReader/IRReader.h>
#include <llvm/Support/MemoryBuffer.h>
#include <llvm/Support/SourceMgr.h>
#include <llvm/Support/TargetSelect.h>

#include "client/failure.hpp"

extern char** environ;

namespace tuvo::client {
namespace {

struct ChildOutput {
    std::string text;
    bool succeeded;
};

/// Runs a program and collects what it writes to stdout; stderr stays the client's own.
ChildOutput run_child(std::vector<std::string> arguments) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);

    ChildOutput output;
    std::array<char, 1 << 16> block;
    while (const ssize_t size = read(ends[0], block.data(), block.size())) {
        if (size > 0)
            output.text.append(block.data(), static_cast<std::size_t>(size));
        else if (errno != EINTR)
            break;
    }
    close(ends[0]);
    if (error != 0)
        throw Failure("cannot run '" + arguments[0] + "': " + std::strerror(error) + "; name a clang with --clang");
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    output.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return output;
}

/// The front end's target is one with plain vector values: the rules of the C language on x86-64 would turn a float2
/// into a double and a float16 into memory before the kernel's parts could be built.
std::vector<std::string> front_end(const std::string& clang, const std::filesystem::path& program) {
    return {clang,
            "-x",
            "cl",
            "-cl-std=CL3.0",
            "-target",
            "spir64-unknown-unknown",
            "-Xclang",
            "-cl-ext=-__opencl_c_generic_address_space,-__opencl_c_device_enqueue,-__opencl_c_pipes",
            "-O1",
            "-ffp-contract=off",
            "-gline-tables-only",
            "-emit-llvm",
            "-c",
            "-o",
            "-",
            program.string()};
}

}  // namespace

llvm::orc::JITTargetMachineBuilder target_machine(const std::string& features) {
    static const bool initialised = !llvm::InitializeNativeTarget() && !llvm::InitializeNativeTargetAsmPrinter();
    if (!initialised) throw Failure("LLVM was built without its x86-64 code generator");
    llvm::orc::JITTargetMachineBuilder machine{llvm::Triple("x86_64-unknown-linux-gnu")};
    machine.setCPU("x86-64");
    machine.getFeatures() = llvm::SubtargetFeatures(features);
    return machine;
}

std::unique_ptr<llvm::Module> compile_program(llvm::LLVMContext& context, const std::string& clang,
                                              const std::filesystem::path& program, const std::string& features) {
    if (!std::ifstream(program))
        throw Failure("cannot read the program '" + program.string() + "': " + std::strerror(errno));
    const ChildOutput bitcode = run_child(front_end(clang, program));
    if (!bitcode.succeeded) throw Failure("'" + program.string() + "' does not compile; see clang's messages above");
    llvm::SMDiagnostic diagnostic;
    auto module = llvm::parseIR(llvm::MemoryBufferRef(bitcode.text, program.string()), diagnostic, context);
    if (!module)
        throw Failure("cannot read the output of '" + clang + "': " + diagnostic.getMessage().str() +
                      "; take a clang that isn't newer than the LLVM " LLVM_VERSION_STRING " of this client");
    auto machine = target_machine(features);
    module->setTargetTriple(machine.getTargetTriple().str());
    module->setDataLayout(llvm::cantFail(machine.getDefaultDataLayoutForTarget()));
    use_c_calls(*module);
    // What the front end concluded about memory rests on declarations that say more than the kernels keep.
    for (llvm::Function& function : *module)
        if (!function.isIntrinsic())
            function.setAttributes(function.getAttributes().removeFnAttributes(module->getContext()));
    return module;
}

void rely_on_element_alignment(llvm::Module& module) {
    constexpr unsigned private_memory = 0;
    for (llvm::Function& function : module) {
        for (unsigned i = 0; i < function.arg_size(); ++i) function.removeParamAttr(i, llvm::Attribute::Alignment);
        for (llvm::Instruction& instruction : llvm::instructions(function)) {
            if (auto* copy = llvm::dyn_cast<llvm::MemIntrinsic>(&instruction)) copy->setDestAlignment(llvm::Align(1));
            if (auto* copy = llvm::dyn_cast<llvm::MemTransferInst>(&instruction))
                copy->setSourceAlignment(llvm::Align(1));
            const llvm::Value* const address = llvm::getLoadStorePointerOperand(&instruction);
            if (!address || instruction.isAtomic() || address->getType()->getPointerAddressSpace() == private_memory)
                continue;
            const unsigned bits = llvm::getLoadStoreType(&instruction)->getScalarSizeInBits();
            const llvm::Align alignment(std::max(1u, bits / 8));
            if (auto* load = llvm::dyn_cast<llvm::LoadInst>(&instruction))
                load->setAlignment(alignment);
            else
                llvm::cast<llvm::StoreInst>(instruction).setAlignment(alignment);
        }
    }
}

/// The address spaces need no mapping: x86-64 gives those below 256 no meaning of their own.
void use_c_calls(llvm::Module& module) {
    for (llvm::Function& function : module) {
        if (!function.isIntrinsic()) function.setCallingConv(llvm::CallingConv::C);
        for (llvm::Instruction& instruction : llvm::instructions(function))
            if (auto* call = llvm::dyn_cast<llvm::CallInst>(&instruction);
                call && !llvm::isa<llvm::IntrinsicInst>(call)) {
                call->setCallingConv(llvm::CallingConv::C);
                call->setAttributes(call->getAttributes().removeFnAttributes(module.getContext()));
            }
    }
}

void generate_for(llvm::Module& module, const std::string& features) {
    const std::string processor = target_machine(features).getCPU();
    for (llvm::Function& function : module) {
        if (function.isDeclaration()) continue;
        function.addFnAttr(llvm::Attribute::NoUnwind);
        function.addFnAttr("target-cpu", processor);
        function.addFnAttr("target-features", features);
    }
}

}  // namespace tuvo::client

#include "client/program.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <regex>

#include <llvm/IR/Metadata.h>
#include <llvm/IR/Verifier.h>
#include <llvm/Support/raw_ostream.h>

#include "client/bind.hpp"
#include "client/damage.hpp"
#include "client/driver.hpp"
#include "client/failure.hpp"
#include "client/optimize.hpp"

namespace tuvo::client {
namespace {

/// Reads the front end's spelling of a parameter's type: "float __attribute__((ext_vector_type(4)))*".
Parameter read_parameter(const std::string& type, bool local) {
    static const std::regex pattern("([a-z]+)(?: __attribute__\\(\\(ext_vector_type\\(([0-9]+)\\)\\)\\))?(\\*?)");
    Parameter parameter;
    parameter.pointer = type.ends_with('*');
    parameter.local = local;
    std::smatch match;
    if (!std::regex_match(type, match, pattern)) return parameter;
    const ScalarTraits* element = find_scalar(&ScalarTraits::opencl, match.str(1));
    if (element) parameter.element = element->scalar;
    if (match[2].matched) parameter.lanes = std::stoi(match[2]);
    return parameter;
}

std::vector<KernelSignature> read_signatures(const llvm::Module& module) {
    constexpr std::uint64_t local_memory = 3;
    std::vector<KernelSignature> kernels;
    for (const llvm::Function& function : module) {
        const llvm::MDNode* types = function.getMetadata("kernel_arg_base_type");
        const llvm::MDNode* spaces = function.getMetadata("kernel_arg_addr_space");
        if (function.isDeclaration() || !types || !spaces) continue;
        KernelSignature& kernel = kernels.emplace_back(KernelSignature{function.getName().str(), {}});
        for (unsigned i = 0; i < types->getNumOperands(); ++i) {
            const auto* space = llvm::mdconst::extract<llvm::ConstantInt>(spaces->getOperand(i));
            const auto* type = llvm::cast<llvm::MDString>(types->getOperand(i));
            kernel.parameters.push_back(read_parameter(type->getString().str(), space->getZExtValue() == local_memory));
        }
    }
    return kernels;
}

/// Moves the value out, or throws what went wrong, behind `what`.
template <typename T>
T take(llvm::Expected<T> value, const std::string& what) {
    if (!value) throw Failure(what + ": " + llvm::toString(value.takeError()));
    return std::move(*value);
}

struct BoundModule {
    std::unique_ptr<llvm::LLVMContext> context;
    std::unique_ptr<llvm::Module> module;
    std::vector<KernelSignature> kernels;
};

void verify(const llvm::Module& module) {
    std::string fault;
    llvm::raw_string_ostream stream(fault);
    if (llvm::verifyModule(module, &stream)) throw std::logic_error("the bound module is broken: " + stream.str());
}

BoundModule bound_module(const std::filesystem::path& source, const Settings& settings) {
    BoundModule bound{std::make_unique<llvm::LLVMContext>(), nullptr, {}};
    bound.module = compile_program(*bound.context, settings.clang, source, settings.features);
    bound.kernels = read_signatures(*bound.module);
    bind_builtins(*bound.module, {settings.builtins, settings.scalar_libm});
    generate_for(*bound.module, settings.features);
    // No function calls itself in OpenCL C, so all can become part of the kernels.
    for (llvm::Function& function : *bound.module)
        if (!function.isDeclaration() && !function.hasFnAttribute(llvm::Attribute::NoInline))
            function.addFnAttr(llvm::Attribute::AlwaysInline);
    for (const KernelSignature& kernel : bound.kernels)
        bound.module->getFunction(kernel.name)->removeFnAttr(llvm::Attribute::AlwaysInline);
    inline_calls(*bound.module);
    rely_on_element_alignment(*bound.module);
    for (const KernelSignature& kernel : bound.kernels)
        add_drivers(*bound.module, *bound.module->getFunction(kernel.name));
    verify(*bound.module);
    optimize(*bound.module, settings.features, settings.vectorize);
    verify(*bound.module);
    return bound;
}

template <typename Function>
Function* lookup(llvm::orc::LLJIT& jit, const std::string& name, const std::string& what) {
#if LLVM_VERSION_MAJOR >= 15
    return take(jit.lookup(name), what).template toPtr<Function*>();
#else
    return reinterpret_cast<Function*>(take(jit.lookup(name), what).getAddress());
#endif
}

}  // namespace

std::string Parameter::spelling() const {
    std::string text = element ? std::string(traits(*element).opencl) : "struct";
    if (lanes > 1) text += std::to_string(lanes);
    return (local ? "local " : "") + text + (pointer ? "*" : "");
}

std::string bound_ir(const std::filesystem::path& source, const Settings& settings) {
    const BoundModule bound = bound_module(source, settings);
    std::string text;
    llvm::raw_string_ostream stream(text);
    bound.module->print(stream, nullptr);
    return stream.str();
}

Program build_program(const std::filesystem::path& source, const Settings& settings) {
    if (!__builtin_cpu_supports("avx")) throw Failure("this processor has no AVX, which the library needs");
    check_library(settings.library);
    BoundModule bound = bound_module(source, settings);
    Program program;
    program.kernels = bound.kernels;

    auto machine = target_machine(settings.features);
    program.jit = take(llvm::orc::LLJITBuilder().setJITTargetMachineBuilder(machine).create(), "cannot set up the JIT");
    llvm::orc::JITDylib& symbols = program.jit->getMainJITDylib();
    const std::string path = std::filesystem::absolute(settings.library).string();
    const char prefix = program.jit->getDataLayout().getGlobalPrefix();
    using llvm::orc::DynamicLibrarySearchGenerator;
    symbols.addGenerator(take(DynamicLibrarySearchGenerator::Load(path.c_str(), prefix), "cannot load the library"));
    // The code generator turns large copies into calls of memcpy and memset.
    symbols.addGenerator(take(DynamicLibrarySearchGenerator::GetForCurrentProcess(prefix), "cannot set up the JIT"));
    llvm::orc::ThreadSafeModule module(std::move(bound.module), std::move(bound.context));
    llvm::cantFail(program.jit->addIRModule(std::move(module)));
    return program;
}

const KernelSignature& find_kernel(const Program& program, const std::string& name) {
    std::string names;
    for (const KernelSignature& kernel : program.kernels) {
        if (kernel.name == name) return kernel;
        names += " " + kernel.name;
    }
    throw Failure("the program has no kernel '" + name + "'; " +
                  (names.empty() ? "it has none at all" : "it has:" + names));
}

void run_kernel(const Program& program, const KernelSignature& kernel, std::vector<void*> values, std::uint64_t size,
                const std::string& progress) {
    using Clock = std::chrono::steady_clock;
    const std::string name = driver_name(kernel.name, size <= std::uint64_t{1} << 31);
    auto* driver = lookup<Driver>(*program.jit, name, "cannot link the program to the library");
    const auto start = Clock::now();
    bool shown = false;
    std::uint64_t chunk = 64;
    for (std::uint64_t first = 0; first < size;) {
        const auto chunk_start = Clock::now();
        const std::uint64_t last = first + std::min(chunk, size - first);
        driver(values.data(), first, last, size);
        first = last;
        const auto now = Clock::now();
        if (now - chunk_start < std::chrono::milliseconds(50)) chunk *= 2;
        if (progress.empty() || now - start < std::chrono::seconds(1)) continue;
        std::fprintf(stderr, "\r%s: %3.0f %%", progress.c_str(),
                     100.0 * static_cast<double>(first) / static_cast<double>(size));
        shown = true;
    }
    if (shown) std::fputc('\n', stderr);
}

}  // namespace tuvo::client

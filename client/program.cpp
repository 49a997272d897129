#include "client/program.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <regex>

#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Metadata.h>
#include <llvm/IR/Verifier.h>
#include <llvm/Support/raw_ostream.h>

#include "client/bind.hpp"
#include "client/failure.hpp"

namespace tuvo::client {
namespace {

using llvm::Type;
using llvm::Value;

std::string driver_name(const std::string& kernel) { return "tuvo.run." + kernel; }

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

/// Adds `void tuvo.run.<kernel>(void** values, long first, long last, long size)`, which runs the kernel for the global
/// ids from `first` up to, but without, `last`.
void add_driver(llvm::Module& module, const KernelSignature& signature) {
    llvm::LLVMContext& context = module.getContext();
    llvm::Function* kernel = module.getFunction(signature.name);
    Type* word = Type::getInt64Ty(context);
    Type* address = llvm::PointerType::get(Type::getInt8Ty(context), 0);
    auto* type = llvm::FunctionType::get(Type::getVoidTy(context),
                                         {llvm::PointerType::get(address, 0), word, word, word}, false);
    auto* driver = llvm::Function::Create(type, llvm::Function::ExternalLinkage, driver_name(signature.name), module);
    driver->setAttributes(driver->getAttributes().addFnAttributes(
        context, llvm::AttrBuilder(context, kernel->getAttributes().getFnAttrs())));
    Value* values = driver->getArg(0);
    Value* first = driver->getArg(1);
    Value* last = driver->getArg(2);

    auto* entry = llvm::BasicBlock::Create(context, "entry", driver);
    auto* loop = llvm::BasicBlock::Create(context, "loop", driver);
    auto* done = llvm::BasicBlock::Create(context, "done", driver);
    llvm::IRBuilder<> builder(entry);
    const WorkItem item = work_item(module);
    builder.CreateStore(driver->getArg(3), item.global_size);
    std::vector<Value*> arguments;
    for (unsigned i = 0; i < kernel->arg_size(); ++i) {
        Type* value_type = kernel->getArg(i)->getType();
        Value* slot = builder.CreateLoad(address, builder.CreateConstGEP1_64(address, values, i));
        Value* typed = builder.CreateBitCast(slot, llvm::PointerType::get(value_type, 0));
        arguments.push_back(builder.CreateAlignedLoad(value_type, typed, llvm::Align(1)));
    }
    builder.CreateBr(loop);

    builder.SetInsertPoint(loop);
    llvm::PHINode* id = builder.CreatePHI(word, 2);
    builder.CreateStore(id, item.global_id);
    llvm::CallInst* call = builder.CreateCall(kernel, arguments);
    call->setAttributes(kernel->getAttributes().removeFnAttributes(context));
    Value* next = builder.CreateAdd(id, builder.getInt64(1));
    builder.CreateCondBr(builder.CreateICmpULT(next, last), loop, done);
    id->addIncoming(first, entry);
    id->addIncoming(next, loop);
    builder.SetInsertPoint(done);
    builder.CreateRetVoid();
}

/// Moves the value out, or throws what went wrong, behind `what`.
template <typename T>
T take(llvm::Expected<T> value, const std::string& what) {
    if (!value) throw Failure(what + ": " + llvm::toString(value.takeError()));
    return std::move(*value);
}

void check_readable(const std::filesystem::path& library) {
    if (!std::ifstream(library))
        throw Failure("cannot read the library '" + library.string() + "': " + std::strerror(errno) +
                      "; build it, or name it with --library");
}

struct BoundModule {
    std::unique_ptr<llvm::LLVMContext> context;
    std::unique_ptr<llvm::Module> module;
};

BoundModule bound_module(const std::filesystem::path& source, const Settings& settings) {
    const Manifest manifest = read_manifest(settings.manifest);
    BoundModule bound{std::make_unique<llvm::LLVMContext>(), nullptr};
    bound.module = compile_program(*bound.context, settings.clang, source, settings.features);
    bind_builtins(*bound.module, manifest, {settings.relaxed_math, settings.scalar_libm});
    std::string fault;
    llvm::raw_string_ostream stream(fault);
    if (llvm::verifyModule(*bound.module, &stream))
        throw std::logic_error("the bound module is broken: " + stream.str());
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

using Driver = void(void**, std::uint64_t, std::uint64_t, std::uint64_t);

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
    check_readable(settings.library);
    BoundModule bound = bound_module(source, settings);
    Program program;
    program.kernels = read_signatures(*bound.module);
    for (const KernelSignature& kernel : program.kernels) add_driver(*bound.module, kernel);

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
    auto* driver = lookup<Driver>(*program.jit, driver_name(kernel.name), "cannot link the program to the library");
    const auto start = Clock::now();
    bool shown = false;
    std::uint64_t chunk = 1;
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

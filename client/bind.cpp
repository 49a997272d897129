#include "client/bind.hpp"

#include <array>
#include <map>
#include <set>

#include <llvm/ADT/StringSet.h>
#include <llvm/Demangle/Demangle.h>
#include <llvm/IR/DebugInfo.h>
#include <llvm/IR/DebugInfoMetadata.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/InstIterator.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/IntrinsicInst.h>
#include <llvm/IRReader/IRReader.h>
#include <llvm/Linker/Linker.h>
#include <llvm/Support/SourceMgr.h>
#include <llvm/Transforms/IPO/Internalize.h>
#include <llvm/Transforms/Utils/ModuleUtils.h>

#include "builtins/abi.hpp"
#include "client/compile.hpp"
#include "client/damage.hpp"
#include "client/failure.hpp"
#include "client/optimize.hpp"
#include "client/scalar_bodies.hpp"

namespace tuvo::client {
namespace {

using llvm::CallInst;
using llvm::Function;
using llvm::Value;
using Builder = llvm::IRBuilder<>;

/// Calls in the module of functions that it only declares, intrinsics left aside.
std::vector<CallInst*> open_calls(llvm::Module& module) {
    std::vector<CallInst*> calls;
    for (Function& function : module)
        for (llvm::Instruction& instruction : llvm::instructions(function))
            if (auto* call = llvm::dyn_cast<CallInst>(&instruction); call && !llvm::isa<llvm::IntrinsicInst>(call))
                if (const Function* callee = call->getCalledFunction(); callee && callee->isDeclaration())
                    calls.push_back(call);
    return calls;
}

// ---- Divisions -----------------------------------------------------------------------------------------------------

struct Division {
    unsigned opcode;
    const char* builtin;
};

constexpr std::array<Division, 4> divisions{{
    {llvm::Instruction::SDiv, "__tuvo_idiv_int"},
    {llvm::Instruction::SRem, "__tuvo_irem_int"},
    {llvm::Instruction::UDiv, "__tuvo_udiv_uint"},
    {llvm::Instruction::URem, "__tuvo_urem_uint"},
}};

/// Lets divisions call the built-ins for them, where there are any. A constant divisor can't trap and becomes
/// multiplications: such divisions stay.
void call_divisions(llvm::Module& module, const llvm::Module& builtins) {
    std::vector<std::pair<llvm::BinaryOperator*, const Function*>> bound;
    for (Function& function : module)
        for (llvm::Instruction& instruction : llvm::instructions(function))
            for (const Division& division : divisions) {
                if (instruction.getOpcode() != division.opcode || !instruction.getType()->isIntOrIntVectorTy(32) ||
                    llvm::isa<llvm::Constant>(instruction.getOperand(1)))
                    continue;
                std::string name = division.builtin;
                if (auto* vector = llvm::dyn_cast<llvm::FixedVectorType>(instruction.getType()))
                    name += std::to_string(vector->getNumElements());
                if (const Function* builtin = builtins.getFunction(name))
                    bound.emplace_back(llvm::cast<llvm::BinaryOperator>(&instruction), builtin);
            }
    for (const auto& [instruction, builtin] : bound) {
        Builder builder(instruction);
        const auto callee = module.getOrInsertFunction(builtin->getName(), builtin->getFunctionType());
        instruction->replaceAllUsesWith(
            builder.CreateCall(callee, {instruction->getOperand(0), instruction->getOperand(1)}));
        instruction->eraseFromParent();
    }
}

// ---- Linking -------------------------------------------------------------------------------------------------------

/// A module of definitions to link; functions are read when they are needed.
std::unique_ptr<llvm::Module> open_module(llvm::LLVMContext& context, const std::filesystem::path& path) {
    llvm::SMDiagnostic diagnostic;
    auto module = llvm::getLazyIRFileModule(path.string(), diagnostic, context);
    if (!module)
        throw Failure("cannot read the built-ins '" + path.string() + "': " + diagnostic.getMessage().str() +
                      "; build the library, or name them with --builtins");
    return module;
}

/// Links the definitions that the module calls, and makes them its own.
void link(llvm::Module& module, std::unique_ptr<llvm::Module> definitions, const std::filesystem::path& path) {
    const auto make_private = [](llvm::Module& linked, const llvm::StringSet<>& names) {
        llvm::internalizeModule(linked,
                                [&](const llvm::GlobalValue& value) { return !names.contains(value.getName()); });
    };
    if (llvm::Linker::linkModules(module, std::move(definitions), llvm::Linker::LinkOnlyNeeded, make_private))
        throw Failure("'" + path.string() + "' doesn't fit the program");
}

constexpr const char* variants_attribute = "vector-function-abi-variant";

/// Kernels for several values are kept for the loop vectoriser, where the program calls the one for one value.
void keep_variants_in_use(llvm::Module& module) {
    std::string names;
    for (const Function& function : module)
        for (const llvm::Instruction& instruction : llvm::instructions(function))
            if (const auto* call = llvm::dyn_cast<CallInst>(&instruction))
                names += call->getFnAttr(variants_attribute).getValueAsString().str();
    llvm::SmallVector<llvm::GlobalValue*, 0> listed;
    llvm::GlobalVariable* list = llvm::collectUsedGlobalVariables(module, listed, /*CompilerUsed=*/true);
    if (!list) return;
    list->eraseFromParent();
    llvm::erase_if(listed, [&](const llvm::GlobalValue* kept) {
        return names.find("(" + kept->getName().str() + ")") == std::string::npos;
    });
    llvm::appendToCompilerUsed(module, listed);
}

// ---- What is left over ---------------------------------------------------------------------------------------------

std::string place(const CallInst& call) {
    const llvm::DILocation* location = call.getDebugLoc();
    if (!location) return "";
    return location->getFilename().str() + ":" + std::to_string(location->getLine()) + ":" +
           std::to_string(location->getColumn()) + ": ";
}

/// Every built-in that a kernel could be made for, by symbol.
const std::map<std::string, builtins::Builtin>& possible_builtins() {
    static const std::map<std::string, builtins::Builtin> table = [] {
        std::map<std::string, builtins::Builtin> found;
        std::vector<const Family*> all;
        for (const Family& family : families()) all.push_back(&family);
        for (const builtins::Builtin& builtin : builtins::catalogue(all, builtins::Plain::standard))
            found.emplace(builtins::symbol(builtin, {}), builtin);
        return found;
    }();
    return table;
}

/// Throws if a call has no definition but the library's, or the client's own.
void require_definitions(llvm::Module& module) {
    std::string complaints;
    std::set<std::string> missing;
    bool unknown = false;
    for (const CallInst* call : open_calls(module)) {
        const std::string symbol = call->getCalledFunction()->getName().str();
        if (symbol.starts_with(export_prefix)) continue;
        complaints += "\n" + place(*call);
        const auto possible = possible_builtins().find(symbol);
        if (possible == possible_builtins().end()) {
            complaints += "error: nothing defines the function '" + llvm::demangle(symbol) + "'";
            unknown = true;
            continue;
        }
        const builtins::Builtin& builtin = possible->second;
        missing.insert(builtin.signature());
        complaints += "error: the library has no kernel for the built-in '" + builtin.signature() + "'";
        if (builtin.family) complaints += " (family " + builtin.family->name() + ")";
    }
    if (complaints.empty()) return;
    const std::string message = "the program calls functions that nothing stands for:" + complaints;
    if (unknown) throw Failure(message);
    std::string list;
    for (const std::string& name : missing) list += (list.empty() ? "" : ", ") + name;
    throw MissingKernels(message, list);
}

// ---- The work-item -------------------------------------------------------------------------------------------------

llvm::GlobalVariable* hidden_word(llvm::Module& module, const char* name) {
    if (llvm::GlobalVariable* known = module.getNamedGlobal(name)) return known;
    llvm::Type* word = llvm::Type::getInt64Ty(module.getContext());
    return new llvm::GlobalVariable(module, word, false, llvm::GlobalValue::InternalLinkage,
                                    llvm::ConstantInt::get(word, 0), name);
}

/// Defines the function that returns a word.
void define_reader(llvm::Module& module, const char* name, llvm::GlobalVariable* word) {
    Function* function = module.getFunction(name);
    if (!function) return;
    Builder builder(llvm::BasicBlock::Create(module.getContext(), "", function));
    builder.CreateRet(builder.CreateLoad(word->getValueType(), word));
    function->setLinkage(llvm::GlobalValue::InternalLinkage);
}

}  // namespace

WorkItem work_item(llvm::Module& module) {
    return {hidden_word(module, "tuvo.global_id"), hidden_word(module, "tuvo.global_size")};
}

void bind_builtins(llvm::Module& module, const BindOptions& options) {
    check_builtins(options.builtins);
    auto builtins = open_module(module.getContext(), options.builtins);
    for (Function& function : *builtins) function.setCallingConv(llvm::CallingConv::C);
    builtins->setDataLayout(module.getDataLayout());
    builtins->setTargetTriple(module.getTargetTriple());
    if (!options.scalar_libm) call_divisions(module, *builtins);
    link(module, std::move(builtins), options.builtins);
    auto plain = open_module(module.getContext(), TUVO_PLAIN_BUILTINS);
    llvm::cantFail(plain->materializeAll());
    use_c_calls(*plain);
    plain->setDataLayout(module.getDataLayout());
    plain->setTargetTriple(module.getTargetTriple());
    link(module, std::move(plain), TUVO_PLAIN_BUILTINS);
    define_reader(module, "tuvo_global_id", work_item(module).global_id);
    define_reader(module, "tuvo_global_size", work_item(module).global_size);
    require_definitions(module);
    keep_variants_in_use(module);
    drop_unused(module);
    if (options.scalar_libm) give_scalar_bodies(module);
    // Source lines have done their duty in the messages.
    llvm::StripDebugInfo(module);
}

}  // namespace tuvo::client

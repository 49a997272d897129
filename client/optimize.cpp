#include "client/optimize.hpp"

#include <llvm/Passes/PassBuilder.h>
#include <llvm/Target/TargetMachine.h>
#include <llvm/Transforms/IPO/AlwaysInliner.h>
#include <llvm/Transforms/IPO/GlobalDCE.h>

#include "client/compile.hpp"

namespace tuvo::client {
namespace {

/// Runs passes that `choose` names.
template <typename Choose>
void run_passes(llvm::Module& module, llvm::PassBuilder& builder, Choose choose) {
    llvm::LoopAnalysisManager loops;
    llvm::FunctionAnalysisManager functions;
    llvm::CGSCCAnalysisManager components;
    llvm::ModuleAnalysisManager modules;
    builder.registerModuleAnalyses(modules);
    builder.registerCGSCCAnalyses(components);
    builder.registerFunctionAnalyses(functions);
    builder.registerLoopAnalyses(loops);
    builder.crossRegisterProxies(loops, functions, components, modules);
    choose().run(module, modules);
}

}  // namespace

void drop_unused(llvm::Module& module) {
    llvm::PassBuilder builder;
    run_passes(module, builder, [] {
        llvm::ModulePassManager passes;
        passes.addPass(llvm::GlobalDCEPass());
        return passes;
    });
}

void inline_calls(llvm::Module& module) {
    llvm::PassBuilder builder;
    run_passes(module, builder, [] {
        llvm::ModulePassManager passes;
        passes.addPass(llvm::AlwaysInlinerPass());
        passes.addPass(llvm::GlobalDCEPass());
        return passes;
    });
}

void optimize(llvm::Module& module, const std::string& features, bool vectorize) {
    const auto machine = llvm::cantFail(target_machine(features).createTargetMachine());
    llvm::PipelineTuningOptions options;
    options.LoopVectorization = vectorize;
    options.LoopInterleaving = vectorize;
    options.SLPVectorization = false;
    llvm::PassBuilder builder(machine.get(), options);
    run_passes(module, builder, [&] { return builder.buildPerModuleDefaultPipeline(llvm::OptimizationLevel::O2); });
    // What was kept for the vectoriser has been taken or won't be.
    if (llvm::GlobalVariable* kept = module.getNamedGlobal("llvm.compiler.used")) kept->eraseFromParent();
    inline_calls(module);
}

}  // namespace tuvo::client

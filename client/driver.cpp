#include "client/driver.hpp"

#include <llvm/Analysis/ValueTracking.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/InstIterator.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/Metadata.h>
#include <llvm/Transforms/Utils/Cloning.h>

#include "client/bind.hpp"

namespace tuvo::client {
namespace {

using llvm::Function;
using llvm::Type;
using llvm::Value;
using Builder = llvm::IRBuilder<>;

constexpr unsigned local_memory = 3;

/// A driver while it is made.
struct Loop {
    Function* function;
    llvm::CallInst* call;      ///< of the kernel
    Value* id;                 ///< of the work-item, a 64-bit integer
    llvm::BranchInst* repeat;  ///< back to the next work-item
};

/// Ids count up in 64 bits, or in 32 where they fit: programs keep them in int, and then no conversion stands between
/// the count and an address.
Loop add_loop(llvm::Module& module, Function& kernel, bool narrow) {
    llvm::LLVMContext& context = module.getContext();
    Type* word = Type::getInt64Ty(context);
    Type* counter = narrow ? Type::getInt32Ty(context) : word;
    Type* address = llvm::PointerType::get(Type::getInt8Ty(context), 0);
    auto* type = llvm::FunctionType::get(Type::getVoidTy(context),
                                         {llvm::PointerType::get(address, 0), word, word, word}, false);
    auto* driver =
        Function::Create(type, Function::ExternalLinkage, driver_name(kernel.getName().str(), narrow), module);
    driver->addFnAttrs(llvm::AttrBuilder(context, kernel.getAttributes().getFnAttrs()));
    Value* values = driver->getArg(0);

    auto* entry = llvm::BasicBlock::Create(context, "entry", driver);
    auto* loop = llvm::BasicBlock::Create(context, "loop", driver);
    auto* done = llvm::BasicBlock::Create(context, "done", driver);
    Builder builder(entry);
    const WorkItem item = work_item(module);
    if (!narrow) builder.CreateStore(driver->getArg(3), item.global_size);
    std::vector<Value*> arguments;
    for (unsigned i = 0; i < kernel.arg_size(); ++i) {
        Type* value_type = kernel.getArg(i)->getType();
        Value* slot = builder.CreateLoad(address, builder.CreateConstGEP1_64(address, values, i));
        Value* typed = builder.CreateBitCast(slot, llvm::PointerType::get(value_type, 0));
        arguments.push_back(builder.CreateAlignedLoad(value_type, typed, llvm::Align(1)));
    }
    Value* first = builder.CreateTrunc(driver->getArg(1), counter);
    Value* last = builder.CreateTrunc(driver->getArg(2), counter);
    builder.CreateBr(loop);

    builder.SetInsertPoint(loop);
    llvm::PHINode* count = builder.CreatePHI(counter, 2);
    Value* id = builder.CreateZExt(count, word);
    if (!narrow) builder.CreateStore(id, item.global_id);
    llvm::CallInst* call = builder.CreateCall(&kernel, arguments);
    Value* next = builder.CreateAdd(count, llvm::ConstantInt::get(counter, 1), "", true, narrow);
    llvm::BranchInst* repeat = builder.CreateCondBr(builder.CreateICmpNE(next, last), loop, done);
    count->addIncoming(first, entry);
    count->addIncoming(next, loop);
    builder.SetInsertPoint(done);
    builder.CreateRetVoid();
    return {driver, call, id, repeat};
}

/// Lets what the function reads of the work-item be the value itself.
void replace_reads(Function& function, llvm::GlobalVariable* word, Value* value) {
    std::vector<llvm::LoadInst*> loads;
    for (llvm::User* user : word->users())
        if (auto* load = llvm::dyn_cast<llvm::LoadInst>(user); load && load->getFunction() == &function)
            loads.push_back(load);
    for (llvm::LoadInst* load : loads) {
        load->replaceAllUsesWith(value);
        load->eraseFromParent();
    }
}

bool is_local(const Value* pointer) {
    return pointer->getType()->isPointerTy() && pointer->getType()->getPointerAddressSpace() == local_memory;
}

/// Whether work-items share something in an order that counts: atomic operations, or local memory, of which there is
/// one for all of them here.
bool needs_order(const Function& function) {
    for (const llvm::Instruction& instruction : llvm::instructions(function)) {
        if (instruction.isAtomic()) return true;
        for (const Value* operand : instruction.operands())
            if (is_local(operand)) return true;
    }
    return false;
}

/// Tells the optimizer that no work-item waits for what another one stores. Private memory is another matter: all of
/// them have the same stack.
void mark_parallel(const Loop& loop) {
    llvm::LLVMContext& context = loop.function->getContext();
    llvm::MDNode* group = llvm::MDNode::getDistinct(context, {});
    for (llvm::BasicBlock& block : *loop.function)
        for (llvm::Instruction& instruction : block) {
            const Value* pointer = llvm::getLoadStorePointerOperand(&instruction);
            if (pointer && !llvm::isa<llvm::AllocaInst>(llvm::getUnderlyingObject(pointer, 0)))
                instruction.setMetadata(llvm::LLVMContext::MD_access_group, group);
        }
    auto* accesses = llvm::MDNode::get(context, {llvm::MDString::get(context, "llvm.loop.parallel_accesses"), group});
    auto* marks = llvm::MDNode::getDistinct(context, {nullptr, accesses});
    marks->replaceOperandWith(0, marks);
    loop.repeat->setMetadata(llvm::LLVMContext::MD_loop, marks);
}

}  // namespace

std::string driver_name(const std::string& kernel, bool narrow) {
    return (narrow ? "tuvo.run." : "tuvo.run_long.") + kernel;
}

void add_drivers(llvm::Module& module, Function& kernel) {
    add_loop(module, kernel, false);
    const Loop loop = add_loop(module, kernel, true);
    const WorkItem item = work_item(module);
    const bool ordered = needs_order(kernel);
    llvm::InlineFunctionInfo how;
    llvm::InlineFunction(*loop.call, how);
    replace_reads(*loop.function, item.global_id, loop.id);
    replace_reads(*loop.function, item.global_size, loop.function->getArg(3));
    if (!ordered) mark_parallel(loop);
}

}  // namespace tuvo::client

#include "client/scalar_bodies.hpp"

#include <stdexcept>

#include <llvm/IR/IRBuilder.h>

#include "builtins/abi.hpp"
#include "client/scalar_functions.hpp"

namespace tuvo::client {
namespace {

using llvm::Function;
using llvm::Type;
using llvm::Value;
using Builder = llvm::IRBuilder<>;

Type* llvm_type(llvm::LLVMContext& context, Lane lane) {
    if (lane == Lane::f32) return Type::getFloatTy(context);
    if (lane == Lane::f64) return Type::getDoubleTy(context);
    return Type::getIntNTy(context, static_cast<unsigned>(lane_size(lane)) * 8);
}

/// A value of the call: registers of some lanes each, or an array behind a pointer.
struct Source {
    std::vector<Value*> registers;
    Value* pointer = nullptr;
    Type* element;

    Value* lane(Builder& builder, int index) const {
        if (pointer) return builder.CreateLoad(element, element_pointer(builder, index));
        if (!registers[0]->getType()->isVectorTy()) return registers[0];
        const int lanes =
            static_cast<int>(llvm::cast<llvm::FixedVectorType>(registers[0]->getType())->getNumElements());
        return builder.CreateExtractElement(registers[static_cast<std::size_t>(index / lanes)],
                                            builder.getInt32(static_cast<unsigned>(index % lanes)));
    }
    Value* element_pointer(Builder& builder, int index) const {
        Value* typed = builder.CreateBitCast(pointer, llvm::PointerType::get(element, 0));
        return builder.CreateConstGEP1_32(element, typed, static_cast<unsigned>(index));
    }
};

/// The arguments of a kernel; `next` runs over the function's parameters.
std::vector<Source> arguments_of(Function& function, const Family& family, int width, unsigned next) {
    std::vector<Source> arguments;
    const bool in_memory = call_form(family, width) == Form::memory;
    for (Lane lane : family.arguments) {
        Source source{{}, nullptr, llvm_type(function.getContext(), lane)};
        if (in_memory)
            source.pointer = function.getArg(next++);
        else
            for (std::size_t i = width == 1 ? 1 : part_bits(lane, width).size(); i > 0; --i)
                source.registers.push_back(function.getArg(next++));
        arguments.push_back(source);
    }
    return arguments;
}

/// Stores lane after lane into the registers of a result, which may be one, several, or a scalar.
Value* joined(Builder& builder, Type* type, const std::vector<Value*>& lanes) {
    if (!type->isStructTy() && !type->isVectorTy()) return lanes[0];
    Value* result = llvm::PoisonValue::get(type);
    std::size_t lane = 0;
    const auto fill = [&](Type* part) {
        Value* vector = llvm::PoisonValue::get(part);
        for (unsigned i = 0; i < llvm::cast<llvm::FixedVectorType>(part)->getNumElements() && lane < lanes.size(); ++i)
            vector = builder.CreateInsertElement(vector, lanes[lane++], builder.getInt32(i));
        return vector;
    };
    if (type->isVectorTy()) return fill(type);
    for (unsigned i = 0; i < type->getStructNumElements(); ++i)
        result = builder.CreateInsertValue(result, fill(type->getStructElementType(i)), i);
    return result;
}

void give_body(Function& function, const Family& family, int width) {
    const void* scalar = scalar_function(family);
    if (!scalar) throw std::logic_error("there is no scalar function for " + family.name());
    if (family.results.size() != 1)
        throw std::logic_error("scalar functions return one value, not as " + family.name());
    llvm::LLVMContext& context = function.getContext();
    Builder builder(llvm::BasicBlock::Create(context, "", &function));
    const bool in_memory = call_form(family, width) == Form::memory;
    const Source result{{}, in_memory ? function.getArg(0) : nullptr, llvm_type(context, family.results[0])};
    const unsigned first = in_memory ? 1 : 0;
    Source out{{}, nullptr, nullptr};
    if (family.out) out = {{}, function.getArg(first), llvm_type(context, *family.out)};
    const std::vector<Source> arguments = arguments_of(function, family, width, first + (family.out ? 1 : 0));
    std::vector<Value*> lanes;
    for (int lane = 0; lane < width; ++lane) {
        std::vector<Value*> operands;
        std::vector<Type*> types;
        for (const Source& argument : arguments) operands.push_back(argument.lane(builder, lane));
        if (family.out) operands.push_back(out.element_pointer(builder, lane));
        for (const Value* operand : operands) types.push_back(operand->getType());
        auto* type = llvm::FunctionType::get(result.element, types, false);
        Value* address = builder.getInt64(reinterpret_cast<std::uintptr_t>(scalar));
        Value* value =
            builder.CreateCall(type, builder.CreateIntToPtr(address, llvm::PointerType::get(type, 0)), operands);
        if (in_memory) builder.CreateStore(value, result.element_pointer(builder, lane));
        lanes.push_back(value);
    }
    in_memory ? builder.CreateRetVoid() : builder.CreateRet(joined(builder, function.getReturnType(), lanes));
    // A scalar function keeps none of the kernel's promises.
    function.setAttributes(function.getAttributes().removeFnAttributes(context));
    function.addFnAttr(llvm::Attribute::AlwaysInline);
    function.addFnAttr(llvm::Attribute::NoUnwind);
    function.setLinkage(llvm::GlobalValue::InternalLinkage);
}

}  // namespace

void give_scalar_bodies(llvm::Module& module) {
    // The vectoriser would widen calls to kernels that aren't there.
    if (llvm::GlobalVariable* kept = module.getNamedGlobal("llvm.compiler.used")) kept->eraseFromParent();
    for (Function& function : module) {
        if (!function.isDeclaration() || !function.getName().startswith(llvm::StringRef(export_prefix.data())))
            continue;
        if (function.use_empty()) continue;
        const auto readings = parse_short_name(function.getName().substr(export_prefix.size()).str());
        give_body(function, *readings.at(0).family, readings[0].width);
    }
}

}  // namespace tuvo::client

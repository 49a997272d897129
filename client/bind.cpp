#include "client/bind.hpp"

#include <array>
#include <functional>
#include <map>
#include <set>

#include <llvm/Analysis/VectorUtils.h>
#include <llvm/IR/DebugInfo.h>
#include <llvm/IR/DebugInfoMetadata.h>
#include <llvm/IR/InstIterator.h>
#include <llvm/IR/Instructions.h>
#include <llvm/IR/IntrinsicInst.h>

#include "client/failure.hpp"
#include "client/scalar_functions.hpp"

namespace tuvo::client {
namespace {

using llvm::Align;
using llvm::CallInst;
using llvm::Type;
using llvm::Value;
using Builder = llvm::IRBuilder<>;

Type* scalar_type(llvm::LLVMContext& context, Scalar scalar) {
    if (scalar == Scalar::f32) return Type::getFloatTy(context);
    if (scalar == Scalar::f64) return Type::getDoubleTy(context);
    return Type::getIntNTy(context, static_cast<unsigned>(traits(scalar).bytes) * 8);
}

Type* vector_type(Type* scalar, int lanes) {
    return lanes == 1 ? scalar : llvm::FixedVectorType::get(scalar, static_cast<unsigned>(lanes));
}

int lane_count(const Value* value) {
    const auto* vector = llvm::dyn_cast<llvm::FixedVectorType>(value->getType());
    return vector ? static_cast<int>(vector->getNumElements()) : 1;
}

Value* splat(Builder& builder, Value* value, int lanes) {
    if (lanes == 1 || value->getType()->isVectorTy()) return value;
    return builder.CreateVectorSplat(static_cast<unsigned>(lanes), value);
}

/// Lanes `first` to `first + count - 1` of a vector; those that it doesn't have are poison.
Value* slice(Builder& builder, Value* vector, int first, int count) {
    llvm::SmallVector<int, 16> mask;
    for (int lane = first; lane < first + count; ++lane) mask.push_back(lane < lane_count(vector) ? lane : -1);
    return builder.CreateShuffleVector(vector, mask);
}

// ---- Calls of kernels ----------------------------------------------------------------------------------------------

/// The types of the registers that a value crosses the call in. A scalar is the low lane of its register.
std::vector<Type*> part_types(llvm::LLVMContext& context, const KernelValue& value, int width) {
    Type* scalar = scalar_type(context, value.scalar);
    if (width == 1) return {scalar};
    std::vector<Type*> types;
    for (int bits : value.parts) types.push_back(vector_type(scalar, bits / 8 / traits(value.scalar).bytes));
    return types;
}

Type* array_type(llvm::LLVMContext& context, const KernelValue& value) {
    return llvm::ArrayType::get(scalar_type(context, value.scalar), static_cast<std::uint64_t>(value.lanes));
}

/// A stack slot of the calling function for a value that goes through memory.
Value* stack_slot(CallInst& call, Type* type) {
    Builder builder(&*call.getFunction()->getEntryBlock().getFirstInsertionPt());
    llvm::AllocaInst* slot = builder.CreateAlloca(type);
    slot->setAlignment(Align(32));
    return slot;
}

/// Type of a kernel's function, and for each pointer through which the convention passes a value, what lies behind it.
struct KernelType {
    llvm::FunctionType* function;
    std::vector<std::pair<unsigned, llvm::Attribute>> attributes;  ///< of parameters, by index
};

Type* byte_pointer(llvm::LLVMContext& context) { return llvm::PointerType::get(Type::getInt8Ty(context), 0); }

KernelType memory_form(llvm::LLVMContext& context, const Kernel& kernel) {
    KernelType type;
    std::vector<Type*> parameters;
    auto pass_behind_pointer = [&](const KernelValue& value, auto attribute) {
        Type* array = array_type(context, value);
        type.attributes.emplace_back(parameters.size(), attribute(context, array));
        parameters.push_back(llvm::PointerType::get(array, 0));
    };
    pass_behind_pointer(kernel.results.at(0), llvm::Attribute::getWithStructRetType);
    if (kernel.out) parameters.push_back(byte_pointer(context));
    for (const KernelValue& argument : kernel.arguments) {
        pass_behind_pointer(argument, llvm::Attribute::getWithByValType);
        // Arguments follow one another without gaps, whatever their type's own alignment.
        type.attributes.emplace_back(parameters.size() - 1, llvm::Attribute::getWithAlignment(context, Align(8)));
    }
    type.function = llvm::FunctionType::get(Type::getVoidTy(context), parameters, false);
    return type;
}

KernelType register_form(llvm::LLVMContext& context, const Kernel& kernel) {
    std::vector<Type*> parameters;
    if (kernel.out) parameters.push_back(byte_pointer(context));
    for (const KernelValue& argument : kernel.arguments)
        for (Type* part : part_types(context, argument, kernel.width)) parameters.push_back(part);
    const std::vector<Type*> results = part_types(context, kernel.results.at(0), kernel.width);
    Type* result = results.size() == 1 ? results[0] : llvm::StructType::get(context, results);
    return {llvm::FunctionType::get(result, parameters, false), {}};
}

llvm::Function* declare_kernel(llvm::Module& module, const Kernel& kernel) {
    if (llvm::Function* declared = module.getFunction(kernel.symbol)) return declared;
    llvm::LLVMContext& context = module.getContext();
    const KernelType type = kernel.in_memory ? memory_form(context, kernel) : register_form(context, kernel);
    auto* function = llvm::Function::Create(type.function, llvm::Function::ExternalLinkage, kernel.symbol, module);
    for (const auto& [parameter, attribute] : type.attributes) function->addParamAttr(parameter, attribute);
    function->addFnAttr(llvm::Attribute::NoUnwind);
    return function;
}

Value* join_parts(Builder& builder, Value* result, int width) {
    if (width == 1) return result;
    std::vector<Value*> parts;
    if (auto* type = llvm::dyn_cast<llvm::StructType>(result->getType()))
        for (unsigned i = 0; i < type->getNumElements(); ++i) parts.push_back(builder.CreateExtractValue(result, i));
    else
        parts.push_back(result);
    return slice(builder, llvm::concatenateVectors(builder, parts), 0, width);
}

CallInst* emit_call(Builder& builder, llvm::Function* kernel, const std::vector<Value*>& operands) {
    CallInst* call = builder.CreateCall(kernel, operands);
    call->setAttributes(kernel->getAttributes());
    return call;
}

Value* call_in_registers(Builder& builder, llvm::Function* function, const Kernel& kernel,
                         const std::vector<Value*>& arguments, Value* out) {
    std::vector<Value*> operands;
    if (out) operands.push_back(out);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        int first = 0;
        for (Type* part : part_types(builder.getContext(), kernel.arguments[i], kernel.width)) {
            auto* vector = llvm::dyn_cast<llvm::FixedVectorType>(part);
            const int lanes = vector ? static_cast<int>(vector->getNumElements()) : 1;
            operands.push_back(vector ? slice(builder, arguments[i], first, lanes) : arguments[i]);
            first += lanes;
        }
    }
    return join_parts(builder, emit_call(builder, function, operands), kernel.width);
}

Value* call_in_memory(Builder& builder, CallInst& call, llvm::Function* function, const Kernel& kernel,
                      const std::vector<Value*>& arguments, Value* out) {
    llvm::LLVMContext& context = builder.getContext();
    auto as_vector_pointer = [&](Value* slot, Type* vector) {
        return builder.CreateBitCast(slot, llvm::PointerType::get(vector, 0));
    };
    Value* result = stack_slot(call, array_type(context, kernel.results[0]));
    std::vector<Value*> operands{result};
    if (out) operands.push_back(out);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        operands.push_back(stack_slot(call, array_type(context, kernel.arguments[i])));
        Value* slot = as_vector_pointer(operands.back(), arguments[i]->getType());
        builder.CreateAlignedStore(arguments[i], slot, Align(32));
    }
    emit_call(builder, function, operands);
    return builder.CreateAlignedLoad(call.getType(), as_vector_pointer(result, call.getType()), Align(32));
}

/// Null if the kernel doesn't take what the program passes.
Value* call_kernel(Builder& builder, CallInst& call, const Kernel& kernel) {
    std::vector<Value*> arguments;
    Value* out = nullptr;
    for (Value* operand : call.args()) {
        if (operand->getType()->isPointerTy()) {
            if (out || !kernel.out) return nullptr;
            out = builder.CreatePointerBitCastOrAddrSpaceCast(operand, byte_pointer(builder.getContext()));
            continue;
        }
        // A scalar beside a vector stands for a vector of equal lanes, as in fmax(x, 0.0f).
        Value* argument = splat(builder, operand, kernel.width);
        if (arguments.size() == kernel.arguments.size()) return nullptr;
        Type* scalar = scalar_type(builder.getContext(), kernel.arguments[arguments.size()].scalar);
        if (argument->getType() != vector_type(scalar, kernel.width)) return nullptr;
        arguments.push_back(argument);
    }
    Type* result = scalar_type(builder.getContext(), kernel.results.at(0).scalar);
    const bool fits = arguments.size() == kernel.arguments.size() && kernel.results.size() == 1 &&
                      kernel.out.has_value() == (out != nullptr) && call.getType() == vector_type(result, kernel.width);
    if (!fits) return nullptr;
    llvm::Function* function = declare_kernel(*call.getModule(), kernel);
    if (kernel.in_memory) return call_in_memory(builder, call, function, kernel, arguments, out);
    return call_in_registers(builder, function, kernel, arguments, out);
}

// ---- Calls of scalar functions -------------------------------------------------------------------------------------

/// A call for each lane.
Value* call_scalars(Builder& builder, CallInst& call, const void* function) {
    const int lanes = lane_count(&call);
    const auto in_lane = [&](Value* value, int lane) -> Value* {
        return value->getType()->isVectorTy() ? builder.CreateExtractElement(value, builder.getInt32(lane)) : value;
    };
    Value* result = llvm::PoisonValue::get(call.getType());
    for (int lane = 0; lane < lanes; ++lane) {
        std::vector<Value*> operands;
        std::vector<Type*> types;
        for (Value* operand : call.args()) {
            if (operand->getType()->isPointerTy()) {
                Type* element = call.getType()->getScalarType();
                Type* pointer = llvm::PointerType::get(element, 0);
                operand = builder.CreatePointerBitCastOrAddrSpaceCast(operand, pointer);
                operand = builder.CreateConstGEP1_32(element, operand, lane);
            }
            operands.push_back(in_lane(operand, lane));
            types.push_back(operands.back()->getType());
        }
        auto* type = llvm::FunctionType::get(call.getType()->getScalarType(), types, false);
        Value* address = builder.getInt64(reinterpret_cast<std::uintptr_t>(function));
        Value* value =
            builder.CreateCall(type, builder.CreateIntToPtr(address, llvm::PointerType::get(type, 0)), operands);
        result = lanes == 1 ? value : builder.CreateInsertElement(result, value, builder.getInt32(lane));
    }
    return result;
}

// ---- Built-ins that need no kernel ---------------------------------------------------------------------------------

llvm::GlobalVariable* hidden_word(llvm::Module& module, const char* name) {
    if (llvm::GlobalVariable* known = module.getNamedGlobal(name)) return known;
    Type* word = Type::getInt64Ty(module.getContext());
    return new llvm::GlobalVariable(module, word, false, llvm::GlobalValue::InternalLinkage,
                                    llvm::ConstantInt::get(word, 0), name);
}

/// The word in dimension 0, `elsewhere` in the others.
Value* in_dimension(Builder& builder, CallInst& call, llvm::GlobalVariable* word, std::uint64_t elsewhere) {
    Value* is_first = builder.CreateICmpEQ(call.getArgOperand(0), builder.getInt32(0));
    return builder.CreateSelect(is_first, builder.CreateLoad(builder.getInt64Ty(), word), builder.getInt64(elsewhere));
}

using InlineBuiltin = std::function<Value*(Builder&, CallInst&, const Builtin&)>;

Value* vector_pointer(Builder& builder, Value* base, Value* index, Type* vector) {
    const unsigned lanes = llvm::cast<llvm::FixedVectorType>(vector)->getNumElements();
    Type* scalar = vector->getScalarType();
    Value* element = builder.CreateGEP(scalar, base, builder.CreateMul(index, builder.getInt64(lanes)));
    return builder.CreateBitCast(element, llvm::PointerType::get(vector, base->getType()->getPointerAddressSpace()));
}

Align element_alignment(Type* vector) { return Align(vector->getScalarSizeInBits() / 8); }

Value* load_vector(Builder& builder, CallInst& call, const Builtin&) {
    Value* pointer = vector_pointer(builder, call.getArgOperand(1), call.getArgOperand(0), call.getType());
    return builder.CreateAlignedLoad(call.getType(), pointer, element_alignment(call.getType()));
}

Value* store_vector(Builder& builder, CallInst& call, const Builtin&) {
    Value* vector = call.getArgOperand(0);
    Value* pointer = vector_pointer(builder, call.getArgOperand(2), call.getArgOperand(1), vector->getType());
    return builder.CreateAlignedStore(vector, pointer, element_alignment(vector->getType()));
}

/// Smaller or larger of two values; the first one where neither is.
Value* extremum(Builder& builder, Value* first, Value* second, Scalar scalar, bool larger) {
    const ScalarTraits& type = traits(scalar);
    Value* below = larger ? first : second;
    Value* above = larger ? second : first;
    Value* take_second = type.floating    ? builder.CreateFCmpOLT(below, above)
                         : type.is_signed ? builder.CreateICmpSLT(below, above)
                                          : builder.CreateICmpULT(below, above);
    return builder.CreateSelect(take_second, second, first);
}

InlineBuiltin constant(std::uint64_t value) {
    return [value](Builder&, CallInst& call, const Builtin&) { return llvm::ConstantInt::get(call.getType(), value); };
}

/// For built-ins without a result: any value will do, since nothing uses it.
Value* nothing(Builder& builder, CallInst&, const Builtin&) { return builder.getTrue(); }

Value* item_index(Builder& builder, CallInst& call, const Builtin&) {
    return in_dimension(builder, call, work_item(*call.getModule()).global_id, 0);
}

Value* item_count(Builder& builder, CallInst& call, const Builtin&) {
    return in_dimension(builder, call, work_item(*call.getModule()).global_size, 1);
}

Value* multiply_add(Builder& builder, CallInst& call, const Builtin&) {
    Value* product = builder.CreateFMul(call.getArgOperand(0), call.getArgOperand(1));
    return builder.CreateFAdd(product, call.getArgOperand(2));
}

template <bool larger>
Value* minimum_maximum(Builder& builder, CallInst& call, const Builtin& builtin) {
    Value* second = splat(builder, call.getArgOperand(1), builtin.lanes);
    return extremum(builder, call.getArgOperand(0), second, *builtin.scalar, larger);
}

Value* clamp(Builder& builder, CallInst& call, const Builtin& builtin) {
    Value* low = splat(builder, call.getArgOperand(1), builtin.lanes);
    Value* high = splat(builder, call.getArgOperand(2), builtin.lanes);
    Value* raised = extremum(builder, call.getArgOperand(0), low, *builtin.scalar, true);
    return extremum(builder, raised, high, *builtin.scalar, false);
}

/// A barrier has nobody to wait for in a work-group of one.
const std::map<std::string, InlineBuiltin>& inline_builtins() {
    static const std::map<std::string, InlineBuiltin> table{
        {"get_global_id", item_index},
        {"get_group_id", item_index},
        {"get_global_size", item_count},
        {"get_num_groups", item_count},
        {"get_local_id", constant(0)},
        {"get_global_offset", constant(0)},
        {"get_local_size", constant(1)},
        {"get_work_dim", constant(1)},
        {"barrier", nothing},
        {"work_group_barrier", nothing},
        {"mem_fence", nothing},
        {"read_mem_fence", nothing},
        {"write_mem_fence", nothing},
        {"mad", multiply_add},
        {"min", minimum_maximum<false>},
        {"max", minimum_maximum<true>},
        {"clamp", clamp},
        {"vload2", load_vector},
        {"vload3", load_vector},
        {"vload4", load_vector},
        {"vload8", load_vector},
        {"vload16", load_vector},
        {"vstore2", store_vector},
        {"vstore3", store_vector},
        {"vstore4", store_vector},
        {"vstore8", store_vector},
        {"vstore16", store_vector},
    };
    return table;
}

/// Conversions between integers, and those that are exact; null for the others.
Value* convert_exactly(Builder& builder, CallInst& call, const Builtin& builtin, const Conversion& conversion) {
    if (!builtin.scalar) return nullptr;
    Value* value = call.getArgOperand(0);
    const ScalarTraits& from = traits(*builtin.scalar);
    const ScalarTraits& to = traits(conversion.target);
    if (from.scalar == to.scalar) return value;
    if (conversion.saturated) return nullptr;
    if (!from.floating && !to.floating) return builder.CreateIntCast(value, call.getType(), from.is_signed);
    if (from.scalar == Scalar::f32 && to.floating) return builder.CreateFPExt(value, call.getType());
    if (from.floating || from.bytes >= 4) return nullptr;
    return from.is_signed ? builder.CreateSIToFP(value, call.getType()) : builder.CreateUIToFP(value, call.getType());
}

Value* expand_inline(Builder& builder, CallInst& call, const Builtin& builtin) {
    if (const auto conversion = parse_conversion(builtin.name))
        return convert_exactly(builder, call, builtin, *conversion);
    const auto found = inline_builtins().find(builtin.name);
    return found == inline_builtins().end() ? nullptr : found->second(builder, call, builtin);
}

// ---- The walk over a module ----------------------------------------------------------------------------------------

const Kernel* find_kernel(const Manifest& manifest, const KernelKey& key, bool relaxed_math) {
    if (relaxed_math && key.tier.empty()) {
        KernelKey relaxed = key;
        relaxed.tier = "rm";
        if (const auto found = manifest.find(relaxed); found != manifest.end()) return &found->second;
    }
    const auto found = manifest.find(key);
    return found == manifest.end() ? nullptr : &found->second;
}

/// What stands in for the call, or null if nothing can.
Value* replacement(CallInst& call, const std::optional<Builtin>& builtin, const Manifest& manifest,
                   const BindOptions& options) {
    if (!builtin) return nullptr;
    Builder builder(&call);
    if (Value* value = expand_inline(builder, call, *builtin)) return value;
    const std::optional<KernelKey> key = requested_kernel(*builtin);
    if (!key) return nullptr;
    if (options.scalar_libm) {
        const void* function = scalar_function(*key);
        if (!function) throw std::logic_error("there is no scalar function for " + key->operation);
        return call_scalars(builder, call, function);
    }
    const Kernel* kernel = find_kernel(manifest, *key, options.relaxed_math);
    return kernel ? call_kernel(builder, call, *kernel) : nullptr;
}

void replace(llvm::Instruction& instruction, Value* value) {
    if (!instruction.getType()->isVoidTy()) instruction.replaceAllUsesWith(value);
    instruction.eraseFromParent();
}

std::string place(const CallInst& call) {
    const llvm::DILocation* location = call.getDebugLoc();
    if (!location) return "";
    return location->getFilename().str() + ":" + std::to_string(location->getLine()) + ":" +
           std::to_string(location->getColumn()) + ": ";
}

std::string complaint(const CallInst& call, const std::optional<Builtin>& builtin) {
    const std::string function = call.getCalledFunction()->getName().str();
    if (!builtin) return place(call) + "error: the client has no function '" + function + "'";
    std::string text = place(call) + "error: the library has no kernel for the built-in '" + builtin->signature() + "'";
    if (const auto key = requested_kernel(*builtin))
        text += " (operation " + key->operation + (key->tier.empty() ? "" : ", tier " + key->tier) + ")";
    return text;
}

void bind_calls(llvm::Module& module, const Manifest& manifest, const BindOptions& options) {
    std::vector<CallInst*> calls;
    for (llvm::Function& function : module)
        for (llvm::Instruction& instruction : llvm::instructions(function))
            if (auto* call = llvm::dyn_cast<CallInst>(&instruction); call && !llvm::isa<llvm::IntrinsicInst>(call))
                if (call->getCalledFunction() && call->getCalledFunction()->isDeclaration()) calls.push_back(call);

    std::string complaints;
    bool unknown = false;  // not even to the operation table
    std::string missing;
    std::set<llvm::Function*> replaced;
    for (CallInst* call : calls) {
        llvm::Function* callee = call->getCalledFunction();
        const std::optional<Builtin> builtin = parse_mangled(callee->getName().str());
        if (Value* value = replacement(*call, builtin, manifest, options)) {
            replace(*call, value);
            replaced.insert(callee);
        } else {
            complaints += '\n';
            complaints += complaint(*call, builtin);
            unknown = unknown || !builtin || !requested_kernel(*builtin);
            const std::string name = builtin ? builtin->signature() : "";
            if (missing.find(name) == std::string::npos) missing += (missing.empty() ? "" : ", ") + name;
        }
    }
    const std::string message = "the program calls functions that nothing stands for:" + complaints;
    if (unknown) throw Failure(message);
    if (!complaints.empty()) throw MissingKernels(message, missing);
    for (llvm::Function* function : replaced)
        if (function->use_empty()) function->eraseFromParent();
}

struct Division {
    unsigned opcode;
    const char* operation;
    Scalar element;
};

constexpr std::array<Division, 4> divisions{{
    {llvm::Instruction::SDiv, "idiv", Scalar::i32},
    {llvm::Instruction::SRem, "irem", Scalar::i32},
    {llvm::Instruction::UDiv, "udiv", Scalar::u32},
    {llvm::Instruction::URem, "urem", Scalar::u32},
}};

/// A constant divisor can't trap and becomes multiplications: such divisions stay.
void bind_divisions(llvm::Module& module, const Manifest& manifest) {
    std::vector<std::pair<llvm::BinaryOperator*, const Kernel*>> bound;
    for (llvm::Function& function : module)
        for (llvm::Instruction& instruction : llvm::instructions(function))
            for (const Division& division : divisions) {
                if (instruction.getOpcode() != division.opcode || !instruction.getType()->isIntOrIntVectorTy(32) ||
                    llvm::isa<llvm::Constant>(instruction.getOperand(1)))
                    continue;
                const auto found = manifest.find({division.operation, "", division.element, lane_count(&instruction)});
                if (found != manifest.end())
                    bound.emplace_back(llvm::cast<llvm::BinaryOperator>(&instruction), &found->second);
            }
    for (const auto& [instruction, kernel] : bound) {
        Builder builder(instruction);
        llvm::Function* function = declare_kernel(module, *kernel);
        replace(*instruction, call_in_registers(builder, function, *kernel,
                                                {instruction->getOperand(0), instruction->getOperand(1)}, nullptr));
    }
}

}  // namespace

WorkItem work_item(llvm::Module& module) {
    return {hidden_word(module, "tuvo.global_id"), hidden_word(module, "tuvo.global_size")};
}

void bind_builtins(llvm::Module& module, const Manifest& manifest, const BindOptions& options) {
    bind_calls(module, manifest, options);
    if (!options.scalar_libm) bind_divisions(module, manifest);
    // Source lines have done their duty in the messages.
    llvm::StripDebugInfo(module);
}

}  // namespace tuvo::client

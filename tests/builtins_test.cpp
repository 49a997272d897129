// The built-ins in bitcode: that none is missing, misspelt or passed another way than clang passes it, that each gives
// what its kernel gives, and that every release of LLVM takes them.
#include <gtest/gtest.h>
#include <llvm/ExecutionEngine/Orc/LLJIT.h>
#include <llvm/IR/IRBuilder.h>
#include <llvm/IR/Verifier.h>
#include <llvm/IRReader/IRReader.h>
#include <llvm/Support/SourceMgr.h>
#include <llvm/Support/TargetSelect.h>
#include <unistd.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "builtins/write_ir.hpp"
#include "tests/call.hpp"
#include "tests/library.hpp"
#include "tests/oracle.hpp"

namespace tuvo::builtins {
namespace {

namespace fs = std::filesystem;

std::string read_text(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Each test works in a folder of its own.
class Builtins : public testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("tuvo-builtins-test-" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    /// Runs a command in the folder, with what it says in `said`; whether it succeeded.
    bool runs(const std::string& command) {
        const int status = std::system(("cd '" + folder.string() + "' && " + command + " > said 2>&1").c_str());
        said = read_text(folder / "said");
        return status == 0;
    }
    std::unique_ptr<llvm::Module> parse(const fs::path& path) {
        llvm::SMDiagnostic diagnostic;
        auto module = llvm::parseIRFile((folder / path).string(), diagnostic, context);
        if (!module) ADD_FAILURE() << path << ": " << diagnostic.getMessage().str();
        return module;
    }

    fs::path folder;
    std::string said;
    llvm::LLVMContext context;
};

// ---- Names and types, beside clang's -------------------------------------------------------------------------------

/// A declaration of OpenCL C: types as they are written, pointers with their address space.
struct Declaration {
    std::string result, name;
    std::vector<std::string> parameters;

    std::string key() const {
        std::string text = name;
        for (const std::string& parameter : parameters) text += "," + parameter;
        return text;
    }
};

/// The declarations in preprocessed OpenCL C whose types are numbers, vectors and pointers to them. `unqualified` is
/// where a pointer without address space points.
std::vector<Declaration> declarations(const std::string& text, const std::string& unqualified) {
    static const std::string type = "(?:u?(?:char|short|int|long)|float|double)(?:2|3|4|8|16)?";
    static const std::regex declaration("(" + type + ") (?:__attribute__\\(\\(\\w+\\)\\)\\s*)+ ?(\\w+) ?\\(([^;]*)\\)");
    static const std::regex parameter(" *(?:__(private|global|local|generic) )?(" + type + ") *(\\*?) *\\w* *");
    std::vector<Declaration> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line, ';');) {
        std::replace(line.begin(), line.end(), '\n', ' ');
        std::smatch match;
        const std::size_t last = line.find_last_of('}');
        if (last != std::string::npos) line.erase(0, last + 1);
        line.erase(0, line.find_first_not_of(' '));
        if (!std::regex_match(line, match, declaration)) continue;
        Declaration entry{match[1], match[2], {}};
        std::istringstream list(match[3].str());
        bool sound = true;
        for (std::string piece; std::getline(list, piece, ',');) {
            std::smatch words;
            sound = sound && std::regex_match(piece, words, parameter);
            if (!sound) break;
            const std::string space = words[1].matched ? words[1].str() : unqualified;
            entry.parameters.push_back(words[3].length() == 0 ? words[2].str() : space + " " + words[2].str() + "*");
        }
        if (sound) found.push_back(entry);
    }
    return found;
}

std::string spelling(const Type& type) {
    return std::string(traits(type.scalar).opencl) + (type.lanes > 1 ? std::to_string(type.lanes) : "");
}

Declaration declaration_of(const Builtin& builtin) {
    static const std::map<Space, std::string> spaces{{Space::private_memory, "private"},
                                                     {Space::global, "global"},
                                                     {Space::local, "local"},
                                                     {Space::generic, "generic"}};
    Declaration entry{spelling(builtin.results[0]), builtin.name, {}};
    for (const auto& [type, space] : builtin.parameters)
        entry.parameters.push_back(space == Space::none ? spelling(type)
                                                        : spaces.at(space) + " " + spelling(type) + "*");
    return entry;
}

/// The family that a built-in of the language asks for by its name, if the table has one.
const Family* family_asked_for(const Declaration& builtin) {
    static const std::map<std::string, std::string> other_names{
        {"recip", "inv"}, {"divide", "div"}, {"lgamma_r", "lgammar"}};
    std::string operation = builtin.name, tier;
    for (const std::string word : {"native", "half"})
        if (operation.starts_with(word + "_")) {
            operation.erase(0, word.size() + 1);
            tier = "_" + word;
        }
    if (const auto other = other_names.find(operation); other != other_names.end()) operation = other->second;
    const bool is_double = builtin.result.starts_with("double") || builtin.parameters[0].starts_with("double");
    const Family* family = find_family(operation + (is_double ? "" : "f") + tier);
    // Integer built-ins of the same name are others: "fmax" has none, but "max" would.
    return family && is_floating(family->element) ? family : nullptr;
}

/// OpenCL C that declares each, and calls it.
std::string calls_of(const std::map<std::string, Declaration>& all) {
    std::string text = "#pragma OPENCL EXTENSION cl_khr_fp64 : enable\n";
    int number = 0;
    for (const auto& [key, entry] : all) {
        std::string types, named, values;
        for (const std::string& parameter : entry.parameters) {
            const std::string type = parameter.ends_with('*') ? "__" + parameter : parameter;
            const std::string name = "a" + std::to_string(values.size());
            types += (types.empty() ? "" : ", ") + type;
            named += (named.empty() ? "" : ", ") + type + " " + name;
            values += (values.empty() ? "" : ", ") + name;
        }
        text += entry.result + " __attribute__((overloadable)) " + entry.name + "(" + types + ");\n" + entry.result +
                " f" + std::to_string(number++) + "(" + named + ") { return " + entry.name + "(" + values + "); }\n";
    }
    return text;
}

struct Compiler {
    const char* name;
    Target target;
    int register_bits;
    const char* words;  ///< of clang's command line
};
const Compiler compilers[] = {
    {"spir", Target::spir, 256, "-target spir64"},
    {"sse", Target::x86_64, 128, "-target x86_64-linux-gnu"},
    {"avx", Target::x86_64, 256, "-target x86_64-linux-gnu -mavx"},
    {"avx512", Target::x86_64, 512, "-target x86_64-linux-gnu -mavx512f"},
};

std::string type_text(const llvm::Type* type) {
    std::string text;
    llvm::raw_string_ostream stream(text);
    type->print(stream);
    return stream.str();
}

/// A function's type, with what it takes in copies behind pointers.
std::string call_text(const llvm::Function& function) {
    std::string text =
        type_text(function.getFunctionType()) + " convention " + std::to_string(function.getCallingConv());
    for (const llvm::Argument& argument : function.args())
        if (argument.hasByValAttr())
            text += " byval " + std::to_string(argument.getArgNo()) + ": " + type_text(argument.getParamByValType()) +
                    " align " + std::to_string(argument.getParamAlign().valueOrOne().value());
    return text;
}

class ClangsCalls : public Builtins, public testing::WithParamInterface<Compiler> {};

TEST_P(ClangsCalls, AreDefined) {
    const Compiler& compiler = GetParam();
    const std::string clang = std::string("'" TUVO_CLANG "' -x cl ") + compiler.words;
    std::map<std::string, Declaration> wanted;
    for (const auto& [standard, unqualified] : {std::pair("CL1.2", "private"), std::pair("CL3.0", "generic")}) {
        ASSERT_TRUE(runs(clang + " -E -P -target spir64 -cl-std=" + standard + " -include opencl-c.h /dev/null"))
            << said;
        for (const Declaration& entry : declarations(said, unqualified)) {
            if (entry.parameters.empty()) continue;
            const Family* family = family_asked_for(entry);
            const bool built = family && find_kernel(*family, 1) != nullptr;
            if (built || entry.name.starts_with("convert_")) wanted.emplace(entry.key(), entry);
        }
    }
    const std::size_t of_the_language = wanted.size();
    const std::vector<Builtin> own = catalogue(built_families(), Plain::standard);
    for (const Builtin& builtin : own) {
        const Declaration entry = declaration_of(builtin);
        if (builtin.mangled) wanted.emplace(entry.key(), entry);
    }
    // Conversions alone are 5,400; the rest is what the table knows beyond the language.
    EXPECT_GT(of_the_language, 5400u);

    std::ofstream(folder / "calls.cl") << calls_of(wanted);
    ASSERT_TRUE(runs(clang + " -cl-std=CL3.0 -Xclang -cl-ext=+__opencl_c_generic_address_space -include opencl-c.h"
                             " -O0 -Xclang -disable-llvm-passes -emit-llvm -c calls.cl -o calls.bc"))
        << said;
    ModuleOptions options;
    options.abi.target = compiler.target;
    options.abi.register_bits = compiler.register_bits;
    std::ofstream text(folder / "own.ll");
    write_module(text, built_families(), options);
    text.close();
    const auto calls = parse("calls.bc"), defined = parse("own.ll");
    ASSERT_TRUE(calls && defined);
    std::set<std::string> called;
    int complaints = 0;
    for (const llvm::Function& function : *calls) {
        if (!function.isDeclaration() || function.isIntrinsic() || ++complaints > 20) continue;
        called.insert(function.getName().str());
        const llvm::Function* definition = defined->getFunction(function.getName());
        if (!definition || definition->isDeclaration())
            ADD_FAILURE() << function.getName().str() << " has no definition";
        else if (call_text(*definition) != call_text(function))
            ADD_FAILURE() << function.getName().str() << " is " << call_text(*definition) << ", but is called as "
                          << call_text(function);
        else
            --complaints;
    }
    if (complaints > 20) return;
    for (const Builtin& builtin : own)
        if (builtin.mangled && !called.contains(symbol(builtin, options.abi)))
            ADD_FAILURE() << builtin.signature() << " is called otherwise than " << symbol(builtin, options.abi);
}

INSTANTIATE_TEST_SUITE_P(Builtins, ClangsCalls, testing::ValuesIn(compilers),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(Builtins, NamesOfTheExamplesInTheDocuments) {
    const auto names = [](const Abi& abi, Plain plain) {
        std::map<std::string, std::string> symbols;
        for (const Builtin& builtin : catalogue(built_families(), plain))
            symbols[builtin.signature()] = symbol(builtin, abi);
        return symbols;
    };
    const auto own = names({}, Plain::standard);
    EXPECT_EQ(own.at("log(float4)"), "_Z3logDv4_f");
    EXPECT_EQ(own.at("fmax(float4, float)"), "_Z4fmaxDv4_ff");
    EXPECT_EQ(own.at("__tuvo_idiv_int4(int4, int4)"), "__tuvo_idiv_int4");
    const auto renamed = names({Target::x86_64, 256, Pointers::opaque, "_cl_"}, Plain::standard);
    EXPECT_EQ(renamed.at("log(float4)"), "_Z7_cl_logDv4_f");
}

// ---- Values --------------------------------------------------------------------------------------------------------

using Patterns = std::vector<std::uint64_t>;

int bytes_of(const Type& type) { return traits(type.scalar).bytes; }

void store(std::byte* place, const Patterns& lanes, const Type& type) {
    for (int lane = 0; lane < type.lanes; ++lane)
        std::memcpy(place + lane * bytes_of(type), &lanes[static_cast<std::size_t>(lane)],
                    static_cast<std::size_t>(bytes_of(type)));
}

Patterns load(const std::byte* place, const Type& type) {
    Patterns lanes(static_cast<std::size_t>(type.lanes));
    for (int lane = 0; lane < type.lanes; ++lane)
        std::memcpy(&lanes[static_cast<std::size_t>(lane)], place + lane * bytes_of(type),
                    static_cast<std::size_t>(bytes_of(type)));
    return lanes;
}

/// An integer lane's value.
__int128 integer(std::uint64_t pattern, const ScalarTraits& type) {
    if (!type.is_signed) return pattern;
    const int unused = 64 - 8 * type.bytes;
    return static_cast<std::int64_t>(pattern << unused) >> unused;
}

std::uint64_t cut(__int128 value, const ScalarTraits& type, bool saturated) {
    const int bits = 8 * type.bytes;
    if (saturated) {
        const __int128 least = type.is_signed ? -(static_cast<__int128>(1) << (bits - 1)) : 0;
        const __int128 most = (static_cast<__int128>(1) << (bits - type.is_signed)) - 1;
        value = std::min(std::max(value, least), most);
    }
    const auto pattern = static_cast<std::uint64_t>(value);
    return bits == 64 ? pattern : pattern & ((std::uint64_t{1} << bits) - 1);
}

/// What a conversion without a kernel gives.
std::uint64_t converted(std::uint64_t pattern, const Conversion& conversion) {
    const ScalarTraits& from = traits(conversion.source);
    const ScalarTraits& to = traits(conversion.target);
    if (from.scalar == to.scalar) return pattern;
    if (from.floating) {  // float to double
        return std::bit_cast<std::uint64_t>(
            static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(pattern))));
    }
    const __int128 value = integer(pattern, from);
    if (to.scalar == Scalar::f32) return std::bit_cast<std::uint32_t>(static_cast<float>(value));
    if (to.scalar == Scalar::f64) return std::bit_cast<std::uint64_t>(static_cast<double>(value));
    return cut(value, to, conversion.saturated);
}

/// Adds `void call_N(bytes** places)`, which loads the parameters from places 1, 2 ... (or passes the place of a
/// pointer), and stores the result to place 0.
void add_caller(llvm::Module& module, const Builtin& builtin, int number) {
    llvm::Function* callee = module.getFunction(symbol(builtin, {}));
    ASSERT_TRUE(callee) << builtin.signature();
    llvm::LLVMContext& context = module.getContext();
    auto* bytes = llvm::PointerType::get(llvm::Type::getInt8Ty(context), 0);
    auto* type = llvm::FunctionType::get(llvm::Type::getVoidTy(context), {llvm::PointerType::get(bytes, 0)}, false);
    auto* caller =
        llvm::Function::Create(type, llvm::Function::ExternalLinkage, "call_" + std::to_string(number), module);
    llvm::IRBuilder<> builder(llvm::BasicBlock::Create(context, "", caller));
    const auto place = [&](unsigned i) {
        return builder.CreateLoad(bytes, builder.CreateConstGEP1_32(bytes, caller->getArg(0), i));
    };
    std::vector<llvm::Value*> values;
    for (unsigned i = 0; i < callee->arg_size(); ++i) {
        llvm::Type* parameter = callee->getArg(i)->getType();
        if (parameter->isPointerTy())
            values.push_back(builder.CreatePointerBitCastOrAddrSpaceCast(place(i + 1), parameter));
        else
            values.push_back(builder.CreateAlignedLoad(
                parameter, builder.CreateBitCast(place(i + 1), llvm::PointerType::get(parameter, 0)), llvm::Align(1)));
    }
    llvm::CallInst* result = builder.CreateCall(callee, values);
    result->setCallingConv(callee->getCallingConv());
    builder.CreateAlignedStore(result, builder.CreateBitCast(place(0), llvm::PointerType::get(result->getType(), 0)),
                               llvm::Align(1));
    builder.CreateRetVoid();
}

using Caller = void(std::byte**);

/// One value in each lane, of every magnitude; the same for all widths.
Patterns lanes_of(const Type& type, RandomBits& random) {
    Patterns lanes;
    const ScalarTraits& traits_of_type = traits(type.scalar);
    for (int i = 0; i < type.lanes; ++i) {
        std::uint64_t bits = random();
        if (traits_of_type.floating && random() % 4 != 0) {
            // Of moderate size, where most functions have something to say.
            const double value = std::ldexp(static_cast<double>(bits >> 11), -50) * (random() % 2 ? 1 : -1);
            bits = type.scalar == Scalar::f32 ? std::bit_cast<std::uint32_t>(static_cast<float>(value))
                                              : std::bit_cast<std::uint64_t>(value);
        } else if (!traits_of_type.floating && random() % 2) {
            bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(bits) >> (random() % 64));
        }
        lanes.push_back(traits_of_type.bytes == 8 ? bits
                                                  : bits & ((std::uint64_t{1} << (8 * traits_of_type.bytes)) - 1));
    }
    return lanes;
}

TEST_F(Builtins, EachGivesWhatItsKernelGives) {
    llvm::InitializeNativeTarget();
    llvm::InitializeNativeTargetAsmPrinter();
    llvm::orc::JITTargetMachineBuilder machine{llvm::Triple("x86_64-unknown-linux-gnu")};
    machine.setCPU("x86-64");
    machine.getFeatures() = llvm::SubtargetFeatures("+avx");
    machine.setCodeGenOptLevel(llvm::CodeGenOpt::None);
    auto jit = llvm::cantFail(llvm::orc::LLJITBuilder().setJITTargetMachineBuilder(machine).create());
    jit->getMainJITDylib().addGenerator(
        llvm::cantFail(llvm::orc::DynamicLibrarySearchGenerator::Load(TUVO_LIBRARY, '\0')));
    jit->getMainJITDylib().addGenerator(
        llvm::cantFail(llvm::orc::DynamicLibrarySearchGenerator::GetForCurrentProcess('\0')));

    const std::vector<Builtin> builtins = catalogue(built_families(), Plain::standard);
    auto own_context = std::make_unique<llvm::LLVMContext>();
    llvm::SMDiagnostic diagnostic;
    auto module = llvm::parseIRFile(TUVO_BUILTINS_BITCODE, diagnostic, *own_context);
    ASSERT_TRUE(module) << diagnostic.getMessage().str();
    module->setDataLayout(jit->getDataLayout());
    for (std::size_t i = 0; i < builtins.size(); ++i) add_caller(*module, builtins[i], static_cast<int>(i));
    for (llvm::Function& function : *module)
        if (!function.isIntrinsic()) function.addFnAttr("target-features", "+avx");
    ASSERT_FALSE(llvm::verifyModule(*module, &llvm::errs()));
    llvm::cantFail(jit->addIRModule(llvm::orc::ThreadSafeModule(std::move(module), std::move(own_context))));

    RandomBits random(17);
    alignas(128) static std::byte memory[5][256];
    std::byte* places[5] = {memory[0], memory[1], memory[2], memory[3], memory[4]};
    for (std::size_t i = 0; i < builtins.size(); ++i) {
        const Builtin& builtin = builtins[i];
        auto address = jit->lookup("call_" + std::to_string(i));
        ASSERT_TRUE(static_cast<bool>(address)) << builtin.signature();
#if LLVM_VERSION_MAJOR >= 15
        auto* caller = address->toPtr<Caller*>();
#else
        auto* caller = reinterpret_cast<Caller*>(address->getAddress());
#endif
        std::vector<Patterns> arguments;
        for (std::size_t k = 0; k < builtin.parameters.size(); ++k) {
            const auto& [type, space] = builtin.parameters[k];
            std::memset(places[k + 1], 0, sizeof memory[0]);
            if (space != Space::none) continue;
            arguments.push_back(lanes_of(type, random));
            store(places[k + 1], arguments.back(), type);
            // One value stands for all lanes of the kernel's.
            arguments.back().resize(static_cast<std::size_t>(builtin.width), arguments.back()[0]);
        }
        caller(places);

        std::vector<Patterns> expected;
        if (builtin.family) {
            const CallResult direct =
                call(find_kernel(*builtin.family, builtin.width), *builtin.family, builtin.width, arguments);
            expected = direct.outputs;
        } else {
            expected = arguments;
        }
        const std::size_t width = static_cast<std::size_t>(builtin.width);
        for (Patterns& lanes : expected) lanes.resize(width);
        if (builtin.conversion && (!builtin.family || traits(builtin.conversion->target).bytes < 4))
            for (std::uint64_t& lane : expected[0])
                lane = builtin.family ? cut(integer(lane, traits(Scalar::i32)), traits(builtin.conversion->target),
                                            builtin.conversion->saturated)
                                      : converted(lane, *builtin.conversion);
        std::vector<Patterns> got;
        const int room = builtin.results[0].lanes == 3 ? 4 : builtin.results[0].lanes;
        for (std::size_t k = 0; k < builtin.results.size(); ++k)
            got.push_back(load(memory[0] + k * static_cast<std::size_t>(room * bytes_of(builtin.results[k])),
                               builtin.results[k]));
        for (std::size_t k = 0; k < builtin.parameters.size(); ++k)
            if (builtin.parameters[k].space != Space::none)
                got.push_back(load(memory[k + 1], builtin.parameters[k].type));
        ASSERT_EQ(got, expected) << builtin.signature();
    }
}

// ---- Releases of LLVM ----------------------------------------------------------------------------------------------

/// A caller of one built-in, as text; pointers aren't needed.
const char* const caller_text =
    "define <8 x float> @caller(<8 x float> %x) {\n"
    "  %y = call spir_func <8 x float> @_Z3logDv8_f(<8 x float> %x)\n"
    "  ret <8 x float> %y\n}\n"
    "declare spir_func <8 x float> @_Z3logDv8_f(<8 x float>)\n";

class Releases : public Builtins, public testing::WithParamInterface<int> {};

/// Linked by name, inlined and checked: nothing is left but the call of the kernel. 14 and 15 are part of the suite;
/// others take part where they are installed.
TEST_P(Releases, LinkAndOptimizeTheBuiltIns) {
    const std::string release = std::to_string(GetParam());
    if (!runs("command -v llvm-as-" + release)) {
        ASSERT_GT(GetParam(), 15) << "llvm-" << release << " is missing";
        GTEST_SKIP() << "llvm-" << release << " is not installed";
    }
    std::ofstream(folder / "caller.ll") << caller_text;
    const std::string pointers = GetParam() < 15 ? "typed" : "opaque";
    ASSERT_TRUE(runs("'" TUVO_BUILTINS "' --pointers " + pointers + " --out own.ll && llvm-as-" + release +
                     " own.ll -o own.bc"))
        << said;
    for (const char* const bitcode : {"own.bc", TUVO_BUILTINS_BITCODE}) {
        ASSERT_TRUE(runs("llvm-link-" + release + " --only-needed caller.ll '" + bitcode + "' -o linked.bc")) << said;
        const char* passes =
            GetParam() < 15 ? " -passes='always-inline,globaldce,verify'" : " -passes=always-inline,globaldce,verify";
        ASSERT_TRUE(runs("opt-" + release + passes + " -S linked.bc -o - ")) << said;
        EXPECT_NE(said.find("call <8 x float> @__ocl_tuvo_e9_logf8"), std::string::npos) << said;
        EXPECT_EQ(said.find("@_Z3logDv8_f(<8 x float> %x)\n  ret"), std::string::npos) << said;
    }
    ASSERT_TRUE(runs("opt-" + release + " -passes=verify own.bc -o /dev/null")) << said;
}

INSTANTIATE_TEST_SUITE_P(Builtins, Releases, testing::Values(14, 15, 16, 19));

/// The loop vectoriser takes the kernel for eight values, whatever keeps it.
TEST_F(Builtins, LoopsOverOneValueCallTheKernelForEight) {
    std::ofstream(folder / "loop.ll")
        << "define void @loop(ptr noalias %x, ptr noalias %y, i64 %n) \"target-features\"=\"+avx\" {\n"
           "entry:\n  br label %body\n"
           "body:\n  %i = phi i64 [ 0, %entry ], [ %j, %body ]\n"
           "  %p = getelementptr float, ptr %x, i64 %i\n  %v = load float, ptr %p\n"
           "  %r = call spir_func float @_Z3logf(float %v)\n"
           "  %q = getelementptr float, ptr %y, i64 %i\n  store float %r, ptr %q\n"
           "  %j = add nuw nsw i64 %i, 1\n  %more = icmp ult i64 %j, %n\n"
           "  br i1 %more, label %body, label %end\n"
           "end:\n  ret void\n}\n"
           "declare spir_func float @_Z3logf(float)\n";
    for (const auto& [variants, wide] : {std::pair("listed", true), {"called", true}, {"none", false}}) {
        ASSERT_TRUE(runs(std::string("'" TUVO_BUILTINS "' --pointers opaque --out own.ll --variants ") + variants +
                         " && llvm-link-15 --only-needed loop.ll own.ll -S -o l.ll && "
                         "opt-15 -mtriple=x86_64-linux-gnu -O2 -S l.ll -o -"))
            << said;
        EXPECT_EQ(said.find("<8 x float> @__ocl_tuvo_e9_logf8(<8 x float> %wide.load") != std::string::npos, wide)
            << variants;
    }
}

/// A kernel that takes a whole register of 256 bits must not be passed two halves.
TEST_F(Builtins, CallersWithoutAvxAreRefused) {
    std::ofstream(folder / "caller.ll") << caller_text;
    ASSERT_TRUE(runs("llvm-link-14 --only-needed caller.ll '" TUVO_BUILTINS_BITCODE "' -o l.bc")) << said;
    ASSERT_TRUE(runs("opt-14 -passes=always-inline l.bc -o i.bc")) << said;
    EXPECT_TRUE(runs("llc-14 -mtriple=x86_64-linux-gnu -mattr=+avx i.bc -o /dev/null")) << said;
    EXPECT_FALSE(runs("llc-14 -mtriple=x86_64-linux-gnu i.bc -o /dev/null"));
    EXPECT_NE(said.find("error: couldn't allocate output register for constraint 'x'"), std::string::npos) << said;
}

}  // namespace
}  // namespace tuvo::builtins

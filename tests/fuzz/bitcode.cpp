// Built-ins, as bitcode or text, bound to a program.
#include <llvm/AsmParser/Parser.h>
#include <llvm/IR/LLVMContext.h>
#include <llvm/Support/SourceMgr.h>

#include "client/bind.hpp"
#include "tests/fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tuvo;
    return fuzz::accept_or_reject([&] {
        llvm::LLVMContext context;
        llvm::SMDiagnostic diagnostic;
        const auto module = llvm::parseAssemblyString(
            "declare <4 x float> @_Z4fabsDv4_f(<4 x float>)\n"
            "define <4 x float> @k(<4 x float> %x) {\n"
            "  %y = call <4 x float> @_Z4fabsDv4_f(<4 x float> %x)\n"
            "  ret <4 x float> %y\n}\n",
            diagnostic, context);
        if (!module) std::abort();
        client::bind_builtins(*module, {fuzz::as_file("builtins.bc", data, size), false});
    });
}

// A module to preload: lets the LLVM inside PoCL take the processor for one with AVX and nothing newer, so that the
// built-ins of both are compared on equal terms. PoCL reads the name and the features that LLVM reports, once.
#include <dlfcn.h>

#include <llvm/ADT/StringMap.h>
#include <llvm/ADT/StringRef.h>

namespace llvm::sys {

using Features = StringMap<bool, MallocAllocator>;

StringRef getHostCPUName();
StringRef getHostCPUName() { return "sandybridge"; }

bool getHostCPUFeatures(Features& features);
bool getHostCPUFeatures(Features& features) {
    void* const own = dlopen("libLLVM-15.so.1", RTLD_NOW);
    using Function = bool (*)(Features&);
    const auto real = own ? reinterpret_cast<Function>(
                                dlsym(own, "_ZN4llvm3sys18getHostCPUFeaturesERNS_9StringMapIbNS_15MallocAllocatorEEE"))
                          : nullptr;
    if (!real || !real(features)) return false;
    for (auto& feature : features) {
        const StringRef name = feature.getKey();
        if (name == "avx2" || name == "f16c" || name.startswith("fma") || name == "xop" || name.startswith("avx512") ||
            name.startswith("bmi") || name == "lzcnt" || name == "movbe" || name == "adx")
            feature.second = false;
    }
    return true;
}

}  // namespace llvm::sys

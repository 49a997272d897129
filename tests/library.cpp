#include "tests/library.hpp"

#include <dlfcn.h>

#include <map>
#include <stdexcept>
#include <string>

#include "tests/elf_file.hpp"

namespace tuvo {

namespace {

void* library() {
    static void* const handle = [] {
        void* opened = dlopen(TUVO_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (!opened) throw std::runtime_error(std::string("cannot load the library: ") + dlerror());
        return opened;
    }();
    return handle;
}

}  // namespace

const void* find_kernel(const Family& family, int width) {
    return dlsym(library(), export_name(family, width).c_str());
}

RareRoutine find_rare_routine(const Family& family) {
    // The debug file knows where it lies.
    static const std::map<std::string, std::uint64_t> addresses = [] {
        std::map<std::string, std::uint64_t> found;
        for (const ElfFile::Symbol& symbol : ElfFile(TUVO_DEBUG_FILE).symbols(".symtab"))
            found[symbol.name] = symbol.st_value;
        return found;
    }();
    Dl_info library;
    if (!dladdr(find_kernel(family, 1), &library)) throw std::runtime_error("the library has no base address");
    const auto base = reinterpret_cast<std::uintptr_t>(library.dli_fbase);
    return reinterpret_cast<RareRoutine>(base + addresses.at(family.rare_routine));
}

const std::vector<const Family*>& built_families() {
    static const std::vector<const Family*> built = [] {
        std::vector<const Family*> found;
        for (const Family& family : families()) {
            bool first = find_kernel(family, widths[0]) != nullptr;
            for (int width : widths)
                if ((find_kernel(family, width) != nullptr) != first)
                    throw std::runtime_error("the library has not all widths of " + family.name());
            if (first) found.push_back(&family);
        }
        return found;
    }();
    return built;
}

}  // namespace tuvo

#include "tests/rare_routines.hpp"

#include <dlfcn.h>

#include <map>
#include <stdexcept>
#include <string>

#include "tests/elf_file.hpp"
#include "tests/library.hpp"

namespace tuvo {

RareRoutine find_rare_routine(const Family& family) {
    // The library exports none of them; the debug file knows where they lie.
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

void run_rare_routine(const Family& family, std::span<const std::uint64_t> arguments,
                      std::vector<std::uint64_t>& outputs) {
    const void* pointers[4] = {};
    std::size_t count = 0;
    for (const std::uint64_t& argument : arguments) pointers[count++] = &argument;
    for (std::uint64_t& output : outputs) pointers[count++] = &output;
    find_rare_routine(family)(pointers[0], pointers[1], pointers[2], pointers[3]);
}

}  // namespace tuvo

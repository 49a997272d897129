#include "tests/recorder.hpp"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" const std::uint8_t tuvo_stand_ins[];
extern "C" const std::uint32_t tuvo_stand_in_count;

extern "C" int tuvo_rare_called(const tuvo::RareCall& call) { return static_cast<int>(tuvo::on_rare_call(call)); }

namespace tuvo {
namespace {

std::vector<std::string>& routine_names() {
    static std::vector<std::string> names;
    return names;
}

/// The kernels are linked without any rare routine and bound lazily, so that they load all the same. Each routine has
/// a slot that calls of it go through, and a relocation that names it.
void* load() {
    void* handle = dlopen(TUVO_RECORDED_KERNELS, RTLD_LAZY | RTLD_LOCAL);
    link_map* map = nullptr;
    if (!handle || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
        throw std::runtime_error(std::string("cannot load the recorded kernels: ") + dlerror());
    std::map<std::int64_t, std::uint64_t> tags;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) tags[entry->d_tag] = entry->d_un.d_val;
    const auto* slots = reinterpret_cast<const ElfW(Rela)*>(tags[DT_JMPREL]);
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(tags[DT_SYMTAB]);
    const auto* strings = reinterpret_cast<const char*>(tags[DT_STRTAB]);
    for (std::size_t k = 0; k < tags[DT_PLTRELSZ] / sizeof *slots; ++k) {
        if (k >= tuvo_stand_in_count) throw std::runtime_error("too few stand-ins");
        routine_names().push_back(strings + symbols[ELF64_R_SYM(slots[k].r_info)].st_name);
        *reinterpret_cast<const std::uint8_t**>(map->l_addr + slots[k].r_offset) = tuvo_stand_ins + 16 * k;
    }
    return handle;
}

}  // namespace

std::function<Clobber(const RareCall&)> on_rare_call;

std::string_view RareCall::routine_name() const { return routine_names().at(routine); }

const void* find_recorded_kernel(const Family& family, int width) {
    static void* const handle = load();
    return dlsym(handle, export_name(family, width).c_str());
}

}  // namespace tuvo

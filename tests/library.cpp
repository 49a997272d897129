#include "tests/library.hpp"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

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

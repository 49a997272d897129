#include "frame/description/families.hpp"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace tuvo {
namespace {

std::vector<DescribedFamily>& registered() {
    static std::vector<DescribedFamily> list;
    return list;
}

}  // namespace

Describe::Describe(std::initializer_list<const char*> names, Description description, Accuracy accuracy) {
    for (const char* name : names) {
        const Family* family = find_family(name);
        if (!family || std::ranges::find(registered(), family, &DescribedFamily::family) != registered().end()) {
            std::cerr << "family " << name << (family ? " is described twice\n" : " is not in the operation table\n");
            std::exit(2);
        }
        registered().push_back({family, description, accuracy});
    }
}

const std::vector<DescribedFamily>& described_families() {
    static const bool sorted = [] {
        // All families are elements of one vector, so their addresses follow its order.
        std::ranges::sort(registered(), {}, &DescribedFamily::family);
        return true;
    }();
    (void)sorted;
    return registered();
}

const DescribedFamily* find_described(std::string_view name) {
    for (const DescribedFamily& described : described_families())
        if (described.family->name() == name) return &described;
    return nullptr;
}

Program record_family(const DescribedFamily& described) {
    return record_program(described.family->name(), described.family->blocks, described.description.arguments,
                          described.description.body);
}

}  // namespace tuvo

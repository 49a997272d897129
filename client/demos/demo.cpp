#include "client/demos/demo.hpp"

#include <algorithm>
#include <cstdio>

#include "client/failure.hpp"

namespace tuvo::client {
namespace {

std::vector<Demo>& registered() {
    static std::vector<Demo> list;
    return list;
}

bool run_one(const Demo& demo, const DemoOptions& options) {
    std::printf("%s:\n", demo.name);
    std::fflush(stdout);
    const bool agrees = demo.run(options);
    if (!agrees) std::fprintf(stderr, "tuvo-client: %s differs from its reference\n", demo.name);
    return agrees;
}

}  // namespace

RegisterDemo::RegisterDemo(Demo demo) {
    std::vector<Demo>& list = registered();
    const auto by_name = [](const Demo& a, const Demo& b) { return std::string_view(a.name) < b.name; };
    list.insert(std::upper_bound(list.begin(), list.end(), demo, by_name), demo);
}

const std::vector<Demo>& demos() { return registered(); }

bool run_demos(const std::string& name, const DemoOptions& options) {
    std::string names;
    bool all_agree = true;
    for (const Demo& demo : demos()) {
        if (name == demo.name) return run_one(demo, options);
        names += std::string(" ") + demo.name;
        if (!name.empty()) continue;
        try {
            all_agree = run_one(demo, options) && all_agree;
        } catch (const MissingKernels& missing) {
            std::printf("left out: the library has no kernel for %s\n", missing.builtins.c_str());
        }
        std::printf("\n");
    }
    if (!name.empty()) throw Failure("there is no demo '" + name + "'; there are:" + names);
    return all_agree;
}

std::filesystem::path demo_program(const std::string& name) {
    return std::filesystem::path(TUVO_PROGRAMS) / (name + ".cl");
}

std::filesystem::path demo_data(const std::string& file) { return std::filesystem::path(TUVO_DATA) / file; }

}  // namespace tuvo::client

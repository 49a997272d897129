#include "client/manifest.hpp"

#include <fstream>
#include <nlohmann/json.hpp>

#include "client/failure.hpp"

namespace tuvo::client {
namespace {

using nlohmann::json;

Scalar read_scalar(const json& name) {
    const ScalarTraits* found = find_scalar(&ScalarTraits::opencl, name.get<std::string>());
    if (!found) throw Failure("unknown element type '" + name.get<std::string>() + "'");
    return found->scalar;
}

std::vector<KernelValue> read_values(const json& values) {
    std::vector<KernelValue> result;
    for (const json& value : values)
        result.push_back({read_scalar(value.at("type")), value.at("lanes"), value.at("parts")});
    return result;
}

Kernel read_kernel(const json& entry) {
    const json& out = entry.at("out");
    return {
        .symbol = entry.at("symbol"),
        .width = entry.at("width"),
        .in_memory = entry.at("form") == "memory",
        .arguments = read_values(entry.at("arguments")),
        .results = read_values(entry.at("results")),
        .out = out.is_null() ? std::nullopt : std::optional(read_scalar(out.at("type"))),
    };
}

}  // namespace

Manifest read_manifest(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file)
        throw Failure("cannot read the manifest '" + path.string() +
                      "'; build the library, or name its manifest with "
                      "--manifest");
    try {
        const json document = json::parse(file);
        Manifest manifest;
        for (const json& entry : document.at("exports")) {
            const KernelKey key{entry.at("operation"), entry.at("tier"), read_scalar(entry.at("element")),
                                entry.at("width")};
            manifest.emplace(key, read_kernel(entry));
        }
        return manifest;
    } catch (const std::exception& error) {
        throw Failure("'" + path.string() + "' is not a manifest of the library: " + error.what());
    }
}

}  // namespace tuvo::client

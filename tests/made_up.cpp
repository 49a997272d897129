#include "tests/made_up.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "frame/generator/compile.hpp"
#include "frame/generator/emit.hpp"
#include "frame/generator/layout.hpp"
#include "tests/call.hpp"

namespace tuvo {
namespace {

std::uint64_t complement(std::uint64_t pattern, Lane lane) {
    return lane_size(lane) == 4 ? std::uint32_t(~pattern) : ~pattern;
}

/// A routine of the platform's convention that complements its first argument into each output.
std::string rare_routine(const Family& family) {
    static constexpr const char* parameters[] = {"rdi", "rsi", "rdx", "rcx"};
    std::ostringstream text;
    text << "    .text\n" << family.rare_routine << ":\n";
    const int inputs = int(family.arguments.size());
    // The first input's word may be narrower than an output: its sign-extended complement serves.
    text << (lane_size(family.arguments[0]) == 4 ? "    movsxd rax, dword ptr [rdi]\n"
                                                 : "    mov rax, qword ptr [rdi]\n")
         << "    not rax\n";
    const std::vector<Lane> outputs = family.outputs();
    for (std::size_t v = 0; v < outputs.size(); ++v)
        text << "    mov " << (lane_size(outputs[v]) == 4 ? "dword ptr [" : "qword ptr [")
             << parameters[inputs + int(v)] << (lane_size(outputs[v]) == 4 ? "], eax\n" : "], rax\n");
    for (int k = 0; k < 16; ++k) text << "    pcmpeqd xmm" << k << ", xmm" << k << "\n";
    for (const char* r : {"rax", "rcx", "rdx", "rsi", "rdi", "r8", "r9", "r10", "r11"})
        text << "    mov " << r << ", -3\n";
    text << "    ret\n";
    return text.str();
}

}  // namespace

MadeUp make_up(std::string name, std::vector<Lane> arguments, std::vector<Lane> results, std::optional<Lane> out,
               bool rare, int blocks, const Description& description) {
    MadeUp made_up;
    Family& family = made_up.family;
    family.stem = name;
    family.operation = "log";  // for the usual fill of lane 3
    family.element = is_floating(arguments[0]) || !is_floating(results[0]) ? arguments[0] : results[0];
    family.arguments = std::move(arguments);
    family.results = std::move(results);
    family.out = out;
    family.has_rare = rare;
    if (rare) family.rare_routine = name + "_rare";
    family.blocks = blocks;
    made_up.program = record_program(name, blocks, description.arguments, description.body);
    return made_up;
}

MadeUpLibrary::MadeUpLibrary(const std::vector<const MadeUp*>& families) {
    std::string pattern = (std::filesystem::temp_directory_path() / ("tuvo-made-up-" + std::string(6, 'X'))).string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("can't make a temporary folder");
    folder_ = pattern;
    std::ostringstream text;
    text << "    .intel_syntax noprefix\n    .text\n";
    for (const MadeUp* made_up : families) {
        const BlockLayout blocks = lay_out_blocks(made_up->program, made_up->family.name());
        for (int width : widths) {
            const Kernel kernel =
                lay_out(made_up->program, blocks, made_up->family, width, export_name(made_up->family, width));
            emit(text, kernel, compile(kernel), blocks);
        }
        if (made_up->family.has_rare) text << rare_routine(made_up->family);
        write_blocks(text, made_up->program, blocks);
        text << "    .section .data.rel.ro, \"aw\"\n    .balign 8\n";
        for (const ConstBlock& block : blocks.blocks) text << block.symbol << "_slot: .quad " << block.symbol << "\n";
        text << "    .text\n";
    }
    text << "    .section .note.GNU-stack,\"\",@progbits\n";
    text_ = text.str();
    const std::filesystem::path source = folder_ / "made_up.s", object = folder_ / "made_up.so";
    std::ofstream(source) << text_;
    const std::string command =
        std::string(TUVO_CXX) + " -shared -nostdlib " + source.string() + " -o " + object.string();
    if (std::system(command.c_str()) != 0) throw std::runtime_error("assembling made-up kernels failed: " + command);
    handle_ = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) throw std::runtime_error(dlerror());
}

MadeUpLibrary::~MadeUpLibrary() {
    if (handle_) dlclose(handle_);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

const void* MadeUpLibrary::kernel(const MadeUp& made_up, int width) const {
    const void* address = dlsym(handle_, export_name(made_up.family, width).c_str());
    if (!address) throw std::runtime_error("no kernel " + export_name(made_up.family, width));
    return address;
}

std::uint64_t draw_pattern(Lane lane, std::mt19937_64& random) {
    const std::uint64_t raw = random();
    const bool wide = lane_size(lane) == 8;
    const auto cut = [&](std::uint64_t pattern) { return wide ? pattern : std::uint32_t(pattern); };
    if (!is_floating(lane))
        return raw % 3 == 0 ? cut(raw >> 8) : cut(std::uint64_t(std::int64_t(raw >> 8) % 200 - 100));
    switch (raw % 8) {
    case 0: return cut(raw >> 3);
    case 1: {
        static constexpr double special[] = {
            0.0, -0.0, 1.0, -1.0, 0.5, 2.0, __builtin_inf(), -__builtin_inf(), __builtin_nan("")};
        const double value = special[(raw >> 8) % std::size(special)];
        return wide ? __builtin_bit_cast(std::uint64_t, value) : __builtin_bit_cast(std::uint32_t, float(value));
    }
    case 2:
    case 3: {
        const double value = double(std::int64_t(raw >> 8) % 4000 - 2000) / 16;
        return wide ? __builtin_bit_cast(std::uint64_t, value) : __builtin_bit_cast(std::uint32_t, float(value));
    }
    default: {  // around 1, so that compares go both ways
        const double value = (raw & 16 ? -4.0 : 4.0) * double(raw >> 11) / double(1ull << 53);
        return wide ? __builtin_bit_cast(std::uint64_t, value) : __builtin_bit_cast(std::uint32_t, float(value));
    }
    }
}

std::vector<std::string> compare_with_interpreter(const MadeUp& made_up, const MadeUpLibrary& library, int calls,
                                                  std::mt19937_64& random) {
    const Family& family = made_up.family;
    const std::vector<Lane> outputs = family.outputs();
    std::vector<std::string> faults;
    for (int width : widths) {
        Caller caller(library.kernel(made_up, width), family, width);
        const bool wide_parts = part_bits(family.element, width).front() == 256;
        for (int k = 0; k < calls && faults.size() < 5; ++k) {
            std::vector<std::vector<std::uint64_t>> arguments(family.arguments.size(),
                                                              std::vector<std::uint64_t>(std::size_t(width)));
            // Most calls mix everything; some hold one kind of lane, so that branches are not always taken.
            const bool uniform = k % 3 == 0;
            for (std::size_t a = 0; a < arguments.size(); ++a)
                for (std::size_t lane = 0; lane < arguments[a].size(); ++lane)
                    arguments[a][lane] =
                        uniform && lane > 0 ? arguments[a][0] : draw_pattern(family.arguments[a], random);
            CallOptions options;
            options.stack_misalignment = int(random() % 64);
            options.ignored = every_ignored[random() % every_ignored.size()];
            const CallResult& result = caller(arguments, options);
            const std::string where = family.stem + " at width " + std::to_string(width);
            for (const std::string& violation : result.violations) faults.push_back(where + ": " + violation);
            for (int lane = 0; lane < width; ++lane) {
                std::vector<std::uint64_t> lane_arguments;
                for (const auto& argument : arguments) lane_arguments.push_back(argument[std::size_t(lane)]);
                LaneResult expected = interpret(made_up.program, lane_arguments, false, wide_parts);
                const LaneResult beside = interpret(made_up.program, lane_arguments, true, wide_parts);
                if (beside.rare != expected.rare || beside.outputs != expected.outputs)
                    faults.push_back(where + ": the interpreter's lane depends on its neighbours");
                if (expected.rare)
                    for (std::size_t v = 0; v < outputs.size(); ++v) {
                        const std::uint64_t first = lane_size(family.arguments[0]) == 4
                                                        ? std::uint64_t(std::int64_t(std::int32_t(lane_arguments[0])))
                                                        : lane_arguments[0];
                        expected.outputs[v] = complement(first, outputs[v]);
                    }
                for (std::size_t v = 0; v < outputs.size(); ++v) {
                    if (result.outputs[v][std::size_t(lane)] == expected.outputs[v]) continue;
                    std::ostringstream fault;
                    fault << where << ", lane " << lane << ", output " << v << (expected.rare ? " (rare)" : "")
                          << std::hex << ": got 0x" << result.outputs[v][std::size_t(lane)] << ", expected 0x"
                          << expected.outputs[v] << " for";
                    for (std::uint64_t argument : lane_arguments) fault << " 0x" << argument;
                    faults.push_back(fault.str());
                }
            }
        }
    }
    return faults;
}

}  // namespace tuvo

#include "opencl/check.hpp"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "opencl/programs.hpp"
#include "tests/accuracy.hpp"
#include "tests/call.hpp"
#include "tests/inputs.hpp"
#include "tests/library.hpp"

namespace tuvo::opencl {
namespace {

using builtins::Builtin;
using builtins::Space;
using Patterns = std::vector<std::uint64_t>;

constexpr int checked_lanes = 8 * lanes_in_turn;

void put(Bytes& bytes, std::size_t index, std::uint64_t pattern, int size) {
    std::memcpy(bytes.data() + index * static_cast<std::size_t>(size), &pattern, static_cast<std::size_t>(size));
}

std::uint64_t get(const Bytes& bytes, std::size_t index, int size) {
    std::uint64_t pattern = 0;
    std::memcpy(&pattern, bytes.data() + index * static_cast<std::size_t>(size), static_cast<std::size_t>(size));
    return pattern;
}

/// The argument arrays of a family, filled by argument and then by lane.
std::vector<Patterns> telling_arguments(const DescribedFamily& described) {
    std::vector<Patterns> arguments(described.family->arguments.size());
    for (const LaneCase& lane : lane_cases(described, 1, checked_lanes))
        for (std::size_t i = 0; i < arguments.size(); ++i) arguments[i].push_back(lane.arguments[i]);
    return arguments;
}

/// Whether the accuracy line speaks of this lane.
bool in_domain(const DescribedFamily& described, const Patterns& lane) {
    const Patterns& domain = described.accuracy.domain;
    for (std::size_t i = 0; i < lane.size() && !domain.empty(); ++i) {
        // One pair of limits for all arguments, or one for each.
        const std::size_t k = domain.size() == 2 ? 0 : 2 * i;
        const int bits = 8 * lane_size(described.family->arguments[i]);
        const std::uint64_t magnitude = lane[i] & ~(std::uint64_t{1} << (bits - 1));
        if (magnitude < domain[k] || magnitude > domain[k + 1]) return false;
    }
    return true;
}

/// What went wrong with a family, or an empty text; `largest` is its largest error.
std::string check_family(const Host& host, const DescribedFamily& described, double& largest) {
    const Family& family = *described.family;
    const Overloads overloads = overloads_of(family);
    const std::vector<Patterns> arguments = telling_arguments(described);
    const auto values = overloads.size() * checked_lanes;
    std::vector<Bytes> buffers{Bytes(values * static_cast<std::size_t>(lane_size(family.results[0])))};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const int size = lane_size(family.arguments[i]);
        buffers.emplace_back(checked_lanes * static_cast<std::size_t>(size));
        for (std::size_t lane = 0; lane < checked_lanes; ++lane) put(buffers.back(), lane, arguments[i][lane], size);
    }
    if (family.out) buffers.emplace_back((values + 16) * static_cast<std::size_t>(lane_size(*family.out)));
    run(host, build(host, checking_program(overloads, checked_lanes)), "k", buffers);

    const CallResult direct = call_all(find_kernel(family, 16), family, 16, arguments);
    char text[200];
    for (std::size_t value = 0; value < values; ++value) {
        const std::size_t lane = value % checked_lanes;
        Patterns got{get(buffers[0], value, lane_size(family.results[0]))}, expected, own;
        if (family.out) got.push_back(get(buffers.back(), value, lane_size(*family.out)));
        for (const Patterns& output : direct.outputs) expected.push_back(output[lane]);
        for (const Patterns& argument : arguments) own.push_back(argument[lane]);
        const int width = overloads[value / checked_lanes].width;
        if (got != expected) {
            std::snprintf(text, sizeof text, "width %d: %s gives %s, the kernel %s", width, hex(own).c_str(),
                          hex(got).c_str(), hex(expected).c_str());
            return text;
        }
        if (value >= checked_lanes || !has_oracle(family) || !in_domain(described, own)) continue;
        const double error = error_of(family, own, got);
        largest = std::max(largest, error);
        if (error > described.accuracy.ulp) {
            std::snprintf(text, sizeof text, "%s is off by %.3f ulp, where %.3f are claimed", hex(own).c_str(), error,
                          described.accuracy.ulp);
            return text;
        }
    }
    return "";
}

// ---- Speed ---------------------------------------------------------------------------------------------------------

constexpr int timed_lanes = 1024, timed_turns = 64;

/// Arguments that every function has something to say about.
std::vector<Bytes> ordinary_arguments(const Builtin& builtin) {
    std::vector<Bytes> buffers{Bytes(2 * timed_lanes * 8)};
    RandomBits random(3);
    for (const auto& [type, space] : builtin.parameters) {
        const int size = traits(type.scalar).bytes;
        Bytes& bytes = buffers.emplace_back(2 * timed_lanes * static_cast<std::size_t>(size));
        for (std::size_t lane = 0; lane < timed_lanes; ++lane) {
            const double value = 0.1 + 0.8 * static_cast<double>(random() >> 11) * 0x1p-53;
            const std::uint64_t pattern = type.scalar == Scalar::f32
                                              ? std::bit_cast<std::uint32_t>(static_cast<float>(value))
                                          : type.scalar == Scalar::f64 ? std::bit_cast<std::uint64_t>(value)
                                                                       : 1 + random() % 8;
            put(bytes, lane, pattern, size);
        }
    }
    return buffers;
}

/// How many times as fast the library's built-in is as the runtime's own.
double times_as_fast(const Host& host, const Builtin& builtin) {
    std::vector<Bytes> buffers = ordinary_arguments(builtin);
    cl_program own = build(host, timing_program(builtin, "tuvo_", timed_lanes, timed_turns));
    cl_program other = build(host, timing_program(builtin, "_cl_", timed_lanes, timed_turns));
    double own_time = INFINITY, other_time = INFINITY;
    // Each takes its turn, so that a busy neighbour slows both; the quietest turns count.
    for (int turn = 0; turn < 12; ++turn) {
        own_time = std::min(own_time, run(host, own, "k", buffers, 3));
        other_time = std::min(other_time, run(host, other, "k", buffers, 3));
    }
    clReleaseProgram(own);
    clReleaseProgram(other);
    return other_time / own_time;
}

}  // namespace

int check_families(const Host& host, const std::regex& filter) {
    int failures = 0, checked = 0;
    for (const DescribedFamily& described : described_families()) {
        const std::string name = described.family->name();
        if (!std::regex_search(name, filter) || overloads_of(*described.family).empty()) continue;
        double largest = 0;
        std::string fault;
        try {
            fault = check_family(host, described, largest);
        } catch (const std::runtime_error& error) {
            fault = error.what();
        }
        if (fault.empty())
            std::printf("%s: agrees at all widths, largest error %.3f ulp\n", name.c_str(), largest);
        else
            std::printf("%s: WRONG, %s\n", name.c_str(), fault.c_str());
        std::fflush(stdout);
        ++checked;
        failures += !fault.empty();
    }
    std::printf("%d families checked, %d wrong\n", checked, failures);
    return checked == 0 ? 1 : failures;
}

void time_families(const Host& host, const std::regex& filter, std::ostream& out) {
    struct Row {
        std::string operation, type;
        std::map<int, double> ratios;  ///< by width
    };
    std::vector<Row> rows;
    std::map<std::string, std::map<std::string, std::vector<double>>> by_kind;  ///< then by type and width
    for (const DescribedFamily& described : described_families()) {
        const Family& family = *described.family;
        Row row;
        for (const Builtin& builtin : overloads_of(family)) {
            if (!std::regex_search(family.name() + "/" + std::to_string(builtin.width), filter)) continue;
            try {
                const double ratio = times_as_fast(host, builtin);
                const char* kind = builtin.conversion              ? "conversions"
                                   : family.tier != Tier::standard ? "short tiers"
                                   : described.accuracy.ulp == 0   ? "exact functions"
                                                                   : "functions";
                // "convert_float8_rte" stands for all widths.
                row.operation = std::regex_replace(builtin.name, std::regex("(float|double|int|long)[0-9]+"), "$1");
                row.type = lane_name(family.arguments[0]);
                row.ratios[builtin.width] = ratio;
                by_kind[kind][row.type + std::to_string(builtin.width)].push_back(ratio);
                std::fprintf(stderr, "%s %.2f\n", builtin.signature().c_str(), ratio);
            } catch (const std::runtime_error&) {
                // The runtime's own library doesn't have every overload.
            }
        }
        if (!row.ratios.empty()) rows.push_back(std::move(row));
    }
    char text[64];
    out << "Geometric means:\n\n";
    for (const auto& [kind, types] : by_kind) {
        const char* separator = ": ";
        out << "- " << kind;
        for (const auto& [type, ratios] : types) {
            double sum = 0;
            for (const double ratio : ratios) sum += std::log(ratio);
            std::snprintf(text, sizeof text, "%s%s %.2f (%zu)", separator, type.c_str(),
                          std::exp(sum / static_cast<double>(ratios.size())), ratios.size());
            out << text;
            separator = ", ";
        }
        out << "\n";
    }
    std::set<int> columns;
    for (const Row& row : rows)
        for (const auto& [width, ratio] : row.ratios) columns.insert(width);
    out << "\n| operation | type |";
    for (const int width : columns) out << " " << width << " |";
    out << "\n|:---|:---|";
    for ([[maybe_unused]] const int width : columns) out << "---:|";
    for (const Row& row : rows) {
        out << "\n| " << row.operation << " | " << row.type << " |";
        for (const int width : columns) {
            const auto found = row.ratios.find(width);
            std::snprintf(text, sizeof text, " %.2f |", found == row.ratios.end() ? 0 : found->second);
            out << (found == row.ratios.end() ? " |" : text);
        }
    }
    out << "\n";
}

}  // namespace tuvo::opencl

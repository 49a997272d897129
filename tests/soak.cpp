// tuvo-soak: runs that take hours. What is done is written down as it goes, so that a run that was stopped goes on where it
// was; a library that has changed is tried anew.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>
#include <thread>

#include "tests/accuracy.hpp"
#include "tests/command.hpp"
#include "tests/compare_lanes.hpp"
#include "tests/inputs.hpp"

namespace {

using namespace tuvo;

/// A line that is written over: how much is done, what is being done, and how long the rest will take.
class Progress {
public:
    explicit Progress(double done) : first_(done) {}
    void show(double done, const std::string& what) {
        using namespace std::chrono;
        const double passed = duration<double>(steady_clock::now() - start_).count();
        const double left = done > first_ ? passed * (1 - done) / (done - first_) : 0;
        const int filled = static_cast<int>(done * 30);
        std::fprintf(stderr, "\r[%s%s] %5.1f %%  %d h %02d min left  %-24s", std::string(filled, '#').c_str(),
                     std::string(30 - filled, ' ').c_str(), 100 * done, static_cast<int>(left / 3600),
                     static_cast<int>(left / 60) % 60, what.c_str());
        std::fflush(stderr);
    }
    ~Progress() { std::fprintf(stderr, "\n"); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    double first_;
};

/// What a run has done: a text beside a key, and a file that always holds all of it.
class Done {
public:
    explicit Done(std::filesystem::path file) : file_(std::move(file)) {
        std::filesystem::create_directories(file_.parent_path());
        std::ifstream in(file_);
        for (std::string key, text; in >> key && std::getline(in >> std::ws, text);) entries_[key] = text;
    }
    std::string at(const std::string& key) const {
        const auto found = entries_.find(key);
        return found == entries_.end() ? "" : found->second;
    }
    void set(const std::string& key, const std::string& text) {
        entries_[key] = text;
        const std::filesystem::path next = file_.string() + ".next";
        std::ofstream out(next);
        for (const auto& [k, t] : entries_) out << k << " " << t << "\n";
        out.close();
        std::filesystem::rename(next, file_);
    }

private:
    std::filesystem::path file_;
    std::map<std::string, std::string> entries_;
};

std::string hexadecimal(std::uint64_t value) {
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
    return text;
}

/// A key that changes with the library.
std::string library_key() {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (unsigned char c : read_text(TUVO_LIBRARY)) hash = (hash ^ c) * 0x100000001b3;
    return hexadecimal(hash);
}

/// Every float of every family of one float, against exact values. Faults are errors beyond the family's line.
int run_exhaustive(const std::filesystem::path& folder, const std::string& filter) {
    Done done(folder / "exhaustive.txt");
    std::vector<const DescribedFamily*> wanted;
    const std::regex regex(filter);
    for (const DescribedFamily& described : described_families())
        if (can_measure_all(*described.family) && std::regex_search(described.family->name(), regex)) wanted.push_back(&described);
    int faults = 0;
    Progress progress(0);
    for (std::size_t k = 0; k < wanted.size(); ++k) {
        const Family& family = *wanted[k]->family;
        // Tiers that run the same steps share what is found.
        const std::string key = family.stem + "-" + hexadecimal(hash_of(*wanted[k]));
        if (done.at(key).empty()) {
            const Exhaustive errors = measure_all(*wanted[k], [&](double part) {
                progress.show((static_cast<double>(k) + part) / static_cast<double>(wanted.size()), family.name());
            });
            std::ostringstream text;
            text << errors.measured.ulp << " ulp at " << hex(errors.measured.worst);
            done.set(key, text.str());
        }
        // Of an exact family, the error is that of the rounding.
        const double ulp = std::stod(done.at(key)), line = std::max(0.5, wanted[k]->accuracy.ulp);
        if (ulp <= line) continue;
        std::printf("\n%s: %s, where its line says %g\n", family.name().c_str(), done.at(key).c_str(), line);
        ++faults;
    }
    std::printf("\n%zu families over all floats, %d beyond their lines; %s\n", wanted.size(), faults,
                (folder / "exhaustive.txt").c_str());
    return faults;
}

/// Random arguments of families that have too many to try them all, `count` for each, against exact values.
int run_errors(const std::filesystem::path& folder, const std::string& filter, std::uint64_t count) {
    constexpr std::uint64_t batch = 20'000;
    Done done(folder / "errors.txt");
    std::vector<const DescribedFamily*> wanted;
    const std::regex regex(filter);
    for (const DescribedFamily& described : described_families())
        if (has_oracle(*described.family) && !can_measure_all(*described.family) &&
            std::regex_search(described.family->name(), regex))
            wanted.push_back(&described);
    Progress progress(0);
    std::atomic<std::size_t> next{0};
    std::atomic<int> faults{0};
    std::mutex mutex;
    const auto work = [&] {
        for (std::size_t k; (k = next.fetch_add(1)) < wanted.size();) {
            const Family& family = *wanted[k]->family;
            const std::string key = family.stem + "-" + hexadecimal(hash_of(*wanted[k]));
            std::uint64_t tried = 0;
            double largest = 0;
            std::string worst;
            {
                const std::lock_guard lock(mutex);
                std::istringstream text(done.at(key));
                std::string at;
                text >> tried >> largest >> at;
                std::getline(text >> std::ws, worst);
            }
            while (tried < count) {
                const std::uint64_t size = std::min(batch, count - tried);
                const Measured measured = measure_random(*wanted[k], tried, size);
                if (measured.ulp > largest) largest = measured.ulp, worst = hex(measured.worst);
                std::ostringstream text;
                text << (tried += size) << " " << largest << " at " << worst;
                const std::lock_guard lock(mutex);
                done.set(key, text.str());
                progress.show((static_cast<double>(k) + static_cast<double>(tried) / static_cast<double>(count)) /
                                  static_cast<double>(wanted.size()),
                              family.name());
            }
            // Of an exact family, the error is that of the rounding.
            const double line = std::max(0.5, wanted[k]->accuracy.ulp);
            if (largest <= line) continue;
            const std::lock_guard lock(mutex);
            std::printf("\n%s: %g ulp at %s, where its line says %g\n", family.name().c_str(), largest, worst.c_str(), line);
            ++faults;
        }
    };
    std::vector<std::thread> threads;
    for (unsigned k = 0; k < std::max(1u, std::thread::hardware_concurrency()); ++k) threads.emplace_back(work);
    for (std::thread& thread : threads) thread.join();
    std::printf("\n%zu families, %d beyond their lines; %s\n", wanted.size(), faults.load(), (folder / "errors.txt").c_str());
    return faults;
}

/// Random programs of the generator, as the suite runs them, from one number on.
int run_programs(const std::filesystem::path& folder, std::uint64_t count) {
    constexpr std::uint64_t batch = 2000, first = 1'000'000;
    Done done(folder / "programs.txt");
    const std::string key = "generator-" + library_key();
    std::uint64_t ran = done.at(key).empty() ? 0 : std::stoull(done.at(key));
    Progress progress(static_cast<double>(ran) / static_cast<double>(count));
    while (ran < count) {
        progress.show(static_cast<double>(ran) / static_cast<double>(count), std::to_string(ran) + " programs");
        const std::uint64_t size = std::min(batch, count - ran);
        const CommandResult result =
            run_command(folder, "TUVO_SEED=" + std::to_string(first + ran) + " TUVO_PROGRAMS=" + std::to_string(size) + " '" TUVO_RANDOM_PROGRAMS "'");
        if (result.status != 0) {
            std::printf("\n%s\n", result.out.c_str());
            return 1;
        }
        done.set(key, std::to_string(ran += size));
    }
    std::printf("\n%llu random programs, no fault\n", static_cast<unsigned long long>(ran));
    return 0;
}

/// Kernels against the interpreter, or the rare routine, at every width.
int run_lanes(const std::filesystem::path& folder, std::uint64_t count) {
    constexpr std::size_t lanes_a_round = 4800;
    Done done(folder / "lanes.txt");
    const std::string key = "library-" + library_key();
    std::uint64_t compared = 0, rounds = 0;
    if (std::istringstream text(done.at(key)); text >> compared >> rounds) {}
    const std::vector<DescribedFamily>& families = described_families();
    Progress progress(static_cast<double>(compared) / static_cast<double>(count));
    std::string faults;
    std::mutex mutex;
    for (; compared < count && faults.empty(); ++rounds) {
        std::atomic<std::size_t> next{0};
        const auto work = [&] {
            for (std::size_t k; (k = next.fetch_add(1)) < families.size();) {
                const Family& family = *families[k].family;
                const std::uint64_t seed = 1000 + rounds;
                const std::vector<LaneCase> lanes = lane_cases(families[k], seed, lanes_a_round);
                const std::vector<std::vector<std::uint64_t>> expected = expected_outputs(family, lanes);
                std::uint64_t own = 0;
                std::string own_faults;
                for (int width : widths) own += compare_lanes(family, width, lanes, expected, seed, own_faults);
                const std::lock_guard lock(mutex);
                compared += own;
                faults += own_faults;
                progress.show(std::min(1.0, static_cast<double>(compared) / static_cast<double>(count)), family.name());
            }
        };
        std::vector<std::thread> threads;
        for (unsigned k = 0; k < std::max(1u, std::thread::hardware_concurrency()); ++k) threads.emplace_back(work);
        for (std::thread& thread : threads) thread.join();
        if (faults.empty()) done.set(key, std::to_string(compared) + " " + std::to_string(rounds + 1));
    }
    std::printf("\n%s%llu lanes compared, %s\n", faults.c_str(), static_cast<unsigned long long>(compared),
                faults.empty() ? "no fault" : "faults as above");
    return faults.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Runs that take hours; each goes on where it was stopped.", "tuvo-soak");
    app.require_subcommand(1);
    std::string folder = ".", filter;
    std::uint64_t programs = 1'000'000, lanes = 1'000'000'000, arguments = 1'000'000;
    app.add_option("--folder", folder, "where is written what is done");
    CLI::App* exhaustive = app.add_subcommand("exhaustive", "every float of every family of one float, against exact values");
    exhaustive->add_option("--filter", filter, "regular expression of families");
    CLI::App* errors = app.add_subcommand("errors", "random arguments of all other families, against exact values");
    errors->add_option("N", arguments, "how many of each family")->capture_default_str();
    errors->add_option("--filter", filter, "regular expression of families");
    CLI::App* random = app.add_subcommand("programs", "random programs of the generator, against the interpreter");
    random->add_option("N", programs, "how many in all")->capture_default_str();
    CLI::App* every = app.add_subcommand("lanes", "all exports on random arguments of all kinds, against the interpreter");
    every->add_option("N", lanes, "how many lanes in all")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try {
        if (*exhaustive) return run_exhaustive(folder, filter) != 0;
        if (*errors) return run_errors(folder, filter, arguments) != 0;
        if (*random) return run_programs(folder, programs);
        return run_lanes(folder, lanes);
    } catch (const std::exception& error) {
        std::cerr << "tuvo-soak: " << error.what() << "\n";
        return 2;
    }
}

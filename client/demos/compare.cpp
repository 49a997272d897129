#include "client/demos/compare.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>

namespace tuvo::client {
namespace {

using Clock = std::chrono::steady_clock;

double seconds(const std::function<void(const Program&)>& work, const Program& program) {
    const auto start = Clock::now();
    work(program);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

Settings scalar_settings(Settings settings) {
    settings.scalar_libm = true;
    return settings;
}

}  // namespace

void Comparison::add(double computed, double exact, double allowed) {
    ++values_;
    const double difference = std::fabs(computed - exact);
    const double share = difference == 0 ? 0 : difference / allowed;
    largest_ = std::max(largest_, difference);
    // A NaN fails this way round.
    if (!(share <= share_)) share_ = std::isnan(share) ? std::numeric_limits<double>::infinity() : share;
}

bool Comparison::report(const std::string& what) const {
    const bool agrees = share_ <= 1;
    std::printf(
        "%s: %s the reference; values compared: %llu, largest difference %.1e, at most %.0f %% of what is allowed\n",
        what.c_str(), agrees ? "agree with" : "DIFFER from", static_cast<unsigned long long>(values_), largest_,
        100 * share_);
    return agrees;
}

Contest::Contest(const std::filesystem::path& source, const Settings& settings)
    : library(build_program(source, settings)), scalar(build_program(source, scalar_settings(settings))) {}

void Contest::report(const std::string& what, const std::string& items, double count,
                     const std::function<void(const Program&)>& work) const {
    // Each takes its turn, so that a busy neighbour slows both; the quietest turns count.
    double own = std::numeric_limits<double>::infinity(), other = own;
    const auto start = Clock::now();
    for (int turn = 0; turn < 3 || (turn < 20 && Clock::now() - start < std::chrono::milliseconds(500)); ++turn) {
        own = std::min(own, seconds(work, library));
        other = std::min(other, seconds(work, scalar));
    }
    std::printf("%s: %.1f million %s a second, %.1f million with the functions of scalar libm; %.1f times as fast\n",
                what.c_str(), count / own / 1e6, items.c_str(), count / other / 1e6, other / own);
}

}  // namespace tuvo::client

// A breather and a kink of the sine-Gordon equation pass through each other; by the leapfrog method.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "client/demos/compare.hpp"
#include "client/demos/demo.hpp"
#include "client/demos/launch.hpp"
#include "client/demos/png.hpp"

namespace tuvo::client {
namespace {

constexpr std::uint32_t points = 2048, margin = 8;
constexpr int steps = 3456, steps_a_row = 6;
constexpr float dx = 1.0f / 32, step = 1.0f / 64, left = -32;

struct Start {
    float w, k;
    float breather, breather_velocity, kink, kink_velocity;
};
constexpr Start start{0.6f, 0.8f, -12, 0.3f, 14, -0.4f};

double gamma_of(double velocity) { return 1 / std::sqrt(1 - velocity * velocity); }

/// The field as the OpenCL C program moves it.
struct Simulation {
    explicit Simulation(const Program& running) : program(running) {
        launch(program, "start", (points + 2 * margin) / 8, left, dx, start.w, start.k, start.breather,
               start.breather_velocity, start.kink, start.kink_velocity, field, velocity);
    }
    void kick(const Program& running, float time) { launch(running, "kick", points / 8, field, velocity, time, dx); }
    void kick(float time) { kick(program, time); }
    void drift(float time) { launch(program, "drift", points / 8, field, velocity, time); }
    double energy() {
        launch(program, "energies", points / 8, field, velocity, dx, energies);
        return std::accumulate(energies.begin(), energies.end(), 0.0);
    }

    const Program& program;
    std::vector<float> field = std::vector<float>(points + 2 * margin), velocity = field, energies = field;
};

/// The same in double.
struct Reference {
    Reference() {
        const double w = start.w, k = start.k, v = start.breather_velocity, u = start.kink_velocity;
        for (std::size_t i = 0; i < field.size(); ++i) {
            const double x = left + dx * (static_cast<double>(i) - margin);
            const double own_x = gamma_of(v) * (x - start.breather), phase = -w * v * own_x;
            const double height = k / std::cosh(k * own_x), tangent = height / w * std::sin(phase);
            const double slope = height * std::cos(phase) + v * k * tangent * std::tanh(k * own_x);
            const double kink_x = gamma_of(u) * (x - start.kink);
            field[i] = 4 * std::atan(tangent) + 4 * std::atan(std::exp(kink_x));
            velocity[i] = 4 * gamma_of(v) * slope / (1 + tangent * tangent) - 2 * gamma_of(u) * u / std::cosh(kink_x);
        }
    }
    void kick(double time) {
        for (std::size_t i = margin; i < margin + points; ++i)
            velocity[i] += time * ((field[i - 1] - 2 * field[i] + field[i + 1]) / (dx * dx) - std::sin(field[i]));
    }
    void drift(double time) {
        for (std::size_t i = margin; i < margin + points; ++i) field[i] += time * velocity[i];
    }
    double energy() const {
        double sum = 0;
        for (std::size_t i = margin; i < margin + points; ++i) {
            const double slope = (field[i + 1] - field[i]) / dx;
            sum += dx * ((velocity[i] * velocity[i] + slope * slope) / 2 + 1 - std::cos(field[i]));
        }
        return sum;
    }

    std::vector<double> field = std::vector<double>(points + 2 * margin), velocity = field;
};

/// Runs all steps, with half a kick at both ends so that velocities belong to the same time as the field there. Returns
/// by what part of itself the energy has changed.
template <typename System>
double energy_drift(
    System& system, const std::function<void(int)>& after_step = [](int) {}) {
    const double before = system.energy();
    system.kick(step / 2);
    for (int k = 0; k < steps; ++k) {
        system.drift(step);
        system.kick(k + 1 < steps ? step : step / 2);
        after_step(k);
    }
    return (system.energy() - before) / before;
}

/// Where the field passes pi: the kink, once it is alone.
template <typename T>
double kink_position(const std::vector<T>& field) {
    const double pi = std::acos(-1);
    std::size_t i = 0;
    while (i + 2 < field.size() && field[i + 1] < pi) ++i;
    const double part = (pi - field[i]) / (field[i + 1] - field[i]);
    return left + dx * (static_cast<double>(i) + part - margin);
}

/// The kink's shift by the breather that has passed, to the side that it goes to: with a the Doppler factors,
/// gamma times it is 4 artanh(2 a1 a2 k / (a1^2 + a2^2)).
double expected_shift() {
    const auto doppler = [](double velocity) { return std::sqrt((1 - velocity) / (1 + velocity)); };
    const double a1 = doppler(start.kink_velocity), a2 = doppler(start.breather_velocity);
    return 4 * std::atanh(2 * a1 * a2 * start.k / (a1 * a1 + a2 * a2)) / gamma_of(start.kink_velocity);
}

/// Time runs downward. A vacuum has the colour of its number of turns, and energy is bright.
class Picture {
public:
    void add_row(int row, const Simulation& simulation) {
        for (int x = 0; x < columns; ++x) {
            const std::size_t i = margin + static_cast<std::size_t>(x) * (points / columns);
            const double field = simulation.field[i], velocity = simulation.velocity[i];
            const double slope = (simulation.field[i + 1] - field) / dx, s = std::sin(field / 2);
            const double energy = (velocity * velocity + slope * slope) / 2 + 2 * s * s;
            const double light = 0.12 + 0.88 * (1 - std::exp(-0.45 * energy));
            const double turn = std::clamp(field / (2 * std::acos(-1)), 0.0, 1.0);
            const double below = std::clamp(-field / 2, 0.0, 1.0);
            const auto level = [&](double part) {
                return static_cast<std::uint8_t>(255 * std::min(1.0, light * (part + 0.3 * light)));
            };
            image_.at(x, row) = {level(0.25 + 0.75 * turn), level(0.5 - 0.1 * turn + 0.4 * below),
                                 level(1.0 - 0.8 * turn - 0.3 * below)};
        }
    }
    const Image& image() const { return image_; }

private:
    static constexpr int columns = 1024;
    Image image_{columns, steps / steps_a_row, {}};
};

bool pass_through(const DemoOptions& options) {
    const Contest contest(demo_program("soliton"), options.settings);
    Simulation simulation(contest.library);
    Reference reference;
    Simulation scratch = simulation;
    contest.report("float8", "points", points, [&](const Program& program) { scratch.kick(program, step); });

    // Velocities are sums of a few terms of that size.
    Comparison beginning;
    for (std::size_t i = 0; i < simulation.field.size(); ++i) {
        beginning.add(simulation.field[i], reference.field[i], 0x1p-19);
        beginning.add(simulation.velocity[i], reference.velocity[i], 0x1p-19);
    }
    Picture picture;
    const double drift = energy_drift(simulation, [&](int k) {
        if (k % steps_a_row == 0) picture.add_row(k / steps_a_row, simulation);
    });
    const double expected_drift = energy_drift(reference);
    const std::string path = (options.folder / "soliton.png").string();
    write_png(picture.image(), path);

    const double at = kink_position(simulation.field), expected_at = kink_position(reference.field);
    const double undisturbed = start.kink + static_cast<double>(start.kink_velocity) * step * steps;
    std::printf("%u points, %d steps: %s\n", points, steps, path.c_str());
    std::printf("change of energy: %.2e of it, %.2e in double\n", drift, expected_drift);
    std::printf("the breather has moved the kink by %.4f, %.4f in double; %.4f by theory\n", at - undisturbed,
                expected_at - undisturbed, -expected_shift());

    // Each step rounds a field of up to 2 pi once, to 2^-23 either way, and waves carry that on: it adds up as noise
    // does.
    Comparison end, shift;
    for (std::size_t i = 0; i < simulation.field.size(); ++i)
        end.add(simulation.field[i], reference.field[i], 0x1p-24 * steps);
    // A twelfth of what the method itself loses.
    Comparison energy;
    energy.add(drift, expected_drift, 0x1p-19);
    // Space and time in steps make the kink a little slow, and nothing else.
    shift.add(at - undisturbed, -expected_shift(), 0.01);
    const bool begins = beginning.report("fields at the beginning"), ends = end.report("fields at the end");
    const bool keeps = energy.report("changes of energy");
    return shift.report("shifts against theory") && begins && ends && keeps;
}

const RegisterDemo registered({"soliton", "a breather and a kink that pass through each other", pass_through});

}  // namespace
}  // namespace tuvo::client

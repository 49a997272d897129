// Two discs of bodies pass each other; by the leapfrog method.
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

constexpr std::uint32_t count = 512;
constexpr int steps = 300;
constexpr float softening = 0.1f, step = 0.01f;

/// Units of length, time and mass are such that the constant of gravitation is 1.
template <typename T>
struct Bodies {
    std::vector<T> x, y, vx, vy, mass;

    void add(double px, double py, double ux, double uy, double m) {
        x.push_back(static_cast<T>(px)), y.push_back(static_cast<T>(py));
        vx.push_back(static_cast<T>(ux)), vy.push_back(static_cast<T>(uy));
        mass.push_back(static_cast<T>(m));
    }
};

/// Half of the bodies around each of two heavy ones, which come near each other.
Bodies<float> two_discs() {
    Bodies<float> bodies;
    constexpr double light = 0.1 / count;
    for (const double side : {-1.0, 1.0}) {
        const double x = 1.2 * side, y = 0.6 * side, vx = -0.7 * side;
        bodies.add(x, y, vx, 0, 1);
        for (std::uint32_t k = 1; k < count / 2; ++k) {
            // As the seeds of a sunflower: evenly over the disc, no two in line.
            const double radius = std::sqrt(0.02 + 0.34 * k / (count / 2)), angle = 2.399963 * k;
            const double speed =
                radius * std::sqrt(1 + light * k) / std::pow(radius * radius + softening * softening, 0.75);
            bodies.add(x + radius * std::cos(angle), y + radius * std::sin(angle), vx - speed * std::sin(angle),
                       speed * std::cos(angle), light);
        }
    }
    return bodies;
}

/// The bodies as the OpenCL C program moves them.
struct Simulation {
    Simulation(const Program& running, Bodies<float> start) : program(running), bodies(std::move(start)) {}

    void accelerate(const Program& running) {
        launch(running, "accelerate", count / 8, bodies.x, bodies.y, bodies.mass, count, softening, ax, ay);
    }
    void go_on(float kick, float drift) {
        accelerate(program);
        launch(program, "move", count / 8, bodies.x, bodies.vx, ax, kick, drift);
        launch(program, "move", count / 8, bodies.y, bodies.vy, ay, kick, drift);
    }
    double energy() {
        std::vector<float> each(count);
        launch(program, "energies", count / 8, bodies.x, bodies.y, bodies.vx, bodies.vy, bodies.mass, count, softening,
               each);
        return std::accumulate(each.begin(), each.end(), 0.0);
    }

    const Program& program;
    Bodies<float> bodies;
    std::vector<float> ax = std::vector<float>(count), ay = ax;
};

/// The same in double.
struct Reference {
    explicit Reference(const Bodies<float>& start) {
        for (std::uint32_t k = 0; k < count; ++k)
            bodies.add(start.x[k], start.y[k], start.vx[k], start.vy[k], start.mass[k]);
    }

    double softened(std::uint32_t i, std::uint32_t k) const {
        const double dx = bodies.x[k] - bodies.x[i], dy = bodies.y[k] - bodies.y[i];
        return std::sqrt(dx * dx + dy * dy + static_cast<double>(softening) * softening);
    }
    void accelerate() {
        for (std::vector<double>* sums : {&ax, &ay, &magnitudes}) sums->assign(count, 0);
        for (std::uint32_t i = 0; i < count; ++i)
            for (std::uint32_t k = 0; k < count; ++k) {
                const double distance = softened(i, k), pull = bodies.mass[k] / (distance * distance * distance);
                ax[i] += pull * (bodies.x[k] - bodies.x[i]);
                ay[i] += pull * (bodies.y[k] - bodies.y[i]);
                magnitudes[i] += pull * distance;
            }
    }
    void go_on(double kick, double drift) {
        accelerate();
        for (std::uint32_t i = 0; i < count; ++i) {
            bodies.x[i] += drift * (bodies.vx[i] += kick * ax[i]);
            bodies.y[i] += drift * (bodies.vy[i] += kick * ay[i]);
        }
    }
    double energy() const {
        double sum = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            sum += bodies.mass[i] * (bodies.vx[i] * bodies.vx[i] + bodies.vy[i] * bodies.vy[i]) / 2;
            for (std::uint32_t k = 0; k < i; ++k) sum -= bodies.mass[i] * bodies.mass[k] / softened(i, k);
        }
        return sum;
    }

    Bodies<double> bodies;
    std::vector<double> ax, ay;
    std::vector<double> magnitudes;  ///< of the terms that an acceleration is the sum of
};

/// Runs all steps, with half a kick at both ends so that velocities belong to the same time as positions there. Returns
/// by what part of itself the energy has changed.
template <typename System>
double energy_drift(
    System& system, const std::function<void()>& after_step = [] {}) {
    const double start = system.energy();
    system.go_on(step / 2, step);
    for (int k = 1; k < steps; ++k) {
        system.go_on(step, step);
        after_step();
    }
    system.go_on(step / 2, 0);
    return (system.energy() - start) / std::fabs(start);
}

/// The ways of the bodies, in a colour for each disc, brighter where more of them passed.
class Tracks {
public:
    void add(const Bodies<float>& bodies) {
        for (std::uint32_t k = 0; k < count; ++k) {
            const auto pixel = [](float coordinate) {
                return size / 2 + static_cast<int>(std::lround(180 * coordinate));
            };
            const int x = pixel(bodies.x[k]), y = pixel(-bodies.y[k]);
            if (std::min(x, y) < 0 || std::max(x, y) >= size) continue;
            passed_[k < count / 2][static_cast<std::size_t>(y * size + x)] += 1;
        }
    }
    Image image() const {
        Image result(size, size, {});
        for (std::size_t k = 0; k < result.pixels.size(); ++k) {
            const double warm = std::sqrt(passed_[0][k]), cold = std::sqrt(passed_[1][k]);
            const auto level = [](double light) { return static_cast<std::uint8_t>(255 * (1 - std::exp(-light))); };
            result.pixels[k] = {level(0.8 * warm + 0.2 * cold), level(0.4 * (warm + cold)),
                                level(0.15 * warm + 0.9 * cold)};
        }
        return result;
    }

private:
    static constexpr int size = 720;
    std::array<std::vector<int>, 2> passed_{std::vector<int>(size * size), std::vector<int>(size* size)};
};

bool move_bodies(const DemoOptions& options) {
    const Contest contest(demo_program("bodies"), options.settings);
    Simulation simulation(contest.library, two_discs());
    Reference reference(simulation.bodies);
    contest.report("float8", "pairs", static_cast<double>(count) * count,
                   [&](const Program& program) { simulation.accelerate(program); });

    simulation.accelerate(contest.library);
    reference.accelerate();
    Comparison accelerations;
    // Each of a sum's roundings is at most 2^-24 of the magnitudes so far, and so are the few of a term.
    for (std::uint32_t k = 0; k < count; ++k) {
        const double allowed = 0x1p-24 * (count + 16) * reference.magnitudes[k];
        accelerations.add(simulation.ax[k], reference.ax[k], allowed);
        accelerations.add(simulation.ay[k], reference.ay[k], allowed);
    }

    Tracks tracks;
    const double drift = energy_drift(simulation, [&] { tracks.add(simulation.bodies); });
    const double expected = energy_drift(reference);
    const std::string path = (options.folder / "bodies.png").string();
    write_png(tracks.image(), path);
    std::printf("%u bodies, %d steps: %s\n", count, steps, path.c_str());
    std::printf("change of energy: %.2e of it, %.2e in double\n", drift, expected);
    // What the method itself loses is eight times as much.
    Comparison energy;
    energy.add(drift, expected, 0x1p-14);
    const bool accelerations_agree = accelerations.report("accelerations");
    return energy.report("changes of energy") && accelerations_agree;
}

const RegisterDemo registered({"bodies", "two discs of bodies that pass each other", move_bodies});

}  // namespace
}  // namespace tuvo::client

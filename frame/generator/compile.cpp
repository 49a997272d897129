#include "frame/generator/compile.hpp"

#include "frame/generator/schedule.hpp"

namespace tuvo {

AllocatedKernel compile(const Kernel& kernel) {
    // Where all sixteen are free or saved in any case, they may as well be used.
    const bool all_free = kernel.preserved != Preserved::upper_vectors_and_pointers || clears_upper_halves(kernel);
    const std::vector<int> budgets = all_free ? std::vector<int>{16} : std::vector<int>{8, 10, 12, 16};
    constexpr Policy policies[] = {Policy::longest_chain, Policy::as_written, Policy::depth_first};
    constexpr int pressures[] = {16, 12, 10, 9, 8, 7, 6, 5, 4};

    std::vector<std::vector<Instruction>> bodies;
    for (const KernelSection& section : kernel.sections) bodies.push_back(section.body);
    const auto schedule_sections = [&](bool main, Policy policy, int pressure) {
        int cycles = 0;
        for (std::size_t s = main ? 0 : 1; s < (main ? 1 : bodies.size()); ++s) {
            Scheduled scheduled = schedule(kernel, kernel.sections[s].body, policy, pressure);
            bodies[s] = std::move(scheduled.order);
            cycles += scheduled.cycles;
        }
        return cycles;
    };
    // An added instruction takes its share of the four that enter the pipeline in a cycle, and spills lengthen chains;
    // the model's cycles matter less, as the processor reorders by itself.
    const auto cost = [](int cycles, int added) { return 0.5 * cycles + added; };

    schedule_sections(false, Policy::depth_first, 8);
    AllocatedKernel best;
    std::vector<Instruction> best_main;
    int best_budget = 0;
    double best_cost = 1e18;
    for (const Policy policy : policies) {
        for (int pressure : pressures) {
            const int cycles = schedule_sections(true, policy, pressure);
            for (int budget : budgets) {
                AllocatedKernel candidate = allocate(kernel, bodies, budget);
                const bool fits = candidate.main_slots == 0;
                if (cost(cycles, candidate.cost) < best_cost - 1e-9) {
                    best_cost = cost(cycles, candidate.cost), best = std::move(candidate);
                    best_main = bodies[0], best_budget = budget;
                }
                if (fits) break;  // more registers would only be saved in vain
            }
        }
    }
    if (bodies.size() == 1) return best;

    bodies[0] = best_main;
    best_cost = 1e18;
    for (const Policy policy : policies) {
        for (int pressure : pressures) {
            const int cycles = schedule_sections(false, policy, pressure);
            AllocatedKernel candidate = allocate(kernel, bodies, best_budget);
            if (cost(cycles, candidate.outline_cost) < best_cost - 1e-9)
                best_cost = cost(cycles, candidate.outline_cost), best = std::move(candidate);
        }
    }
    return best;
}

}  // namespace tuvo

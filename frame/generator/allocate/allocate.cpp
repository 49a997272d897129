// Register allocation over straight-line code: when a register is needed, the value whose next use lies farthest away
// gives way. Constants and stack arguments are dropped and re-read; other values go to a spill slot once.
#include "frame/generator/allocate.hpp"

#include "frame/generator/allocate/body.hpp"
#include "frame/generator/allocate/registers.hpp"

namespace tuvo {
namespace {

/// Wishes of results, which what a section in the main code replaces hands down to what it was before.
std::vector<int> find_hints(const Kernel& kernel, const std::vector<Instruction>& main) {
    std::vector<int> hints;
    for (const VirtualRegister& r : kernel.registers) hints.push_back(r.hint);
    for (const Instruction& i : main)
        if (i.section >= 0)
            for (const Joined& j : kernel.sections[i.section].joins) hints[j.before] = hints[j.joined];
    return hints;
}

/// The state at entry: arguments in their registers, but for those that nothing reads.
void enter(Allocation& a, const Body& main) {
    for (auto& file : a.registers.held) file.fill(-1);
    for (int value = 0; value < int(a.registers.values.size()); ++value) {
        const int fixed = a.kernel.registers[value].fixed;
        if (fixed >= 0 && !main.uses[value].empty()) place(a, value, fixed);
    }
}

/// Who saves which of the caller's ymm8 to ymm15, and what that costs.
void assign_saves(Allocation& a) {
    if (a.kernel.preserved == Preserved::upper_vectors_and_pointers)
        for (int p = 8; p < vector_registers; ++p) {
            if (a.touched[0][p] || clears_upper_halves(a.kernel)) {
                a.result.saved.push_back(p);
                continue;
            }
            for (std::size_t s = 1; s < a.touched.size(); ++s)
                if (a.touched[s][p]) a.result.sections[s].saved.push_back(p), a.result.outline_cost += 2;
        }
    a.result.cost += 2 * int(a.result.saved.size());
    constexpr int frame_cost = 6;  // set up and torn down
    if (a.result.main_slots + int(a.result.saved.size()) > red_zone_slots) a.result.cost += frame_cost;
}

}  // namespace

AllocatedKernel allocate(const Kernel& kernel, const std::vector<std::vector<Instruction>>& bodies, int vectors) {
    Allocation a{kernel,
                 bodies,
                 {vectors, general_registers},
                 find_hints(kernel, bodies[0]),
                 {},
                 0,
                 nullptr,
                 {},
                 {},
                 0,
                 {},
                 section_slots,
                 0,
                 {}};
    a.registers.values.resize(kernel.registers.size());
    a.touched.resize(kernel.sections.size());
    a.result.sections.resize(kernel.sections.size());
    const Body main = find_uses(a, 0, {});
    enter(a, main);
    allocate_body(a, main);
    a.result.cost = a.cost;
    assign_saves(a);
    a.result.outline_slots = a.next_outline_slot - section_slots;
    return std::move(a.result);
}

}  // namespace tuvo

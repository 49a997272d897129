// What the writing of one kernel consists of.
#pragma once

#include <ostream>
#include <set>

#include "frame/generator/emit.hpp"

namespace tuvo {

inline constexpr int slot_bytes = 32;

/// What lies where in the frame, in bytes from `rsp` upward. A kernel may have one from the start, if it spills much;
/// else the first out-of-line code that needs room sets it up.
struct FramePlan {
    bool main_has_it = false;
    int bytes = 0;
    std::int64_t section_slots_at = 0;    ///< spill slots of out-of-line sections
    std::int64_t section_saves_at = 0;    ///< preserved registers that a section alone writes
    std::int64_t rare_path_saves_at = 0;  ///< preserved registers that nothing has saved before the rare path
    std::int64_t stash_at = 0;
};

FramePlan plan_frame(const Kernel& kernel, const AllocatedKernel& allocated);

/// An out-of-line section that is still to be written, and the state in which it is entered.
struct Outlined {
    int section;
    bool framed;
    std::set<int> saved;
};

struct Emission {
    std::ostream& out;
    const Kernel& kernel;
    const AllocatedKernel& allocated;
    const BlockLayout& blocks;
    const FramePlan frame;

    // About the code that is being written.
    bool framed = false;        ///< whether it has the frame
    bool on_rare_path = false;  ///< whether it may use what is the rare path's own
    std::set<int> saved;        ///< preserved vector registers that are saved by then

    std::vector<Outlined> outlined;
};

}  // namespace tuvo

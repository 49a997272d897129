// The frame of a kernel: what lies in it, how it is set up and torn down, and any-lane sections, which are what stands
// between.
#pragma once

#include "frame/generator/emit/state.hpp"

namespace tuvo {

/// Preserved vector registers that the rare path has to save, since the main section hasn't.
std::vector<int> unsaved_registers(const Kernel& kernel, const AllocatedKernel& allocated);
/// Room of a value on the stash.
std::int64_t stash_bytes(const Kernel& kernel, const StashArray& array);

void open_frame(Emission& e);
void close_frame(Emission& e);

/// Writes vector registers to consecutive places of 32 bytes, or reads them back.
void save_registers(Emission& e, const std::vector<int>& registers, std::int64_t at);
void reload_registers(Emission& e, const std::vector<int>& registers, std::int64_t at);

void write_any_lane_section(Emission& e, int section);

}  // namespace tuvo

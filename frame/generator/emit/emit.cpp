// Writes allocated kernels as GNU assembler text.
//
// Stack, from the address E that holds the return address downward. A kernel that spills little keeps its slots in the
// 128 bytes under the stack pointer and moves nothing; the first out-of-line section that needs room sets up the frame.
//
//     E - 8      rbp of the caller, once there is a frame; rbp points here
//     E - 40     first spill slot of a frameless kernel, further ones 32 bytes below each
//     E - 112    rbx, r12, rsi, rdi, on the rare path
//     aligned to 64 bytes, from rsp upward: slots, preserved vector registers, the stash
#include "frame/generator/emit.hpp"

#include <sstream>

#include "frame/generator/emit/body.hpp"
#include "frame/generator/emit/frame.hpp"
#include "frame/generator/emit/rare_path.hpp"
#include "frame/generator/emit/text.hpp"

namespace tuvo {
namespace {

std::string saved_address(const Emission& e, std::size_t k) {
    return slot_address(e, e.allocated.main_slots + int(k), 256);
}

/// The main section, from the entry to `ret`.
void write_main(Emission& e) {
    const std::vector<int>& saved = e.allocated.saved;
    if (e.frame.main_has_it) open_frame(e);
    for (std::size_t k = 0; k < saved.size(); ++k)
        write_line(e, Mnemonic::vmovups, saved_address(e, k) + ", " + register_name(File::vector, saved[k], 256));
    write_body(e, e.allocated.sections[0].code);
    if (clears_upper_halves(e.kernel)) write_line(e, Mnemonic::vzeroupper);
    for (std::size_t k = 0; k < saved.size(); ++k)
        write_line(e, Mnemonic::vmovups, register_name(File::vector, saved[k], 256) + ", " + saved_address(e, k));
    if (e.frame.main_has_it) {
        write_directive(e, ".cfi_remember_state");
        close_frame(e);
    }
    write_line(e, Mnemonic::ret);
    if (e.frame.main_has_it) write_directive(e, ".cfi_restore_state");
}

void write_outlined(Emission& e, const Outlined& outlined) {
    e.framed = outlined.framed, e.saved = outlined.saved;
    // A section inside another that set the frame up begins in that frame.
    const bool inherits = outlined.framed && !e.frame.main_has_it;
    if (inherits) {
        write_directive(e, ".cfi_def_cfa rbp, 16");
        write_directive(e, ".cfi_offset rbp, -16");
    }
    e.on_rare_path = e.kernel.sections[outlined.section].rare.has_value();
    if (e.on_rare_path)
        write_rare_path(e, outlined.section);
    else
        write_any_lane_section(e, outlined.section);
    if (inherits) {
        write_directive(e, ".cfi_def_cfa rsp, 8");
        write_directive(e, ".cfi_restore rbp");
    }
}

void write_kernel(Emission& e) {
    const std::string& symbol = e.kernel.symbol;
    e.out << "\n    .p2align 5\n    .globl " << symbol << "\n    .type " << symbol << ", @function\n"
          << symbol << ":\n    .cfi_startproc\n";
    write_main(e);
    // Sections add those inside them.
    for (std::size_t k = 0; k < e.outlined.size(); ++k) write_outlined(e, Outlined(e.outlined[k]));
    e.out << "    .cfi_endproc\n    .size " << symbol << ", . - " << symbol << "\n";
    write_pool(e);
}

}  // namespace

void emit(std::ostream& out, const Kernel& kernel, const AllocatedKernel& allocated, const BlockLayout& blocks) {
    // Checked in full before a byte is written: a kernel that breaks a rule leaves no trace.
    std::ostringstream text;
    Emission e{text, kernel, allocated, blocks, plan_frame(kernel, allocated), false, false, {}, {}};
    e.saved.insert(allocated.saved.begin(), allocated.saved.end());
    write_kernel(e);
    out << text.str();
}

}  // namespace tuvo

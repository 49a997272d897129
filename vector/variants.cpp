#include "vector/variants.hpp"

#include <algorithm>

namespace tuvo {
namespace {

std::string vector_register(int bits, std::size_t number) {
    return (bits == 512 ? "zmm" : bits == 256 ? "ymm" : "xmm") + std::to_string(number);
}

/// The address of a kernel, as an operand. The loader has written it before anything runs.
std::string kernel(const Family& family, int width) {
    return "[rip + " + export_name(family, width) + "@GOTPCREL]";
}

/// How one register of the ABI and the kernel's parts correspond.
struct Move {
    int bits, part_bits;        ///< of the register, of a part
    std::size_t source, target;  ///< numbers of the first of each
};

std::vector<Move> moves_of(const Variant& variant) {
    std::vector<Move> moves;
    std::size_t source = 0, target = 0;
    for (Lane lane : variant.function->family->arguments) {
        const std::vector<int> from = registers_of(variant.set, lane, variant.lanes), to = part_bits(lane, variant.lanes);
        const std::size_t count = std::min(from.size(), to.size());
        for (std::size_t k = 0; k < count; ++k)
            moves.push_back({from[0], to[0], source + k * from.size() / count, target + k * to.size() / count});
        source += from.size();
        target += to.size();
    }
    // Parts that outnumber the registers are moved last first, so that none is overwritten before it is read.
    if (target > source) std::ranges::reverse(moves);
    return moves;
}

/// Moves arguments from the ABI's registers to the kernel's.
void move_arguments(std::ostream& out, const Variant& variant) {
    for (const auto& [bits, part, source, target] : moves_of(variant)) {
        if (bits > part)  // one register for two parts
            out << "    vextractf64x4 " << vector_register(part, target + 1) << ", " << vector_register(bits, source) << ", 1\n";
        if (bits < part)  // eight ints, without AVX2
            out << "    vinsertf128 " << vector_register(part, target) << ", " << vector_register(part, source) << ", "
                << vector_register(bits, source + 1) << ", 1\n";
        else if (source != target)
            out << "    vmovaps " << vector_register(part, target) << ", " << vector_register(part, source) << "\n";
    }
}

/// Arguments and results would need memory: the halves of the value are computed by two calls. A kernel leaves ymm8 to
/// ymm15 as they are, and the ABI lets them be overwritten.
void write_two_calls(std::ostream& out, const Variant& variant) {
    const Family& family = *variant.function->family;
    const std::size_t arguments = family.arguments.size();
    out << "    sub rsp, 8\n    .cfi_adjust_cfa_offset 8\n";
    for (std::size_t k = 0; k < arguments; ++k)
        out << "    vextractf64x4 " << vector_register(256, 8 + k) << ", " << vector_register(512, k) << ", 1\n";
    out << "    call " << kernel(family, variant.lanes / 2) << "\n    vmovaps ymm11, ymm0\n";
    for (std::size_t k = 0; k < arguments; ++k)
        out << "    vmovaps " << vector_register(256, k) << ", " << vector_register(256, 8 + k) << "\n";
    out << "    call " << kernel(family, variant.lanes / 2) << "\n    vinsertf64x4 zmm0, zmm11, ymm0, 1\n"
        << "    add rsp, 8\n    .cfi_adjust_cfa_offset -8\n    ret\n";
}

/// A call whose result is joined, or stored through the first pointer. A kernel leaves rdi and rsi as they are.
void write_call(std::ostream& out, const Variant& variant) {
    const Family& family = *variant.function->family;
    const bool stores = variant.function->stores_result;
    out << "    sub rsp, 8\n    .cfi_adjust_cfa_offset 8\n";
    move_arguments(out, variant);
    if (stores) out << "    xchg rdi, rsi\n";
    out << "    call " << kernel(family, variant.lanes) << "\n";
    const std::vector<int> parts = part_bits(family.results[0], variant.lanes);
    if (stores) {
        for (std::size_t k = 0; k < parts.size(); ++k)
            out << "    vmovups [rsi + " << 32 * k << "], " << vector_register(parts[k], k) << "\n";
        if (parts[0] == 256) out << "    vzeroupper\n";
    } else if (parts.size() == 2) {
        out << "    vinsertf64x4 zmm0, zmm0, ymm1, 1\n";
    }
    out << "    add rsp, 8\n    .cfi_adjust_cfa_offset -8\n    ret\n";
}

void write_variant(std::ostream& out, const Variant& variant) {
    const Family& family = *variant.function->family;
    const std::string symbol = variant.symbol();
    // Registers of 512 bits appear in a section of their own, which other processors never reach.
    out << (variant.set.letter == 'e' ? "    .section .text.avx512, \"ax\", @progbits\n" : "    .text\n")
        << "    .balign 16\n    .globl " << symbol << "\n    .type " << symbol << ", @function\n"
        << symbol << ":\n    .cfi_startproc\n";
    const bool results_fit = variant.set.letter != 'e' && !variant.function->stores_result;
    if (call_form(family, variant.lanes) == Form::memory) {
        write_two_calls(out, variant);
    } else if (results_fit) {
        move_arguments(out, variant);
        out << "    jmp " << kernel(family, variant.lanes) << "\n";
    } else {
        write_call(out, variant);
    }
    out << "    .cfi_endproc\n    .size " << symbol << ", . - " << symbol << "\n";
}

}  // namespace

std::string Variant::symbol() const {
    const Family& family = *function->family;
    std::string parameters(family.arguments.size(), 'v');
    if (function->stores_result) parameters.append("l").append(std::to_string(lane_size(family.results[0])));
    if (family.out) parameters.append("l").append(std::to_string(lane_size(*family.out)));
    std::string name = "_ZGV";
    name.append(1, set.letter).append("N").append(std::to_string(lanes)).append(parameters).append("_").append(function->name);
    return name;
}

std::vector<Variant> variants_of(const std::vector<CFunction>& functions) {
    std::vector<Variant> variants;
    for (const CFunction& function : functions) {
        const Family& family = *function.family;
        const Lane lane = function.stores_result ? family.arguments[0] : family.results[0];
        for (const RegisterSet& set : register_sets)
            variants.push_back({&function, set, (is_floating(lane) ? set.floating_bits : set.integer_bits) / 8 / lane_size(lane)});
    }
    return variants;
}

std::vector<int> registers_of(const RegisterSet& set, Lane lane, int lanes) {
    const int bits = std::max(128, 8 * lanes * lane_size(lane));
    const int whole = is_floating(lane) ? set.floating_bits : set.integer_bits;
    return std::vector<int>(static_cast<std::size_t>((bits + whole - 1) / whole), std::min(bits, whole));
}

void write_variants(std::ostream& out, const std::vector<Variant>& variants) {
    out << "# Vector variants of C functions. Each passes its values on to a kernel.\n    .intel_syntax noprefix\n";
    for (const Variant& variant : variants) write_variant(out, variant);
    out << "    .section .note.GNU-stack, \"\", @progbits\n";
}

}  // namespace tuvo

#include "frame/generator/layout/boundary.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "frame/generator/layout/forms.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;

std::string argument_name(int argument) { return "argument " + std::to_string(argument); }

/// What the arguments before have taken.
struct Taken {
    int vectors = 0, generals = 0;
    std::int64_t stack_bytes = 0;
};

std::vector<int> enter_from_stack(Layout& l, int argument, Type type, Taken& taken) {
    std::vector<int> parts;
    const int bits = whole_bits(l.plan, type);
    for (int p = 0; p < whole_count(l.plan, type); ++p) {
        Memory memory;
        memory.base = Memory::Base::argument, memory.offset = taken.stack_bytes;
        taken.stack_bytes += bits / 8;
        parts.push_back(
            rematerialized(l.code, vmovups, memory_operand(memory, bits), bits, File::vector, argument_name(argument)));
    }
    return parts;
}

std::vector<int> enter_from_general_register(Layout& l, Lane lane, Taken& taken) {
    static constexpr const char* names_32[] = {"edi", "esi"};
    static constexpr const char* names_64[] = {"rdi", "rsi"};
    const bool wide = lane_size(lane) == 8;
    const char* name = (wide ? names_64 : names_32)[taken.generals++];
    return {emit(l.code, wide ? vmovq : vmovd, 128, {fixed_operand(name, wide ? 64 : 32)})};
}

std::vector<int> enter_from_vector_registers(Layout& l, int argument, Lane lane, Taken& taken) {
    std::vector<int> parts;
    for (int bits : part_bits(lane, l.plan.width)) {
        const int r = new_register(l.code, l.plan.narrow ? 128 : bits);
        l.code.kernel.registers[r].fixed = taken.vectors++;
        l.code.kernel.registers[r].name = argument_name(argument);
        parts.push_back(r);
        if (bits == 256 && l.plan.narrow) parts.push_back(upper_half(l.code, r));
    }
    return parts;
}

/// One lane in all of a register of 128 bits.
int duplicated(Layout& l, int r, Lane lane) {
    const Operand source = reg(l.code, r);
    if (lane_size(lane) == 4) return emit(l.code, vpshufd, 128, {source}, 0);
    return is_floating(lane) ? emit(l.code, vmovddup, 128, {source}) : emit(l.code, vpunpcklqdq, 128, {source, source});
}

/// Two lanes of 32 bits in the upper half as well: as one of 64 bits, in the same domain.
int copied_upward(Layout& l, int r, Lane lane) { return duplicated(l, r, is_floating(lane) ? Lane::f64 : Lane::i64); }

/// The last part with a value in lane 3 that the vector path finishes.
int with_lane_3_filled(Layout& l, int r, int argument, Lane lane) {
    const Type type = type_of(lane);
    const int size = lane_size(lane), bits = whole_bits(l.plan, type);
    std::vector<std::uint8_t> mask(bits / 8), fill(bits / 8);
    std::fill(mask.end() - size, mask.end(), 0xff);
    const std::uint64_t pattern = lane3_fill(l.plan.family, argument);
    std::memcpy(fill.data() + fill.size() - size, &pattern, size);
    const bool integer = !is_floating(lane) && bits == 128;
    const int mask_register =
        rematerialized(l.code, integer ? vmovdqa : vmovaps, memory_operand(pool_item(l.code, mask, "lane 3"), bits),
                       bits, File::vector, "lane 3");
    const int cleared = emit(l.code, integer ? vpandn : vandnps, bits, {reg(l.code, mask_register), reg(l.code, r)});
    if (pattern == 0) return cleared;
    const Memory filler = pool_item(l.code, fill, "fill of lane 3: " + describe_pattern(type, pattern));
    return emit(l.code, integer ? vpor : vorps, bits, {reg(l.code, cleared), memory_operand(filler, bits)});
}

/// Gives the lanes above the value a defined content: copies at widths 1 and 2, the fill at width 3.
void define_upper_lanes(Layout& l, std::vector<int>& parts, int argument, Lane lane) {
    if (l.plan.width == 1) parts[0] = duplicated(l, parts[0], lane);
    if (l.plan.width == 2 && lane_size(lane) == 4) parts[0] = copied_upward(l, parts[0], lane);
    if (l.plan.width == 3) parts.back() = with_lane_3_filled(l, parts.back(), argument, lane);
}

bool is_argument(const Kernel& kernel, int r) {
    return kernel.registers[r].fixed >= 0 || kernel.registers[r].rematerialize >= 0;
}

// Exit. `uses` collects what has to be in place at the end.

void pin(Layout& l, int r, int physical, std::vector<int>& uses) {
    l.code.kernel.registers[r].hint = physical;
    uses.push_back(r);
}

/// The result of the memory form: all values behind the hidden pointer, which comes back itself.
void store_results(Layout& l, const std::vector<std::vector<int>>& outputs, std::vector<int>& uses) {
    std::int64_t stored = 0;
    for (std::size_t v = 0; v < l.plan.family.results.size(); ++v)
        for (int r : outputs[v]) {
            Memory target;
            target.base = Memory::Base::result, target.offset = stored;
            const int bits = l.code.kernel.registers[r].bits;
            emit_store(l.code, vmovups, target, bits, r, bits);
            stored += bits / 8;
        }
    pin(l, emit_general(l.code, mov, 64, {fixed_operand("rdi", 64)}), 0, uses);
}

/// Two results of width 1, in one register.
void pack_results(Layout& l, const std::vector<std::vector<int>>& outputs, std::vector<int>& uses) {
    const Lane lane = l.plan.family.results[0];
    const Mnemonic unpack = !is_floating(lane) ? vpunpckldq : lane_size(lane) == 8 ? vunpcklpd : vunpcklps;
    const int packed = emit(l.code, unpack, 128, {reg(l.code, outputs[0][0]), reg(l.code, outputs[1][0])});
    pin(l, is_floating(lane) ? packed : emit_general(l.code, vmovq, 64, {reg(l.code, packed)}), 0, uses);
}

void leave_results(Layout& l, const std::vector<std::vector<int>>& outputs, std::vector<int>& uses) {
    const Family& family = l.plan.family;
    if (l.code.kernel.form == Form::memory) return store_results(l, outputs, uses);
    if (l.plan.width == 1 && family.results.size() == 2) return pack_results(l, outputs, uses);
    if (l.plan.width == 1 && !is_floating(family.results[0])) {
        const bool wide = lane_size(family.results[0]) == 8;
        const Operand source = reg(l.code, outputs[0][0]);
        return pin(l, emit_general(l.code, wide ? vmovq : vmovd, wide ? 64 : 32, {source}), 0, uses);
    }
    int next = 0;
    for (std::size_t v = 0; v < family.results.size(); ++v)
        for (int r : outputs[v]) {
            if (l.code.kernel.registers[r].bits == 256) l.code.kernel.returns_256 = true;
            pin(l, r, next++, uses);
        }
}

void store_out_value(Layout& l, const std::vector<int>& parts) {
    std::int64_t stored = 0;
    for (int r : parts) {
        Memory target;
        target.base = Memory::Base::out, target.offset = stored;
        const int bits =
            std::min(l.code.kernel.registers[r].bits, 8 * (out_bytes(l.plan.family, l.plan.width) - int(stored)));
        const Mnemonic store = bits == 32 ? vmovss : bits == 64 ? vmovsd : vmovups;
        emit_store(l.code, store, target, bits, r, std::max(bits, 128));
        stored += bits / 8;
    }
}

}  // namespace

void enter_arguments(Layout& l) {
    Taken taken;
    for (int a = 0; a < int(l.plan.family.arguments.size()); ++a) {
        const Lane lane = l.plan.family.arguments[a];
        if (l.code.kernel.form == Form::memory)
            l.arguments[a] = enter_from_stack(l, a, type_of(lane), taken);
        else if (l.plan.width == 1 && !is_floating(lane))
            l.arguments[a] = enter_from_general_register(l, lane, taken);
        else
            l.arguments[a] = enter_from_vector_registers(l, a, lane, taken);
        define_upper_lanes(l, l.arguments[a], a, lane);
    }
    for (int k = 0; k < int(l.plan.program.nodes.size()); ++k) {
        const Node& n = node_of(l.plan, k);
        if (n.op == Op::argument) set_parts(l, k, Shape::whole, l.arguments[n.imm]);
    }
}

std::vector<std::vector<int>> collect_outputs(Layout& l) {
    std::vector<std::vector<int>> outputs;
    std::vector<int> taken;
    for (int node : l.plan.program.outputs) {
        outputs.emplace_back();
        const bool copy = is_constant(l.plan, node) || node_of(l.plan, root(l.plan, node)).op == Op::argument;
        for (int p = 0; p < whole_count(l.plan, node_of(l.plan, node).type); ++p) {
            int r = copy ? copied(l, node, p) : parts(l, node, Shape::whole)[p];
            if (std::ranges::find(taken, r) != taken.end() || is_argument(l.code.kernel, r)) r = copied(l, node, p);
            outputs.back().push_back(r);
            taken.push_back(r);
        }
    }
    return outputs;
}

void lay_out_exit(Layout& l, const std::vector<std::vector<int>>& outputs) {
    std::vector<int> uses;
    leave_results(l, outputs, uses);
    if (l.plan.family.out) store_out_value(l, outputs.back());
    emit_end(l.code, std::move(uses));
}

}  // namespace tuvo

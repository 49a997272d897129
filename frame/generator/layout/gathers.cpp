#include "frame/generator/layout/gathers.hpp"

#include <array>

#include "frame/generator/layout/constants.hpp"
#include "frame/generator/layout/forms.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;
using Entries = std::vector<Memory>;            ///< by lane
using Vectors = std::vector<std::vector<int>>;  ///< by value: the registers of its halves, or of its whole parts

Memory shifted(Memory memory, std::int64_t bytes) {
    memory.offset += bytes;
    return memory;
}

/// The addresses of all lanes' entries.
Entries entries_of(Layout& l, const Node& node, const Gather& gather) {
    const int width = l.plan.width;
    Entries entries;
    for (int lane = 0; lane < std::min(width == 3 ? 4 : width, lanes(l.plan)); ++lane) {
        const Operand indices = in_register(l, node.args[0], Shape::half, lane / 4, 128);
        int index = lane % 4 == 0 ? emit_general(l.code, vmovd, 32, {indices})
                                  : emit_general(l.code, vpextrd, 32, {indices}, lane % 4);
        if (gather.low < 0) index = emit_general(l.code, movsxd, 64, {reg(l.code, index, 32)});
        Memory memory;
        memory.base = Memory::Base::block, memory.block = l.plan.program.tables[gather.table].block;
        memory.pointer = block_pointer(l, memory.block), memory.index = index;
        memory.offset = l.plan.blocks.table_offset[gather.table] - gather.bias;
        entries.push_back(memory);
    }
    return entries;
}

/// Pairs of 128-bit registers, lower lanes first, become whole ones where the width has them.
std::vector<int> joined_pairs(Layout& l, const std::vector<int>& halves, bool whole) {
    if (!whole) return halves;
    std::vector<int> result;
    for (std::size_t p = 0; p < halves.size(); p += 2) result.push_back(joined(l.code, halves[p], halves[p + 1]));
    return result;
}

int shuffle(Layout& l, Mnemonic mnemonic, int bits, int a, int b, int selector = -1) {
    return emit(l.code, mnemonic, bits, {reg(l.code, a), reg(l.code, b)}, selector);
}

/// 16 bytes of the entry of `lane`, and behind them, in a whole register, those of the lane `apart` further.
int row(Layout& l, const Entries& entries, int lane, int apart, bool whole, std::int64_t offset) {
    const int r = emit(l.code, vmovups, 128, {memory_operand(shifted(entries[lane], offset), 128)});
    if (!whole) return r;
    return emit(l.code, vinsertf128, 256,
                {reg(l.code, r, 256), memory_operand(shifted(entries[lane + apart], offset), 128)}, 1);
}

// Words.

Vectors single_words(Layout& l, const Entries& entries, bool whole) {
    const int n = int(entries.size());
    std::vector<int> halves;
    for (int first = 0; first < n; first += 4) {
        int r = emit(l.code, vmovss, 128, {memory_operand(entries[first], 32)});
        for (int lane = 1; lane < std::min(4, n - first); ++lane)
            r = emit(l.code, vinsertps, 128, {reg(l.code, r), memory_operand(entries[first + lane], 32)}, lane << 4);
        halves.push_back(r);
    }
    return {joined_pairs(l, halves, whole)};
}

Vectors pairs_of_words(Layout& l, const Entries& entries, bool whole) {
    const int n = int(entries.size());
    std::vector<int> low, high;  // lanes 0, 1 and lanes 2, 3 of each four
    for (int first = 0; first < n; first += 2) {
        int r = emit(l.code, vmovsd, 128, {memory_operand(entries[first], 64)});
        if (first + 1 < n) r = emit(l.code, vmovhps, 128, {reg(l.code, r), memory_operand(entries[first + 1], 64)});
        (first % 4 == 0 ? low : high).push_back(r);
    }
    low = joined_pairs(l, low, whole);
    high = n > 2 ? joined_pairs(l, high, whole) : low;
    Vectors values(2);
    for (std::size_t p = 0; p < low.size(); ++p) {
        values[0].push_back(shuffle(l, vshufps, whole ? 256 : 128, low[p], high[p], 0x88));
        values[1].push_back(shuffle(l, vshufps, whole ? 256 : 128, low[p], high[p], 0xdd));
    }
    return values;
}

/// A transposition of four entries at a time, or of eight in 256-bit registers.
Vectors quads_of_words(Layout& l, const Entries& entries, bool whole) {
    const int n = int(entries.size()), step = whole ? 8 : 4, bits = whole ? 256 : 128;
    Vectors values(4);
    for (int first = 0; first < n; first += step) {
        std::array<int, 4> rows{};
        for (int lane = 0; lane < 4; ++lane)
            rows[lane] = first + lane < n ? row(l, entries, first + lane, 4, whole, 0) : rows[0];
        const int ab_low = shuffle(l, vunpcklps, bits, rows[0], rows[1]);
        const int ab_high = shuffle(l, vunpckhps, bits, rows[0], rows[1]);
        const int cd_low = shuffle(l, vunpcklps, bits, rows[2], rows[3]);
        const int cd_high = shuffle(l, vunpckhps, bits, rows[2], rows[3]);
        values[0].push_back(shuffle(l, vunpcklpd, bits, ab_low, cd_low));
        values[1].push_back(shuffle(l, vunpckhpd, bits, ab_low, cd_low));
        values[2].push_back(shuffle(l, vunpcklpd, bits, ab_high, cd_high));
        values[3].push_back(shuffle(l, vunpckhpd, bits, ab_high, cd_high));
    }
    return values;
}

// Long words.

Vectors single_longs(Layout& l, const Entries& entries, bool whole) {
    const int n = int(entries.size());
    std::vector<int> halves;
    for (int first = 0; first < n; first += 2) {
        int r = emit(l.code, vmovsd, 128, {memory_operand(entries[first], 64)});
        if (first + 1 < n) r = emit(l.code, vmovhpd, 128, {reg(l.code, r), memory_operand(entries[first + 1], 64)});
        halves.push_back(r);
    }
    return {joined_pairs(l, halves, whole)};
}

Vectors several_longs(Layout& l, const Entries& entries, int fields, bool whole) {
    const int n = int(entries.size()), step = whole ? 4 : 2, bits = whole ? 256 : 128;
    Vectors values(fields);
    for (int first = 0; first < n; first += step) {
        for (int field = 0; field < fields; field += 2) {
            std::array<int, 2> rows{};
            for (int lane = 0; lane < 2; ++lane)
                rows[lane] = first + lane < n ? row(l, entries, first + lane, 2, whole, field * 8) : rows[0];
            values[field].push_back(shuffle(l, vunpcklpd, bits, rows[0], rows[1]));
            values[field + 1].push_back(shuffle(l, vunpckhpd, bits, rows[0], rows[1]));
        }
    }
    return values;
}

/// One, two or four neighbouring values of each entry.
Vectors fetch(Layout& l, const Entries& entries, int size, int fields, bool whole) {
    if (size == 8) return fields == 1 ? single_longs(l, entries, whole) : several_longs(l, entries, fields, whole);
    if (fields == 1) return single_words(l, entries, whole);
    return fields == 2 ? pairs_of_words(l, entries, whole) : quads_of_words(l, entries, whole);
}

/// All values that a gather loads.
std::vector<Forms> lay_out_gather(Layout& l, int g, Type type) {
    const Node& node = node_of(l.plan, g);
    const Gather& gather = l.plan.program.gathers[node.imm];
    const int size = type_size(type);
    const Entries entries = entries_of(l, node, gather);
    const bool whole = split(l.plan, type) && !(wide_family(l.plan) && size == 4) && !is_integer(type);
    std::vector<Forms> values;
    for (int done = 0; done < gather.count;) {
        const int left = gather.count - done, fields = left >= 4 ? 4 : left >= 2 ? 2 : 1;
        Entries from;
        for (const Memory& entry : entries) from.push_back(shifted(entry, done * size));
        for (std::vector<int>& registers : fetch(l, from, size, fields, whole)) {
            values.emplace_back();
            (whole ? values.back().whole : values.back().half) = std::move(registers);
        }
        done += fields;
    }
    return values;
}

}  // namespace

void lay_out_element(Layout& l, int node) {
    const Node& n = node_of(l.plan, node);
    const int g = n.args[0];
    if (!l.gathered.contains(g)) l.gathered[g] = lay_out_gather(l, g, n.type);
    l.forms[node] = l.gathered[g].at(n.imm);
    for (const std::vector<int>* registers : {&l.forms[node].whole, &l.forms[node].half})
        for (int r : *registers) l.code.kernel.registers[r].name = n.name;
}

}  // namespace tuvo

#include "frame/generator/blocks.hpp"

#include <cstdio>
#include <map>
#include <ostream>

namespace tuvo {
namespace {

std::vector<std::uint8_t> little_endian(std::uint64_t pattern, int bytes) {
    std::vector<std::uint8_t> result;
    for (int k = 0; k < bytes; ++k) result.push_back(std::uint8_t(pattern >> (8 * k)));
    return result;
}

std::int64_t align_up(std::int64_t offset, std::int64_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

}  // namespace

std::string describe_pattern(Type type, std::uint64_t pattern) {
    char text[64];
    switch (type) {
    case Type::f32:
        std::snprintf(text, sizeof text, "0x%08x (%.9g)", unsigned(pattern),
                      double(__builtin_bit_cast(float, std::uint32_t(pattern))));
        break;
    case Type::f64:
        std::snprintf(text, sizeof text, "0x%016llx (%.17g)", (unsigned long long)pattern,
                      __builtin_bit_cast(double, pattern));
        break;
    default:
        std::snprintf(text, sizeof text, type_size(type) == 4 ? "0x%08llx" : "0x%016llx", (unsigned long long)pattern);
    }
    return text;
}

std::vector<bool> live_nodes(const Program& program) {
    std::vector<bool> live(program.nodes.size());
    const auto mark = [&](int node, auto&& self) -> void {
        if (node < 0 || live[node]) return;
        live[node] = true;
        const Node& n = program.nodes[node];
        for (int arg : n.args) self(arg, self);
        if (n.op == Op::join) self(program.sections[n.imm].mask, self);
    };
    for (int output : program.outputs) mark(output, mark);
    for (const RareTest& test : program.rare) {
        mark(test.mask, mark);
        // A section that finds rare lanes runs even if nobody wants its values.
        for (int s = test.section; s != 0; s = program.sections[s].parent) mark(program.sections[s].joined[0], mark);
    }
    return live;
}

BlockLayout lay_out_blocks(const Program& program, const std::string& family_name) {
    BlockLayout layout;
    for (int b = 0; b < program.blocks; ++b) {
        ConstBlock block;
        block.symbol = family_name + "_consts" + (b == 0 ? "" : std::to_string(b + 1));
        layout.blocks.push_back(block);
    }
    layout.row_offset.assign(program.nodes.size(), -1);
    const std::vector<bool> live = live_nodes(program);
    std::map<std::pair<int, std::vector<std::uint8_t>>, std::int64_t> offsets;
    for (std::size_t k = 0; k < program.nodes.size(); ++k) {
        const Node& node = program.nodes[k];
        if (!live[k] || node.op != Op::constant || node.block < 0) continue;
        ConstRow row;
        if (node.quad) {
            for (std::uint32_t pattern : program.quads[node.imm])
                for (std::uint8_t byte : little_endian(pattern, 4)) row.period.push_back(byte);
            row.comment = "four values";
        } else {
            row.period = little_endian(node.imm, type_size(node.type));
            row.comment = describe_pattern(node.type, node.imm);
        }
        if (!node.name.empty()) row.comment = node.name + ": " + row.comment;
        ConstBlock& block = layout.blocks[node.block];
        const auto [found, added] =
            offsets.try_emplace({node.block, row.period}, std::int64_t(block.rows.size()) * row_bytes);
        if (added) block.rows.push_back(row);
        layout.row_offset[k] = found->second;
    }
    for (ConstBlock& block : layout.blocks) block.size = std::int64_t(block.rows.size()) * row_bytes;
    for (std::size_t k = 0; k < program.tables.size(); ++k) {
        const TableUse& table = program.tables[k];
        ConstBlock& block = layout.blocks[table.block];
        block.size = align_up(block.size, row_bytes);
        layout.table_offset.push_back(block.size);
        block.tables.push_back(int(k));
        block.table_offsets.push_back(block.size);
        block.size += std::int64_t(table.data.patterns.size()) * lane_size(table.data.lane);
    }
    for (ConstBlock& block : layout.blocks) block.size = align_up(block.size, row_bytes);
    return layout;
}

void write_blocks(std::ostream& out, const Program& program, const BlockLayout& layout) {
    for (const ConstBlock& block : layout.blocks) {
        out << "    .section .rodata\n    .balign 64\n    .hidden " << block.symbol << "\n    .globl " << block.symbol
            << "\n    .type " << block.symbol << ", @object\n    .size " << block.symbol << ", " << block.size << "\n"
            << block.symbol << ":\n";
        for (const ConstRow& row : block.rows) {
            out << "    .rept " << row_bytes / row.period.size() << "    # " << row.comment << "\n    .byte ";
            for (std::size_t k = 0; k < row.period.size(); ++k) out << (k ? ", " : "") << int(row.period[k]);
            out << "\n    .endr\n";
        }
        for (std::size_t k = 0; k < block.tables.size(); ++k) {
            const TableUse& table = program.tables[block.tables[k]];
            out << "    .balign 64    # " << table.name << ", at byte " << block.table_offsets[k] << "\n";
            const char* directive = lane_size(table.data.lane) == 4 ? "    .long " : "    .quad ";
            for (std::size_t v = 0; v < table.data.patterns.size(); ++v)
                out << (v % table.data.fields == 0 ? directive : ", ") << table.data.patterns[v]
                    << ((v + 1) % table.data.fields == 0 ? "\n" : "");
        }
        out << "    .balign 64\n";
    }
}

}  // namespace tuvo

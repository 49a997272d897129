// Constant blocks: the read-only data of a family, shared by its widths.
//
// A block starts on a 64-byte boundary and holds rows of 64 bytes, each one value repeated to fill it (so that a memory
// operand of any width finds the value in every lane without a broadcast), and raw tables behind them.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "frame/description/program.hpp"

namespace tuvo {

inline constexpr int row_bytes = 64;

struct ConstRow {
    std::vector<std::uint8_t> period;  ///< 4, 8 or 16 bytes that repeat through the row
    std::string comment;
};

struct ConstBlock {
    std::string symbol;  ///< "logf_consts"
    std::vector<ConstRow> rows;
    std::vector<int> tables;                  ///< indices into Program::tables
    std::vector<std::int64_t> table_offsets;  ///< bytes from the block's start
    std::int64_t size = 0;                    ///< bytes
};

/// Where a family's constants lie.
struct BlockLayout {
    std::vector<ConstBlock> blocks;
    /// Byte offset of a constant node's row in its block; -1 for nodes that are not rows.
    std::vector<std::int64_t> row_offset;
    /// Byte offset of each of the program's tables in its block.
    std::vector<std::int64_t> table_offset;
};

/// A constant of a kernel's own pool, 16 or 32 bytes.
struct PoolItem {
    std::vector<std::uint8_t> bytes;
    std::string comment;
    bool operator==(const PoolItem& other) const { return bytes == other.bytes; }
};

/// Nodes that an output, a rare test or a section needs, directly or not.
std::vector<bool> live_nodes(const Program& program);

BlockLayout lay_out_blocks(const Program& program, const std::string& family_name);

/// "0x3f317200 (0.693145752)": a pattern and what it stands for.
std::string describe_pattern(Type type, std::uint64_t pattern);

void write_blocks(std::ostream& out, const Program& program, const BlockLayout& layout);

}  // namespace tuvo

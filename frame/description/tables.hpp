// Raw tables, and the registry of those that rare routines read.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "frame/description/operations.hpp"

namespace tuvo {

/// Read-only data without row structure: entries of `fields` values each, one behind the other.
struct RawTable {
    Lane lane = Lane::f32;                ///< type of one value; its size is the size of an element
    int fields = 1;                       ///< values in an entry
    std::vector<std::uint64_t> patterns;  ///< bit patterns, entry by entry; size is a multiple of `fields`
};

/// Tables that rare routines read, by symbol ("logf_table"). They are emitted as hidden symbols, 64-byte aligned, and a
/// rare routine declares them as `extern "C" const float logf_table[65][3]`. Computed anew by each call: some take a
/// while.
std::map<std::string, RawTable> rare_tables();

/// One of them. Throws std::out_of_range if there is none of that name.
RawTable rare_table(const std::string& symbol);

/// Registers the table that `rule` computes under `symbol`.
struct RareTable {
    RareTable(const std::string& symbol, std::function<RawTable()> rule);
};

}  // namespace tuvo

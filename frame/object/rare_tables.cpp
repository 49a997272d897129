#include "frame/object/rare_tables.hpp"

#include <bit>
#include <charconv>
#include <cstdint>
#include <iomanip>
#include <ostream>

namespace tuvo {
namespace {

/// Shortest decimal text that reads back to the same value.
std::string decimal(Lane lane, std::uint64_t pattern) {
    char text[32];
    auto print = [&](auto value) { return std::string(text, std::to_chars(text, text + sizeof text, value).ptr); };
    switch (lane) {
    case Lane::f32: return print(std::bit_cast<float>(static_cast<std::uint32_t>(pattern)));
    case Lane::f64: return print(std::bit_cast<double>(pattern));
    case Lane::i32: return print(static_cast<std::int32_t>(pattern));
    case Lane::u32: return print(static_cast<std::uint32_t>(pattern));
    case Lane::i64: return print(static_cast<std::int64_t>(pattern));
    case Lane::u64: break;
    }
    return print(pattern);
}

void write_entry(std::ostream& out, const RawTable& table, std::size_t first) {
    const bool wide = lane_size(table.lane) == 8;
    out << (wide ? "    .quad " : "    .long ");
    for (int field = 0; field < table.fields; ++field)
        out << (field ? ", 0x" : "0x") << std::hex << std::setfill('0') << std::setw(wide ? 16 : 8)
            << table.patterns[first + field] << std::dec;
    out << "  #";
    for (int field = 0; field < table.fields; ++field) out << ' ' << decimal(table.lane, table.patterns[first + field]);
    out << '\n';
}

}  // namespace

void write_rare_tables(std::ostream& out, const std::map<std::string, RawTable>& tables) {
    out << "    .section .rodata\n";
    for (const auto& [symbol, table] : tables) {
        const std::size_t size = table.patterns.size() * lane_size(table.lane);
        out << "\n    .balign 64\n    .globl " << symbol << "\n    .hidden " << symbol << "\n    .type " << symbol
            << ", @object\n    .size " << symbol << ", " << size << '\n'
            << symbol << ":\n";
        for (std::size_t first = 0; first < table.patterns.size(); first += table.fields)
            write_entry(out, table, first);
    }
    out << "\n    .section .note.GNU-stack, \"\", @progbits\n";
}

}  // namespace tuvo

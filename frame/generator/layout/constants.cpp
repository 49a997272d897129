#include "frame/generator/layout/constants.hpp"

#include <cstring>

namespace tuvo {
namespace {

using enum Mnemonic;

std::vector<std::uint8_t> bytes_of(std::uint64_t pattern, int size) {
    std::vector<std::uint8_t> result(size);
    std::memcpy(result.data(), &pattern, size);
    return result;
}

std::vector<std::uint8_t> repeated(const std::vector<std::uint8_t>& period, int bytes) {
    std::vector<std::uint8_t> result;
    while (int(result.size()) < bytes) result.insert(result.end(), period.begin(), period.end());
    return result;
}

std::string what_it_is(const Node& n) { return n.quad ? "four values" : describe_pattern(n.type, n.imm); }

}  // namespace

int block_pointer(Layout& l, int block) {
    std::vector<int>& pointers = l.constants.pointers;
    if (int(pointers.size()) <= block) pointers.resize(block + 1, -1);
    if (pointers[block] < 0) {
        Memory memory;
        memory.base = Memory::Base::slots, memory.block = block;
        pointers[block] = rematerialized(l.code, mov, memory_operand(memory, 64), 64, File::general,
                                         l.plan.blocks.blocks[block].symbol);
    }
    return pointers[block];
}

Operand constant_operand(Layout& l, int node, int bits) {
    const Node& n = node_of(l.plan, node);
    if (n.block >= 0) {
        Memory memory;
        memory.base = Memory::Base::block, memory.block = n.block;
        memory.pointer = block_pointer(l, n.block), memory.offset = l.plan.blocks.row_offset.at(node);
        return memory_operand(memory, bits);
    }
    std::vector<std::uint8_t> period;
    if (n.quad) {
        for (std::uint32_t pattern : l.plan.program.quads[n.imm])
            for (std::uint8_t byte : bytes_of(pattern, 4)) period.push_back(byte);
    } else {
        period = bytes_of(n.imm, type_size(n.type));
    }
    const std::string what = (n.name.empty() ? "" : n.name + ": ") + what_it_is(n);
    return memory_operand(pool_item(l.code, repeated(period, bits == 256 ? 32 : 16), what), bits);
}

int constant_register(Layout& l, int node, int bits) {
    const auto key = std::pair(node, bits);
    if (const auto found = l.constants.registers.find(key); found != l.constants.registers.end()) return found->second;
    const Node& n = node_of(l.plan, node);
    const Mnemonic load = bits == 32                          ? vmovss
                          : bits == 64                        ? vmovsd
                          : is_integer(n.type) && bits == 128 ? vmovdqa
                                                              : vmovaps;
    const int r = rematerialized(l.code, load, constant_operand(l, node, bits), std::max(bits, 128), File::vector,
                                 n.name.empty() ? what_it_is(n) : n.name);
    return l.constants.registers[key] = r;
}

}  // namespace tuvo

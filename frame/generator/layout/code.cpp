#include "frame/generator/layout/code.hpp"

#include <algorithm>
#include <array>
#include <bit>

namespace tuvo {

int new_register(Code& code, int bits, File file) {
    VirtualRegister r;
    r.file = file, r.bits = bits;
    code.kernel.registers.push_back(r);
    return int(code.kernel.registers.size()) - 1;
}

Operand reg(const Code& code, int r, int bits) {
    Operand o;
    o.reg = r, o.file = code.kernel.registers[r].file, o.bits = bits ? bits : code.kernel.registers[r].bits;
    return o;
}

Operand memory_operand(const Memory& memory, int bits) {
    Operand o;
    o.kind = Operand::Kind::memory, o.memory = memory, o.bits = bits;
    return o;
}

Operand fixed_operand(const char* name, int bits) {
    Operand o;
    o.kind = Operand::Kind::fixed, o.fixed = name, o.bits = bits;
    return o;
}

std::vector<Instruction>& body(Code& code) { return code.kernel.sections[code.section].body; }

namespace {

int emit_to(Code& code, File file, Mnemonic mnemonic, int bits, std::vector<Operand> sources, int immediate) {
    Instruction i;
    i.mnemonic = mnemonic, i.dst = new_register(code, bits, file), i.dst_file = file, i.dst_bits = bits;
    i.sources = std::move(sources), i.immediate = immediate;
    body(code).push_back(i);
    return i.dst;
}

}  // namespace

int emit(Code& code, Mnemonic mnemonic, int bits, std::vector<Operand> sources, int immediate) {
    return emit_to(code, File::vector, mnemonic, bits, std::move(sources), immediate);
}

int emit_general(Code& code, Mnemonic mnemonic, int bits, std::vector<Operand> sources, int immediate) {
    return emit_to(code, File::general, mnemonic, bits, std::move(sources), immediate);
}

void emit_store(Code& code, Mnemonic mnemonic, const Memory& target, int bits, int source, int source_bits) {
    Instruction i;
    i.mnemonic = mnemonic, i.is_store = true, i.target = memory_operand(target, bits);
    i.sources = {reg(code, source, source_bits)};
    body(code).push_back(i);
}

int emit_unless_nearest(Code& code, int mask) {
    const auto four = [&](std::array<float, 2> pair) {
        std::vector<std::uint8_t> bytes;
        for (int k = 0; k < 2; ++k)
            for (const float value : pair)
                for (int shift = 0; shift < 32; shift += 8)
                    bytes.push_back(std::bit_cast<std::uint32_t>(value) >> shift & 0xff);
        return memory_operand(pool_item(code, bytes, pair[0] == 0 ? "0.5 and 1.5 rounded to nearest" : "0.5 and 1.5"),
                              128);
    };
    constexpr int current_quiet = 12, not_equal = 4;
    const int rounded = emit(code, Mnemonic::vroundps, 128, {four({0.5f, 1.5f})}, current_quiet);
    const int differs = emit(code, Mnemonic::vcmpps, 128, {reg(code, rounded, 128), four({0.0f, 2.0f})}, not_equal);
    const int found = emit_general(code, Mnemonic::vmovmskps, 32, {reg(code, differs, 128)});
    const int r = emit_general(code, Mnemonic::and_, 32, {reg(code, found, 32)}, mask);
    body(code).back().kind = Instruction::Kind::unless_nearest;
    return r;
}

void emit_end(Code& code, std::vector<int> uses) {
    Instruction end;
    end.kind = Instruction::Kind::end, end.uses = std::move(uses);
    body(code).push_back(end);
}

int upper_half(Code& code, int r) { return emit(code, Mnemonic::vextractf128, 128, {reg(code, r, 256)}, 1); }

int joined(Code& code, int low, int high) {
    return emit(code, Mnemonic::vinsertf128, 256, {reg(code, low, 256), reg(code, high, 128)}, 1);
}

int rematerialized(Code& code, Mnemonic mnemonic, const Operand& source, int bits, File file, std::string name) {
    Instruction load;
    load.mnemonic = mnemonic, load.dst_file = file, load.dst_bits = bits, load.comment = name;
    load.sources = {source};
    const int r = new_register(code, bits, file);
    code.kernel.registers[r].rematerialize = int(code.kernel.constants.size());
    code.kernel.registers[r].name = std::move(name);
    code.kernel.constants.push_back(load);
    return r;
}

Memory pool_item(Code& code, std::vector<std::uint8_t> bytes, std::string what) {
    std::vector<PoolItem>& pool = code.kernel.pool;
    const PoolItem item{std::move(bytes), std::move(what)};
    auto found = std::ranges::find(pool, item);
    if (found == pool.end()) found = pool.insert(pool.end(), item);
    Memory memory;
    memory.base = Memory::Base::pool;
    memory.offset = found - pool.begin();  // item number; the emitter knows the addresses
    return memory;
}

}  // namespace tuvo

// Spreads a one-lane program over a width.
//
// A value of a width lives in parts. Floating-point work is done on *whole* parts, as wide as the call boundary has
// them (128 or 256 bits); integer work on *halves* of 128 bits, since the processor has no wider integer instructions.
// Either form is made from the other when it is first wanted: a low half is the low part of the whole register and
// costs nothing, a high half is an extract, a whole from halves is an insert.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "frame/generator/kernel.hpp"

namespace tuvo {
namespace {

using enum Mnemonic;

enum class Shape : std::uint8_t { whole, half };

struct Forms {
    std::vector<int> whole, half;  ///< virtual registers; empty until made
};

bool is_floating(Type type) { return type == Type::f32 || type == Type::f64; }
bool is_integer(Type type) { return type == Type::i32 || type == Type::i64; }

class Layout {
public:
    Layout(const Program& program, const BlockLayout& blocks, const Family& family, int width, std::string symbol)
        : program_(program), blocks_(blocks), family_(family), width_(width) {
        kernel_.family = &family;
        kernel_.symbol = std::move(symbol);
        kernel_.width = width;
        kernel_.form = call_form(family, width);
        kernel_.preserved = preserved(family, width);
        kernel_.sections.resize(program.sections.size());
        choose_by_part_size();
        live_ = live_nodes(program_);
        narrow_ = works_narrow();
        forms_.resize(program.nodes.size());
        halves_wanted_ = find_integer_users();
        interleaved_ = can_interleave();
    }

    Kernel run() {
        enter_arguments();
        rare_lanes_.assign(program_.sections.size(), {});
        for (int k = 0; k < int(program_.nodes.size()); ++k)
            if (live_[k] && program_.nodes[k].section == 0) lay_out_node(k);
        finish();
        return std::move(kernel_);
    }

private:
    Program program_;  ///< a copy: combined masks are added to it
    const BlockLayout& blocks_;
    const Family& family_;
    const int width_;
    Kernel kernel_;
    std::vector<bool> live_;
    bool narrow_ = false;  ///< whole parts are of 128 bits, too
    std::vector<bool> halves_wanted_;
    bool interleaved_;  ///< 64-bit lanes, and floats made of them, lie in the order of unpacked words
    std::vector<Forms> forms_;
    int section_ = 0;
    std::vector<std::vector<int>> rare_lanes_;  ///< by section: virtual general registers with rare masks
    std::map<std::pair<int, int>, int> constant_registers_;
    std::vector<int> pointers_;
    std::vector<int> argument_raw_[3];

    // Sizes.

    int lanes() const { return physical_lanes(width_); }
    bool scalar() const { return width_ == 1; }
    int whole_count(Type type) const {
        return narrow_ ? half_count(type) : std::max(1, lanes() * type_size(type) / 32);
    }
    int half_count(Type type) const { return std::max(1, lanes() * type_size(type) / 16); }
    int whole_bits(Type type) const { return !narrow_ && lanes() * type_size(type) > 16 ? 256 : 128; }
    bool split(Type type) const { return whole_bits(type) == 256; }
    int count(Type type, Shape shape) const { return shape == Shape::whole ? whole_count(type) : half_count(type); }
    int bits(Type type, Shape shape) const { return shape == Shape::whole ? whole_bits(type) : 128; }
    /// Whether the family works in 64-bit lanes; then 32-bit values travel beside them in 128-bit registers.
    bool wide_family() const { return lane_size(family_.element) == 8; }

    /// From here on, a value with two ways is another name of the way that this width takes.
    void choose_by_part_size() {
        const int chosen = part_bits(family_.element, width_).front() == 256 ? 1 : 0;
        for (Node& node : program_.nodes)
            if (node.op == Op::by_part_size) node.op = Op::bitcast, node.args = {node.args[chosen], -1, -1};
    }

    /// A kernel that returns no whole register, and has no rare path, takes its 256-bit arguments apart at once. Then
    /// it leaves no upper halves in use, and need not keep those of the caller from a vzeroupper.
    bool works_narrow() const {
        if (kernel_.form == Form::memory || family_.has_rare || program_.sections.size() > 1) return false;
        const auto fits = [&](Lane lane) { return lanes() * lane_size(lane) <= 16; };
        return std::ranges::all_of(family_.outputs(), fits) && !std::ranges::all_of(family_.arguments, fits);
    }

    // Making instructions.

    int new_register(int bits, File file = File::vector) {
        VirtualRegister r;
        r.file = file, r.bits = bits;
        kernel_.registers.push_back(r);
        return int(kernel_.registers.size()) - 1;
    }

    Operand reg(int r, int bits = 0) const {
        Operand o;
        o.reg = r, o.file = kernel_.registers[r].file, o.bits = bits ? bits : kernel_.registers[r].bits;
        return o;
    }

    static Operand mem(Memory memory, int bits) {
        Operand o;
        o.kind = Operand::Kind::memory, o.memory = memory, o.bits = bits;
        return o;
    }

    std::vector<Instruction>& body() { return kernel_.sections[section_].body; }

    int emit(Mnemonic mnemonic, int bits, std::vector<Operand> sources, int immediate = -1,
             File file = File::vector) {
        Instruction i;
        i.mnemonic = mnemonic, i.dst = new_register(bits, file), i.dst_file = file, i.dst_bits = bits;
        i.sources = std::move(sources), i.immediate = immediate;
        note_width(bits, i.sources);
        body().push_back(i);
        return i.dst;
    }

    void emit_store(Mnemonic mnemonic, Memory target, int bits, int source, int source_bits) {
        Instruction i;
        i.mnemonic = mnemonic, i.is_store = true, i.target = mem(target, bits);
        i.sources = {reg(source, source_bits)};
        note_width(source_bits, i.sources);
        body().push_back(i);
    }

    void note_width(int bits, const std::vector<Operand>& sources) {
        if (narrow_) return;
        if (bits == 256) kernel_.works_256 = true;
        for (const Operand& o : sources)
            if (o.bits == 256) kernel_.works_256 = true;
    }

    void comment(int node, int part, int parts) {
        const std::string& name = program_.nodes[node].name;
        if (name.empty() || body().empty()) return;
        body().back().comment = parts > 1 ? name + ", part " + std::to_string(part) : name;
    }

    // Constants.

    int block_pointer(int block) {
        if (int(pointers_.size()) <= block) pointers_.resize(block + 1, -1);
        if (pointers_[block] < 0) {
            Memory memory;
            memory.base = Memory::Base::slots, memory.block = block;
            pointers_[block] =
                rematerialized(mov, {mem(memory, 64)}, 64, File::general, blocks_.blocks[block].symbol);
        }
        return pointers_[block];
    }

    int rematerialized(Mnemonic mnemonic, std::vector<Operand> sources, int bits, File file,
                       std::string name) {
        Instruction load;
        load.mnemonic = mnemonic, load.dst_file = file, load.dst_bits = bits, load.comment = name;
        load.sources = std::move(sources);
        const int r = new_register(bits, file);
        kernel_.registers[r].rematerialize = int(kernel_.constants.size());
        kernel_.registers[r].name = std::move(name);
        kernel_.constants.push_back(load);
        return r;
    }

    std::vector<std::uint8_t> repeated(std::vector<std::uint8_t> period, int bytes) const {
        std::vector<std::uint8_t> result;
        while (int(result.size()) < bytes) result.insert(result.end(), period.begin(), period.end());
        return result;
    }

    Memory pool_item(std::vector<std::uint8_t> bytes, std::string what) {
        PoolItem item{std::move(bytes), std::move(what)};
        auto found = std::find(kernel_.pool.begin(), kernel_.pool.end(), item);
        if (found == kernel_.pool.end()) found = kernel_.pool.insert(kernel_.pool.end(), item);
        Memory memory;
        memory.base = Memory::Base::pool;
        memory.offset = found - kernel_.pool.begin();  // item number; the emitter knows the addresses
        return memory;
    }

    static std::vector<std::uint8_t> bytes_of(std::uint64_t pattern, int size) {
        std::vector<std::uint8_t> result(size);
        std::memcpy(result.data(), &pattern, size);
        return result;
    }

    /// A constant as a memory operand of `bits` bits.
    Operand constant_operand(int node, int bits) {
        const Node& n = program_.nodes[node];
        if (n.block >= 0) {
            Memory memory;
            memory.base = Memory::Base::block, memory.block = n.block;
            memory.pointer = block_pointer(n.block), memory.offset = blocks_.row_offset.at(node);
            return mem(memory, bits);
        }
        std::vector<std::uint8_t> period;
        if (n.quad) {
            for (std::uint32_t p : program_.quads[n.imm])
                for (std::uint8_t b : bytes_of(p, 4)) period.push_back(b);
        } else {
            period = bytes_of(n.imm, type_size(n.type));
        }
        const std::string what =
            (n.name.empty() ? "" : n.name + ": ") + (n.quad ? "four values" : describe_pattern(n.type, n.imm));
        return mem(pool_item(repeated(period, bits == 256 ? 32 : 16), what), bits);
    }

    /// A constant in a register, re-read whenever the register was needed elsewhere.
    int constant_register(int node, int bits) {
        const auto key = std::pair(node, bits);
        if (const auto found = constant_registers_.find(key); found != constant_registers_.end()) return found->second;
        const Node& n = program_.nodes[node];
        const Mnemonic mnemonic = bits == 32                          ? vmovss
                                     : bits == 64                        ? vmovsd
                                     : is_integer(n.type) && bits == 128 ? vmovdqa
                                                                         : vmovaps;
        const int r = rematerialized(mnemonic, {constant_operand(node, bits)}, std::max(bits, 128), File::vector,
                                     !n.name.empty() ? n.name
                                     : n.quad        ? "four values"
                                                     : describe_pattern(n.type, n.imm));
        return constant_registers_[key] = r;
    }

    // Forms of a value.

    bool is_constant(int node) const { return program_.nodes[node].op == Op::constant; }

    bool is_nan_constant(int node) const {
        const Node& n = program_.nodes[node];
        if (n.type == Type::f32) return (n.imm & 0x7fffffff) > 0x7f800000;
        return n.type == Type::f64 && (n.imm & ~(std::uint64_t(1) << 63)) > 0x7ff0000000000000;
    }

    /// The node whose registers a value has: a change of type is none of the machine's business.
    int root(int node) const {
        while (program_.nodes[node].op == Op::bitcast) node = program_.nodes[node].args[0];
        return node;
    }

    bool has(int node, Shape shape) const {
        if (is_constant(node)) return true;
        const Forms& f = forms_[root(node)];
        if (!split(program_.nodes[node].type)) return !f.whole.empty() || !f.half.empty();
        return shape == Shape::whole ? !f.whole.empty() : !f.half.empty();
    }

    const std::vector<int>& parts(int node, Shape shape) {
        Forms& f = forms_[root(node)];
        const Type type = program_.nodes[node].type;
        if (is_constant(node)) throw std::logic_error("constants are operands");
        if (!split(type)) {
            if (f.whole.empty()) f.whole = f.half;
            return f.whole;
        }
        if (shape == Shape::whole && f.whole.empty()) {
            if (f.half.empty()) throw std::logic_error(program_.name + ": a value is used before it is made");
            for (std::size_t p = 0; p < f.half.size(); p += 2)
                f.whole.push_back(emit(vinsertf128, 256, {reg(f.half[p], 256), reg(f.half[p + 1], 128)}, 1));
        }
        if (shape == Shape::half && f.half.empty()) {
            if (f.whole.empty()) throw std::logic_error(program_.name + ": a value is used before it is made");
            for (int r : f.whole) {
                f.half.push_back(r);
                f.half.push_back(upper_half(r));
            }
        }
        return shape == Shape::whole ? f.whole : f.half;
    }

    /// A node's part as an operand that must be a register.
    Operand in_register(int node, Shape shape, int part, int bits) {
        if (is_constant(node)) return reg(constant_register(node, bits), std::max(bits, 128));
        return reg(parts(node, shape)[part], std::max(bits, 128));
    }
    /// A node's part as an operand that may be memory.
    Operand any_operand(int node, Shape shape, int part, int bits) {
        if (is_constant(node)) return constant_operand(node, bits);
        return in_register(node, shape, part, bits);
    }

    int upper_half(int r) { return emit(vextractf128, 128, {reg(r, 256)}, 1); }

    void set(int node, Shape shape, std::vector<int> registers) {
        for (int r : registers)
            if (!program_.nodes[node].name.empty()) kernel_.registers[r].name = program_.nodes[node].name;
        if (shape == Shape::whole || !split(program_.nodes[node].type))
            forms_[node].whole = std::move(registers);
        else
            forms_[node].half = std::move(registers);
    }

    // Choosing forms.

    /// Nodes that some integer instruction reads, directly or through bit operations.
    std::vector<bool> find_integer_users() const {
        std::vector<bool> wanted(program_.nodes.size());
        for (int k = int(program_.nodes.size()) - 1; k >= 0; --k) {
            if (!live_[k]) continue;
            const Node& n = program_.nodes[k];
            const bool bitwise = is_bitwise(n.op) || n.op == Op::select || n.op == Op::bitcast || n.op == Op::join;
            for (int a : n.args) {
                if (a < 0) continue;
                const Type type = program_.nodes[a].type;
                if (bitwise ? wanted[k] : needs_halves(n, type)) wanted[a] = true;
            }
        }
        return wanted;
    }

    /// Whether 64-bit lanes can lie in the order that unpacking 256-bit registers of words gives: of eight lanes 0, 1,
    /// 4, 5 in one register and 2, 3, 6, 7 in the next. Two shuffles of whole registers lead there and one back, where
    /// lanes in order take extracts and inserts as well. Nothing may see the order from outside: 64-bit lanes have to
    /// be joined of words and end as words, and must not meet values that lie otherwise.
    bool can_interleave() const {
        if (wide_family() || !split(Type::i32) || program_.sections.size() > 1 || family_.has_rare) return false;
        std::vector<bool> inner(program_.nodes.size());
        bool joins = false;
        for (int k = 0; k < int(program_.nodes.size()); ++k) {
            const Node& n = program_.nodes[k];
            if (!live_[k] || is_constant(k)) continue;
            const bool enters = n.op == Op::join_words;
            const bool leaves = n.op == Op::low_word || n.op == Op::high_word || n.op == Op::mask_narrow;
            std::vector<int> values;
            for (int a : n.args)
                if (a >= 0 && !is_constant(a)) values.push_back(a);
            const auto is_inner = [&](int a) { return inner[a]; };
            inner[k] = !leaves && (type_size(n.type) == 8 || std::any_of(values.begin(), values.end(), is_inner));
            for (int a : values)
                if (inner[a] != (leaves || (inner[k] && !enters))) return false;
            joins = joins || enters;
            if (n.op == Op::argument && inner[k]) return false;
        }
        return joins && std::none_of(program_.outputs.begin(), program_.outputs.end(), [&](int o) { return inner[o]; });
    }

    static bool is_bitwise(Op op) {
        return op == Op::bit_and || op == Op::bit_or || op == Op::bit_xor || op == Op::and_not;
    }

    bool needs_halves(const Node& n, Type operand) const {
        if (n.op == Op::int_to_float) return n.type == Type::f64;
        if (n.op == Op::lookup4 || n.op == Op::join) return false;
        return is_integer(operand) || n.op == Op::widen || n.op == Op::mask_widen || n.op == Op::mask_narrow ||
               n.op == Op::high_word || n.op == Op::low_word || ((n.op == Op::equal || n.op == Op::greater));
    }

    /// In which form a bit operation, selection or 32-bit floating-point operation is cheapest.
    Shape elementwise_shape(int node) const {
        const Node& n = program_.nodes[node];
        if (!split(n.type)) return Shape::whole;
        bool whole = true, half = true, any = false;
        for (int a : n.args) {
            if (a < 0 || is_constant(a)) continue;
            any = true;
            whole = whole && has(a, Shape::whole);
            half = half && has(a, Shape::half);
        }
        if (!any) return Shape::whole;
        // Beside doubles, 32-bit lanes stay in the halves that conversions from and to doubles deal in.
        if (!whole && wide_family() && type_size(n.type) == 4) return Shape::half;
        if (is_floating(n.type) && !is_bitwise(n.op) && n.op != Op::select)
            return !whole && halves_wanted_[node] && type_size(n.type) == 4 ? Shape::half : Shape::whole;
        if (halves_wanted_[node] && (half || !whole)) return Shape::half;
        return Shape::whole;
    }

    // Arguments.

    void enter_arguments() {
        int next_vector = 0, next_general = 0;
        std::int64_t stack_offset = 0;
        for (std::size_t a = 0; a < family_.arguments.size(); ++a) {
            const Lane lane = family_.arguments[a];
            const Type type = type_of(lane);
            std::vector<int>& raw = argument_raw_[a];
            if (kernel_.form == Form::memory) {
                for (int p = 0; p < whole_count(type); ++p) {
                    Memory memory;
                    memory.base = Memory::Base::argument, memory.offset = stack_offset;
                    stack_offset += whole_bits(type) / 8;
                    raw.push_back(rematerialized(vmovups, {mem(memory, whole_bits(type))}, whole_bits(type),
                                                 File::vector, "argument " + std::to_string(a)));
                    if (whole_bits(type) == 256) kernel_.works_256 = true;
                }
            } else if (width_ == 1 && !tuvo::is_floating(lane)) {
                static constexpr const char* names32[] = {"edi", "esi"};
                static constexpr const char* names64[] = {"rdi", "rsi"};
                Operand source;
                source.kind = Operand::Kind::fixed, source.bits = lane_size(lane) * 8;
                source.fixed = (lane_size(lane) == 4 ? names32 : names64)[next_general++];
                raw.push_back(emit(lane_size(lane) == 4 ? vmovd : vmovq, 128, {source}));
            } else {
                for (int bits : part_bits(lane, width_)) {
                    const int r = new_register(narrow_ ? 128 : bits);
                    // A whole register that arrives may be moved or stashed, which is 256-bit work enough.
                    if (bits == 256) kernel_.works_256 = !narrow_;
                    kernel_.registers[r].fixed = next_vector++;
                    kernel_.registers[r].name = "argument " + std::to_string(a);
                    raw.push_back(r);
                    if (bits == 256 && narrow_) raw.push_back(upper_half(r));
                }
            }
            widen_argument(int(a), lane);
        }
        for (int k = 0; k < int(program_.nodes.size()); ++k) {
            const Node& n = program_.nodes[k];
            if (n.op == Op::argument) set(k, Shape::whole, argument_raw_[n.imm]);
        }
    }

    /// Gives the lanes above the value a defined content: copies at widths 1 and 2, the fill at width 3.
    void widen_argument(int argument, Lane lane) {
        std::vector<int>& raw = argument_raw_[argument];
        const Type type = type_of(lane);
        const bool wide = lane_size(lane) == 8, floating = tuvo::is_floating(lane);
        const Operand source = reg(raw[0]);
        if (width_ == 1) {
            if (!wide)
                raw[0] = emit(vpshufd, 128, {source}, 0);
            else
                raw[0] = floating ? emit(vmovddup, 128, {source}) : emit(vpunpcklqdq, 128, {source, source});
        } else if (width_ == 2 && !wide) {
            raw[0] = floating ? emit(vmovddup, 128, {source}) : emit(vpunpcklqdq, 128, {source, source});
        } else if (width_ == 3) {
            const int size = lane_size(lane), bits = whole_bits(type);
            std::vector<std::uint8_t> mask(bits / 8), fill(bits / 8);
            std::fill(mask.end() - size, mask.end(), 0xff);
            const std::uint64_t pattern = lane3_fill(family_, argument);
            std::memcpy(fill.data() + fill.size() - size, &pattern, size);
            const bool integer = !floating && bits == 128;
            const int mask_register = rematerialized(
                integer ? vmovdqa : vmovaps, {mem(pool_item(mask, "lane 3"), bits)}, bits, File::vector, "lane 3");
            int& last = raw.back();
            last = emit(integer ? vpandn : vandnps, bits, {reg(mask_register), reg(last)});
            if (pattern != 0)
                last =
                    emit(integer ? vpor : vorps, bits,
                         {reg(last), mem(pool_item(fill, "fill of lane 3: " + describe_pattern(type, pattern)), bits)});
        }
    }

    // Nodes.

    void lay_out_node(int k) {
        const Node& n = program_.nodes[k];
        switch (n.op) {
        case Op::argument:
        case Op::constant:
        case Op::gather: return;
        case Op::bitcast: {
            for (int r : forms_[root(k)].whole)
                if (kernel_.registers[r].name.empty()) kernel_.registers[r].name = n.name;
            return;
        }
        case Op::join: lay_out_section(int(n.imm)); return;
        case Op::element: lay_out_element(k); return;
        case Op::int_to_float:
        case Op::float_to_int:
        case Op::float_to_int_trunc:
        case Op::widen:
        case Op::narrow: lay_out_conversion(k); return;
        case Op::zero_extend:
        case Op::sign_extend:
        case Op::low_word:
        case Op::high_word:
        case Op::join_words:
        case Op::mask_widen:
        case Op::mask_narrow: lay_out_words(k); return;
        case Op::shift_left_each:
        case Op::shift_right_each: lay_out_shift_each(k); return;
        default: lay_out_elementwise(k); return;
        }
    }

    void lay_out_elementwise(int k) {
        const Node& n = program_.nodes[k];
        const Shape shape = must_be_halves(n)     ? Shape::half
                            : n.op == Op::compare ? compare_shape(n)
                                                  : elementwise_shape(k);
        const int parts_count = count(n.type, shape);
        std::vector<int> result;
        // Every part's instruction before the next node's: the parts run side by side.
        for (int p = 0; p < parts_count; ++p) {
            result.push_back(elementwise(n, shape, p));
            comment(k, p, parts_count);
        }
        set(k, shape, result);
    }

    static bool must_be_halves(const Node& n) {
        const bool integer = is_integer(n.type);
        switch (n.op) {
        case Op::add:
        case Op::sub:
        case Op::mul:
        case Op::min:
        case Op::max: return integer;
        case Op::umin:
        case Op::umax:
        case Op::multiply_words:
        case Op::shift_left:
        case Op::shift_right:
        case Op::shift_right_signed:
        case Op::equal:
        case Op::greater: return true;
        default: return false;
        }
    }

    Shape compare_shape(const Node& n) const {
        if (!split(n.type)) return Shape::whole;
        for (int a : {n.args[0], n.args[1]})
            if (!is_constant(a) && has(a, Shape::whole)) return Shape::whole;
        return wide_family() && type_size(n.type) == 4 ? Shape::half : Shape::whole;
    }

    int elementwise(const Node& n, Shape shape, int p) {
        const int vector_bits = bits(n.type, shape);
        const int scalar_bits = scalar() ? type_size(n.type) * 8 : vector_bits;
        const auto first = [&](int b) { return in_register(n.args[0], shape, p, b); };
        const auto second = [&](int b) { return any_operand(n.args[1], shape, p, b); };
        // A constant in first place moves to the second, where it can stay in memory.
        const bool constant_first = is_constant(n.args[0]) && !is_constant(n.args[1]);
        const auto swapped = [&] {
            Node other = n;
            std::swap(other.args[0], other.args[1]);
            return elementwise(other, shape, p);
        };
        switch (n.op) {
        case Op::add:
        case Op::mul:
            // Of two NaNs the first survives, so one among the constants keeps its place.
            if (constant_first && !is_nan_constant(n.args[0])) return swapped();
            [[fallthrough]];
        case Op::sub:
        case Op::div:
        case Op::min:
        case Op::max:
            if (!is_floating(n.type)) return emit(integer_form(n), 128, {first(128), second(128)});
            return emit(float_form(n), vector_bits, {first(scalar_bits), second(scalar_bits)});
        case Op::umin:
        case Op::umax:
        case Op::multiply_words:
        case Op::equal:
        case Op::greater: return emit(integer_form(n), 128, {first(128), second(128)});
        case Op::sqrt:
        case Op::reciprocal:
        case Op::reciprocal_sqrt:
        case Op::round: {
            const int immediate = n.op == Op::round ? int(n.imm) : -1;
            if (scalar()) return emit(float_form(n), 128, {first(scalar_bits), first(scalar_bits)}, immediate);
            return emit(float_form(n), vector_bits, {first(vector_bits)}, immediate);
        }
        case Op::bit_and:
        case Op::bit_or:
        case Op::bit_xor:
        case Op::and_not: {
            if (n.op != Op::and_not && constant_first) return swapped();
            const bool integer = vector_bits == 128 && integer_domain(n.args[0]) && integer_domain(n.args[1]);
            return emit(bitwise_form(n.op, n.type, integer), vector_bits, {first(vector_bits), second(vector_bits)});
        }
        case Op::shift_left:
        case Op::shift_right:
        case Op::shift_right_signed: return emit(integer_form(n), 128, {first(128)}, int(n.imm));
        case Op::compare: {
            int predicate = int(n.imm);
            int a = n.args[0], b = n.args[1];
            if (constant_first) {
                static constexpr std::array<int, 15> mirrored{0, 14, 13, 3, 4, 10, 9, 7, -1, 6, 5, -1, -1, 2, 1};
                predicate = mirrored[predicate];
                std::swap(a, b);
            }
            return emit(float_form(n), vector_bits,
                        {in_register(a, shape, p, scalar_bits), any_operand(b, shape, p, scalar_bits)}, predicate);
        }
        case Op::select:
            return emit(blend_form(n.type), vector_bits,
                        {in_register(n.args[2], shape, p, vector_bits), any_operand(n.args[1], shape, p, vector_bits),
                         in_register(n.args[0], shape, p, vector_bits)});
        case Op::lookup4: return emit(vpermilps, vector_bits, {first(vector_bits), second(vector_bits)});
        default: throw std::logic_error(program_.name + ": unknown operation");
        }
    }

    Mnemonic float_form(const Node& n) const {
        static constexpr auto forms = [](Op op) -> FloatForms {
            switch (op) {
            case Op::add: return {vaddps, vaddpd, vaddss, vaddsd};
            case Op::sub: return {vsubps, vsubpd, vsubss, vsubsd};
            case Op::mul: return {vmulps, vmulpd, vmulss, vmulsd};
            case Op::div: return {vdivps, vdivpd, vdivss, vdivsd};
            case Op::min: return {vminps, vminpd, vminss, vminsd};
            case Op::max: return {vmaxps, vmaxpd, vmaxss, vmaxsd};
            case Op::sqrt: return {vsqrtps, vsqrtpd, vsqrtss, vsqrtsd};
            case Op::round: return {vroundps, vroundpd, vroundss, vroundsd};
            case Op::compare: return {vcmpps, vcmppd, vcmpss, vcmpsd};
            default: throw std::logic_error("no operation of floating-point lanes");
            }
        };
        const bool single = type_size(n.type) == 4;
        if (n.op == Op::reciprocal && single) return scalar() ? vrcpss : vrcpps;
        if (n.op == Op::reciprocal_sqrt && single) return scalar() ? vrsqrtss : vrsqrtps;
        const FloatForms f = forms(n.op);
        if (scalar()) return single ? f.scalar_single : f.scalar_double;
        return single ? f.packed_single : f.packed_double;
    }

    static Mnemonic integer_form(const Node& n) {
        const bool words = type_size(n.type) == 4;
        switch (n.op) {
        case Op::add: return words ? vpaddd : vpaddq;
        case Op::sub: return words ? vpsubd : vpsubq;
        case Op::equal: return words ? vpcmpeqd : vpcmpeqq;
        case Op::greater: return words ? vpcmpgtd : vpcmpgtq;
        case Op::shift_left: return words ? vpslld : vpsllq;
        case Op::shift_right: return words ? vpsrld : vpsrlq;
        default: break;
        }
        if (n.op == Op::multiply_words && !words) return vpmuludq;
        if (words) {
            switch (n.op) {
            case Op::mul: return vpmulld;
            case Op::min: return vpminsd;
            case Op::max: return vpmaxsd;
            case Op::umin: return vpminud;
            case Op::umax: return vpmaxud;
            case Op::shift_right_signed: return vpsrad;
            default: break;
            }
        }
        throw std::logic_error("no operation of integer lanes of this size");
    }

    /// Bit operations exist for each kind of lane; `integer` keeps a value that comes from the integer side there.
    static Mnemonic bitwise_form(Op op, Type type, bool integer) {
        const bool single = type_size(type) == 4;
        switch (op) {
        case Op::bit_and: return integer ? vpand : single ? vandps : vandpd;
        case Op::bit_or: return integer ? vpor : single ? vorps : vorpd;
        case Op::bit_xor: return integer ? vpxor : single ? vxorps : vxorpd;
        default: return integer ? vpandn : single ? vandnps : vandnpd;
        }
    }

    static Mnemonic blend_form(Type type) { return type_size(type) == 4 ? vblendvps : vblendvpd; }

    /// Whether a value comes from the integer side, so that bit operations on it stay there.
    bool integer_domain(int node) const {
        const Node& n = program_.nodes[node];
        if (is_integer(n.type)) return true;
        return n.op == Op::equal || n.op == Op::greater || (n.op == Op::constant && !is_floating(n.type));
    }

    void lay_out_conversion(int k) {
        const Node& n = program_.nodes[k];
        const int a = n.args[0];
        const Type from = program_.nodes[a].type;
        std::vector<int> result;
        Shape shape = Shape::whole;
        if (type_size(n.type) == 4 && type_size(from) == 4) {
            const Mnemonic name = n.op == Op::int_to_float   ? vcvtdq2ps
                               : n.op == Op::float_to_int ? vcvtps2dq
                                                          : vcvttps2dq;
            shape = has(a, Shape::whole) || !wide_family() ? Shape::whole : Shape::half;
            for (int p = 0; p < count(n.type, shape); ++p)
                result.push_back(emit(name, bits(n.type, shape), {any_operand(a, shape, p, bits(from, shape))}));
        } else if (type_size(n.type) == 8) {  // 32-bit lanes to doubles: a half of four lanes to a whole of four
            const Mnemonic name = n.op == Op::int_to_float ? vcvtdq2pd : vcvtps2pd;
            if (scalar() && n.op == Op::widen) {
                const Operand source = in_register(a, Shape::half, 0, 128);
                result.push_back(emit(vcvtss2sd, 128, {source, source}));
            } else {
                const int fours = whole_bits(n.type) == 256 ? 1 : 2;  // wholes that four lanes fill
                for (int p = 0; p < whole_count(n.type); ++p) {
                    Operand source = in_register(a, Shape::half, p / fours, 128);
                    if (p % fours == 1) source = reg(emit(vpshufd, 128, {source}, 0xee));
                    result.push_back(emit(name, whole_bits(n.type), {source}));
                }
            }
        } else {  // doubles to 32-bit lanes
            const Mnemonic name = n.op == Op::narrow ? vcvtpd2ps : n.op == Op::float_to_int ? vcvtpd2dq : vcvttpd2dq;
            shape = Shape::half;
            for (int p = 0; p < whole_count(from); ++p) {
                const Operand source = in_register(a, Shape::whole, p, whole_bits(from));
                int r = scalar() && n.op == Op::narrow ? emit(vcvtsd2ss, 128, {source, source})
                                                       : emit(name, 128, {source});
                // Zeros in the upper lanes become copies, unless nothing but the caller looks at the value.
                if (width_ == 2 && is_read(k)) r = emit(vmovddup, 128, {reg(r)});
                result.push_back(r);
            }
            if (narrow_ && width_ > 2) result = {emit(vunpcklpd, 128, {reg(result[0]), reg(result[1])})};
        }
        set(k, shape, result);
        comment(k, int(result.size()) - 1, int(result.size()));
    }

    bool is_read(int node) const {
        for (std::size_t k = 0; k < live_.size(); ++k)
            if (live_[k] && std::ranges::count(program_.nodes[k].args, node) > 0) return true;
        return std::ranges::any_of(program_.rare, [&](const RareTest& test) { return test.mask == node; });
    }

    /// Moves between 32-bit and 64-bit integer lanes: four lanes are one register of words and two of long words.
    void lay_out_words(int k) {
        const Node& n = program_.nodes[k];
        if (interleaved_) return lay_out_interleaved_words(k);
        const auto half = [&](int argument, int p) { return in_register(n.args[argument], Shape::half, p, 128); };
        const bool narrow = width_ <= 2;
        std::vector<int> result;
        switch (n.op) {
        case Op::low_word:
        case Op::high_word:
        case Op::mask_narrow: {
            const int selector = n.op == Op::low_word ? 0x88 : 0xdd;
            for (int p = 0; p < half_count(n.type); ++p)
                result.push_back(narrow ? emit(vpshufd, 128, {half(0, p)}, selector)
                                        : emit(vshufps, 128, {half(0, 2 * p), half(0, 2 * p + 1)}, selector));
            break;
        }
        case Op::join_words:
        case Op::mask_widen: {
            const int low = n.op == Op::join_words ? 1 : 0;
            for (int p = 0; p < half_count(n.type); ++p)
                result.push_back(
                    emit(p % 2 == 0 ? vpunpckldq : vpunpckhdq, 128, {half(low, p / 2), half(0, p / 2)}));
            break;
        }
        default: {
            const Mnemonic name = n.op == Op::zero_extend ? vpmovzxdq : vpmovsxdq;
            for (int p = 0; p < half_count(n.type); ++p) {
                Operand source = half(0, p / 2);
                if (p % 2 == 1) source = reg(emit(vpshufd, 128, {source}, 0xee));
                result.push_back(emit(name, 128, {source}));
            }
        }
        }
        set(k, Shape::half, result);
        comment(k, int(result.size()) - 1, int(result.size()));
    }

    void lay_out_interleaved_words(int k) {
        const Node& n = program_.nodes[k];
        std::vector<int> result;
        if (n.op == Op::join_words) {
            for (int p = 0; p < whole_count(n.type); ++p)
                result.push_back(emit(p % 2 == 0 ? vunpcklps : vunpckhps, 256,
                                      {in_register(n.args[1], Shape::whole, p / 2, 256),
                                       any_operand(n.args[0], Shape::whole, p / 2, 256)}));
        } else {
            for (int p = 0; p < whole_count(n.type); ++p)
                result.push_back(emit(vshufps, 256,
                                      {in_register(n.args[0], Shape::whole, 2 * p, 256),
                                       in_register(n.args[0], Shape::whole, 2 * p + 1, 256)},
                                      n.op == Op::low_word ? 0x88 : 0xdd));
        }
        set(k, Shape::whole, result);
        comment(k, int(result.size()) - 1, int(result.size()));
    }

    /// The processor shifts a register by one count: each lane is shifted apart, then the lanes are merged.
    void lay_out_shift_each(int k) {
        const Node& n = program_.nodes[k];
        const Mnemonic name = n.op == Op::shift_left_each ? vpsllq : vpsrlq;
        std::vector<int> result;
        for (int p = 0; p < half_count(n.type); ++p) {
            const Operand value = in_register(n.args[0], Shape::half, p, 128),
                          counts = in_register(n.args[1], Shape::half, p, 128);
            int r = emit(name, 128, {value, counts});
            if (!scalar()) {
                const int upper = emit(vpshufd, 128, {counts}, 0xee);
                const int high = emit(name, 128, {value, reg(upper)});
                r = emit(vpblendw, 128, {reg(r), reg(high)}, 0xf0);
            }
            result.push_back(r);
        }
        set(k, Shape::half, result);
        comment(k, int(result.size()) - 1, int(result.size()));
    }

    // Gathers: indices go to general registers one by one, entries come back element by element.

    std::map<int, std::vector<Forms>> gathered_;

    void lay_out_element(int k) {
        const Node& n = program_.nodes[k];
        const int g = n.args[0];
        if (!gathered_.contains(g)) gathered_[g] = lay_out_gather(g, n.type);
        forms_[k] = gathered_[g].at(n.imm);
        for (const std::vector<int>* registers : {&forms_[k].whole, &forms_[k].half})
            for (int r : *registers) kernel_.registers[r].name = n.name;
    }

    std::vector<Forms> lay_out_gather(int g, Type type) {
        const Node& node = program_.nodes[g];
        const Gather& gather = program_.gathers[node.imm];
        const int size = type_size(type);
        std::vector<Memory> entries;
        for (int lane = 0; lane < std::min(width_ == 3 ? 4 : width_, lanes()); ++lane) {
            const Operand indices = in_register(node.args[0], Shape::half, lane / 4, 128);
            int index = lane % 4 == 0 ? emit(vmovd, 32, {indices}, -1, File::general)
                                      : emit(vpextrd, 32, {indices}, lane % 4, File::general);
            if (gather.low < 0) index = emit(movsxd, 64, {reg(index, 32)}, -1, File::general);
            Memory memory;
            memory.base = Memory::Base::block, memory.block = program_.tables[gather.table].block;
            memory.pointer = block_pointer(memory.block), memory.index = index;
            memory.offset = blocks_.table_offset[gather.table] - gather.bias;
            entries.push_back(memory);
        }
        const bool whole = split(type) && !(wide_family() && size == 4) && !is_integer(type);
        std::vector<Forms> values;
        for (int done = 0; done < gather.count;) {
            const int left = gather.count - done, fields = left >= 4 ? 4 : left >= 2 ? 2 : 1;
            std::vector<Memory> from;
            for (const Memory& entry : entries) from.push_back(shifted(entry, done * size));
            for (Forms& forms : size == 4 ? gather_words(from, fields, whole) : gather_longs(from, fields, whole))
                values.push_back(std::move(forms));
            done += fields;
        }
        return values;
    }

    static Memory shifted(Memory memory, std::int64_t bytes) {
        memory.offset += bytes;
        return memory;
    }

    int joined(int low, int high) { return emit(vinsertf128, 256, {reg(low, 256), reg(high, 128)}, 1); }

    /// Pairs of 128-bit registers, lower lanes first, become whole ones where the width has them.
    std::vector<int> joined_pairs(const std::vector<int>& halves, bool whole) {
        if (!whole) return halves;
        std::vector<int> result;
        for (std::size_t p = 0; p < halves.size(); p += 2) result.push_back(joined(halves[p], halves[p + 1]));
        return result;
    }

    static std::vector<Forms> as_forms(std::vector<std::vector<int>> values, bool whole) {
        std::vector<Forms> forms(values.size());
        for (std::size_t v = 0; v < values.size(); ++v) (whole ? forms[v].whole : forms[v].half) = values[v];
        return forms;
    }

    std::vector<Forms> gather_words(const std::vector<Memory>& entries, int fields, bool whole) {
        const int n = int(entries.size());
        if (fields == 1) {
            std::vector<int> halves;
            for (int first = 0; first < n; first += 4) {
                int r = emit(vmovss, 128, {mem(entries[first], 32)});
                for (int lane = 1; lane < std::min(4, n - first); ++lane)
                    r = emit(vinsertps, 128, {reg(r), mem(entries[first + lane], 32)}, lane << 4);
                halves.push_back(r);
            }
            return as_forms({joined_pairs(halves, whole)}, whole);
        }
        if (fields == 2) {
            std::vector<int> low, high;  // lanes 0, 1 and lanes 2, 3 of each four
            for (int first = 0; first < n; first += 2) {
                int r = emit(vmovsd, 128, {mem(entries[first], 64)});
                if (first + 1 < n) r = emit(vmovhps, 128, {reg(r), mem(entries[first + 1], 64)});
                (first % 4 == 0 ? low : high).push_back(r);
            }
            low = joined_pairs(low, whole);
            high = n > 2 ? joined_pairs(high, whole) : low;
            std::vector<int> a, b;
            for (std::size_t p = 0; p < low.size(); ++p) {
                const int width = whole ? 256 : 128;
                a.push_back(emit(vshufps, width, {reg(low[p]), reg(high[p])}, 0x88));
                b.push_back(emit(vshufps, width, {reg(low[p]), reg(high[p])}, 0xdd));
            }
            return as_forms({a, b}, whole);
        }
        // Four fields: a transposition of four entries at a time, or of eight in 256-bit registers.
        std::vector<std::vector<int>> values(4);
        const int step = whole ? 8 : 4, width = whole ? 256 : 128;
        for (int first = 0; first < n; first += step) {
            std::array<int, 4> rows{};
            for (int lane = 0; lane < 4; ++lane) {
                if (first + lane >= n) {
                    rows[lane] = rows[0];
                    continue;
                }
                rows[lane] = emit(vmovups, 128, {mem(entries[first + lane], 128)});
                if (whole)
                    rows[lane] =
                        emit(vinsertf128, 256, {reg(rows[lane], 256), mem(entries[first + lane + 4], 128)}, 1);
            }
            const int ab_low = emit(vunpcklps, width, {reg(rows[0]), reg(rows[1])}),
                      ab_high = emit(vunpckhps, width, {reg(rows[0]), reg(rows[1])});
            const int cd_low = emit(vunpcklps, width, {reg(rows[2]), reg(rows[3])}),
                      cd_high = emit(vunpckhps, width, {reg(rows[2]), reg(rows[3])});
            values[0].push_back(emit(vunpcklpd, width, {reg(ab_low), reg(cd_low)}));
            values[1].push_back(emit(vunpckhpd, width, {reg(ab_low), reg(cd_low)}));
            values[2].push_back(emit(vunpcklpd, width, {reg(ab_high), reg(cd_high)}));
            values[3].push_back(emit(vunpckhpd, width, {reg(ab_high), reg(cd_high)}));
        }
        return as_forms(values, whole);
    }

    std::vector<Forms> gather_longs(const std::vector<Memory>& entries, int fields, bool whole) {
        const int n = int(entries.size());
        std::vector<std::vector<int>> values(fields);
        if (fields == 1) {
            for (int first = 0; first < n; first += 2) {
                int r = emit(vmovsd, 128, {mem(entries[first], 64)});
                if (first + 1 < n) r = emit(vmovhpd, 128, {reg(r), mem(entries[first + 1], 64)});
                values[0].push_back(r);
            }
            values[0] = joined_pairs(values[0], whole);
            return as_forms(values, whole);
        }
        const int step = whole ? 4 : 2, width = whole ? 256 : 128;
        for (int first = 0; first < n; first += step) {
            for (int field = 0; field < fields; field += 2) {
                std::array<int, 2> rows{};
                for (int lane = 0; lane < 2; ++lane) {
                    if (first + lane >= n) {
                        rows[lane] = rows[0];
                        continue;
                    }
                    rows[lane] = emit(vmovups, 128, {mem(shifted(entries[first + lane], field * 8), 128)});
                    if (whole)
                        rows[lane] =
                            emit(vinsertf128, 256,
                                 {reg(rows[lane], 256), mem(shifted(entries[first + lane + 2], field * 8), 128)}, 1);
                }
                values[field].push_back(emit(vunpcklpd, width, {reg(rows[0]), reg(rows[1])}));
                values[field + 1].push_back(emit(vunpckhpd, width, {reg(rows[0]), reg(rows[1])}));
            }
        }
        return as_forms(values, whole);
    }

    // Masks in general registers.

    /// Bits of a joined mask that stand for lanes; 0 where all do. At widths 1 and 2 the lanes above hold copies.
    int cut() const { return width_ <= 2 ? (1 << width_) - 1 : 0; }

    /// The rare mask: bit i for lane i, in a general register. Sign bits are taken from the registers as they are and
    /// shifted together; only the four halves of sixteen lanes are packed to bytes first. Packing two halves as well
    /// would give the same bits, but write three vector registers more, and those limit how many calls are in flight:
    /// the default logarithm of eight lanes gains 2 % this way.
    int join_mask(int node) {
        if (is_constant(node)) throw std::invalid_argument(program_.name + ": a rare test on a constant");
        const Shape shape = has(node, Shape::whole) ? Shape::whole : Shape::half;
        std::vector<int> registers = parts(node, shape);
        bool single = program_.nodes[node].type == Type::m32;
        if (shape == Shape::half && !single) {  // the high words of two registers of long masks
            std::vector<int> words;
            for (std::size_t p = 0; p < registers.size(); p += 2)
                words.push_back(emit(vshufps, 128, {reg(registers[p], 128), reg(registers[p + 1], 128)}, 0xdd));
            registers = words;
            single = true;
        }
        if (shape == Shape::half && registers.size() == 4) {
            const auto pack = [&](Mnemonic name, int low, int high) {
                return emit(name, 128, {reg(low, 128), reg(high, 128)});
            };
            const int low = pack(vpackssdw, registers[0], registers[1]);
            const int high = pack(vpackssdw, registers[2], registers[3]);
            return emit(vpmovmskb, 32, {reg(pack(vpacksswb, low, high))}, -1, File::general);
        }
        int all = -1;
        for (std::size_t p = 0; p < registers.size(); ++p) {
            const int bits = shape == Shape::half ? 128 : whole_bits(program_.nodes[node].type);
            const int lanes_each = bits / (single ? 32 : 64);
            int part = emit(single ? vmovmskps : vmovmskpd, 32, {reg(registers[p], bits)}, -1, File::general);
            if (p > 0) part = emit(shl, 32, {reg(part, 32)}, int(p) * lanes_each, File::general);
            all = p == 0 ? part : or_general({all, part});
        }
        return all;
    }

    /// Whether any lane is set: nonzero in a general register, whatever the order of its bits.
    int any_mask(int node) {
        const Type type = program_.nodes[node].type;
        const Shape shape = has(node, Shape::whole) ? Shape::whole : Shape::half;
        int all = parts(node, shape)[0];
        for (int p = 1; p < count(type, shape); ++p)
            all = emit(bitwise_form(Op::bit_or, type, false), bits(type, shape),
                       {reg(all, bits(type, shape)), reg(parts(node, shape)[p], bits(type, shape))});
        return emit(type == Type::m32 ? vmovmskps : vmovmskpd, 32, {reg(all, bits(type, shape))}, -1, File::general);
    }

    int or_general(const std::vector<int>& registers) {
        int all = registers[0];
        for (std::size_t k = 1; k < registers.size(); ++k)
            all = emit(or_, 32, {reg(all, 32), reg(registers[k], 32)}, -1, File::general);
        return all;
    }

    /// The rare lanes that a section's own tests find, in a general register; -1 for none.
    int rare_lanes_of(int section) {
        std::vector<int> masks;
        for (const RareTest& test : program_.rare)
            if (test.section == section) masks.push_back(test.mask);
        std::vector<int> found;
        // Tests of one size are joined as masks, where the or of several costs least.
        for (const Type type : {Type::m32, Type::m64}) {
            int all = -1;
            for (int mask : masks) {
                if (program_.nodes[mask].type != type) continue;
                all = all < 0 ? mask : or_masks(all, mask);
            }
            if (all >= 0) found.push_back(join_mask(restricted(all, section)));
        }
        found.insert(found.end(), rare_lanes_[section].begin(), rare_lanes_[section].end());
        return found.empty() ? -1 : or_general(found);
    }

    /// Inside a section only the lanes that asked for it can be rare, or a lane would depend on its neighbours.
    int restricted(int mask, int section) {
        for (int s = section; s != 0; s = program_.sections[s].parent) {
            const int own = program_.sections[s].mask;
            if (program_.nodes[own].type != program_.nodes[mask].type)
                throw std::invalid_argument(program_.name +
                                            ": a rare test inside a section has another mask size than the section");
            mask = combine_masks(Op::bit_and, mask, own);
        }
        return mask;
    }

    int or_masks(int a, int b) { return combine_masks(Op::bit_or, a, b); }

    /// Combines two masks in whichever form both have; the result gets a node number of its own.
    int combine_masks(Op op, int a, int b) {
        const Type type = program_.nodes[a].type;
        const Shape shape = has(a, Shape::whole) && has(b, Shape::whole) ? Shape::whole : Shape::half;
        const bool integer = bits(type, shape) == 128 && integer_domain(a) && integer_domain(b);
        std::vector<int> result;
        for (int p = 0; p < count(type, shape); ++p)
            result.push_back(
                emit(bitwise_form(op, type, integer), bits(type, shape),
                     {in_register(a, shape, p, bits(type, shape)), in_register(b, shape, p, bits(type, shape))}));
        Node combined = program_.nodes[a];
        combined.name.clear();
        program_.nodes.push_back(combined);
        const int node = int(program_.nodes.size()) - 1;
        forms_.push_back({});
        live_.push_back(true);
        halves_wanted_.push_back(false);
        set(node, shape, result);
        return node;
    }

    // Sections.

    /// Whether anything but the joins of its own section reads a value after them.
    bool read_later(int value, int join) const {
        const int node = root(value);
        const Node& n = program_.nodes[node];
        if (n.op == Op::argument || n.op == Op::constant) return true;
        for (int k = join + 1; k < int(program_.nodes.size()); ++k) {
            if (k < int(live_.size()) && !live_[k]) continue;
            const Node& user = program_.nodes[k];
            if (user.op == Op::join && user.imm == program_.nodes[join].imm) continue;
            for (int arg : user.args)
                if (arg >= 0 && root(arg) == node && user.op != Op::bitcast) return true;
        }
        for (const RareTest& test : program_.rare)
            if (root(test.mask) == node) return true;
        return std::any_of(program_.outputs.begin(), program_.outputs.end(),
                           [&](int output) { return root(output) == node; });
    }

    /// The nodes of a mask, in order, if a compare and little else makes it of arguments that the rare path keeps
    /// alive: such a mask is made again inside its section, and takes no register on the way around it.
    std::vector<int> made_of_arguments(int mask) const {
        constexpr std::size_t little = 3;
        std::vector<int> nodes;
        if (!family_.has_rare) return nodes;
        const auto collect = [&](int k, auto&& self) -> bool {
            const Node& n = program_.nodes[k];
            if (n.op == Op::argument || n.op == Op::constant || std::ranges::find(nodes, k) != nodes.end()) return true;
            if (!is_bitwise(n.op) && n.op != Op::bitcast && n.op != Op::compare) return false;
            for (int a : n.args)
                if (a >= 0 && !self(a, self)) return false;
            nodes.push_back(k);
            return nodes.size() <= little;
        };
        return collect(mask, collect) ? nodes : std::vector<int>{};
    }

    /// A register of its own for a value that is about to be replaced or pinned.
    int copied(int node, int part) {
        const int bits = whole_bits(program_.nodes[node].type);
        if (is_constant(node)) return emit(vmovaps, bits, {constant_operand(node, bits)});
        return emit(vmovaps, bits, {reg(parts(node, Shape::whole)[part], bits)});
    }

    void lay_out_section(int s) {
        const Section section = program_.sections[s];
        const int join = section.joined[0];
        if (!forms_[join].whole.empty()) return;  // its first join has done the work
        if (section.kind == Section::Kind::repair) {
            forms_[join] = forms_[root(section.before[0])];
            return;
        }
        KernelSection& kernel_section = kernel_.sections[s];
        kernel_section.kind = section.kind;
        const int condition = any_mask(section.mask);
        std::vector<Joined> joins;
        for (std::size_t v = 0; v < section.before.size(); ++v) {
            if (!live_[section.joined[v]]) continue;
            const int node = section.before[v];
            const bool copy = read_later(node, join);
            std::vector<int> joined;
            for (int p = 0; p < whole_count(program_.nodes[node].type); ++p) {
                const int before = copy ? copied(node, p) : parts(node, Shape::whole)[p];
                joins.push_back({before, -1, new_register(kernel_.registers[before].bits)});
                joined.push_back(joins.back().joined);
            }
            set(section.joined[v], Shape::whole, joined);
        }
        const bool has_rare = std::any_of(program_.rare.begin(), program_.rare.end(), [&](const RareTest& test) {
            for (int t = test.section; t != 0; t = program_.sections[t].parent)
                if (t == s) return true;
            return false;
        });
        if (has_rare) {
            // Where the section doesn't run, its condition is zero: the mask of no lane.
            joins.push_back({condition, -1, new_register(32, File::general)});
            rare_lanes_[section_].push_back(joins.back().joined);
        }
        const std::vector<int> remade = made_of_arguments(section.mask);
        // Its whole form is wanted inside; made out here it serves both sides.
        if (remade.empty()) parts(section.mask, Shape::whole);

        // The body. What it makes of outer values (halves of them, entries of tables) is not there outside.
        const std::vector<Forms> outer_forms = forms_;
        const auto outer_gathered = gathered_;
        const int outer_section = section_;
        section_ = s;
        for (int k : remade) forms_[k] = {};
        for (int k : remade) lay_out_node(k);
        for (int k = 0; k < int(outer_forms.size()); ++k)
            if (live_[k] && program_.nodes[k].section == s) lay_out_node(k);
        std::size_t next = 0;
        for (std::size_t v = 0; v < section.before.size(); ++v) {
            if (!live_[section.joined[v]]) continue;
            const int node = section.after[v];
            const Type type = program_.nodes[node].type;
            const int bits = whole_bits(type);
            const Mnemonic name = blend_form(type);
            for (int p = 0; p < whole_count(type); ++p, ++next)
                joins[next].after = emit(name, bits,
                                         {reg(joins[next].before, bits), any_operand(node, Shape::whole, p, bits),
                                          in_register(section.mask, Shape::whole, p, bits)});
        }
        if (has_rare) joins[next].after = rare_lanes_of(s);
        Instruction end;
        end.kind = Instruction::Kind::end;
        for (const Joined& j : joins) end.uses.push_back(j.after);
        body().push_back(end);
        section_ = outer_section;
        for (std::size_t k = 0; k < outer_forms.size(); ++k) forms_[k] = outer_forms[k];
        gathered_ = outer_gathered;
        kernel_section.condition = condition;
        kernel_section.cut = cut();
        kernel_section.joins = joins;
        branch_to(s, Instruction::Kind::branch);
    }

    void collect_reads(int s, std::vector<int>& reads) const {
        const auto read = [&](int r) {
            if (r >= 0 && std::find(reads.begin(), reads.end(), r) == reads.end()) reads.push_back(r);
        };
        for (const Instruction& i : kernel_.sections[s].body) {
            for (const Operand& o : i.sources) {
                if (o.kind == Operand::Kind::reg) read(o.reg);
                if (o.kind == Operand::Kind::memory) read(o.memory.index);
            }
            for (int use : i.uses) read(use);
            if (i.section >= 0) collect_reads(i.section, reads);
        }
    }

    void branch_to(int s, Instruction::Kind kind) {
        const KernelSection& section = kernel_.sections[s];
        Instruction branch;
        branch.kind = kind, branch.section = s;
        std::vector<int> reads;
        collect_reads(s, reads);
        std::vector<bool> made(kernel_.registers.size());
        const auto mark_made = [&](int t, auto&& self) -> void {
            for (const Instruction& i : kernel_.sections[t].body) {
                if (i.dst >= 0) made[i.dst] = true;
                if (i.section >= 0) {
                    for (const Joined& j : kernel_.sections[i.section].joins) made[j.joined] = true;
                    self(i.section, self);
                }
            }
        };
        mark_made(s, mark_made);
        const auto use = [&](int r) {
            if (std::find(branch.uses.begin(), branch.uses.end(), r) == branch.uses.end()) branch.uses.push_back(r);
        };
        use(section.condition);
        for (const Joined& j : section.joins) use(j.before);
        for (int r : reads)
            if (!made[r] && kernel_.registers[r].rematerialize < 0) use(r);
        for (const StashArray& array : section.inputs)
            for (int r : array.parts) use(r);
        body().push_back(branch);
    }

    // The end of the kernel.

    void finish() {
        if (program_.outputs.size() != family_.outputs().size())
            throw std::invalid_argument(program_.name + ": the description yields " +
                                        std::to_string(program_.outputs.size()) + " values, the operation " +
                                        std::to_string(family_.outputs().size()));
        std::vector<std::vector<int>> outputs;
        std::vector<int> taken;
        for (int node : program_.outputs) {
            std::vector<int> registers;
            const Type type = program_.nodes[node].type;
            const bool copy = is_constant(node) || program_.nodes[root(node)].op == Op::argument;
            for (int p = 0; p < whole_count(type); ++p) {
                int r = copy ? copied(node, p) : parts(node, Shape::whole)[p];
                if (std::find(taken.begin(), taken.end(), r) != taken.end() || is_argument(r)) r = copied(node, p);
                registers.push_back(r);
                taken.push_back(r);
            }
            outputs.push_back(registers);
        }
        const bool rare = program_.always_rare || !program_.rare.empty();
        if (rare != family_.has_rare)
            throw std::invalid_argument(program_.name +
                                        (rare ? ": the description has a rare test, the operation table no rare path"
                                              : ": the operation table has a rare path, the description no rare test"));
        if (rare) outputs = lay_out_rare_path(outputs);
        lay_out_exit(outputs);
    }

    bool is_argument(int r) const { return kernel_.registers[r].fixed >= 0 || kernel_.registers[r].rematerialize >= 0; }

    std::vector<std::vector<int>> lay_out_rare_path(const std::vector<std::vector<int>>& outputs) {
        const int mask =
            program_.always_rare ? emit(mov, 32, {}, (1 << width_) - 1, File::general) : rare_lanes_of(0);
        const int s = int(kernel_.sections.size());
        kernel_.sections.emplace_back();
        rare_lanes_.emplace_back();
        KernelSection section;
        section.is_rare = true;
        section.condition = mask;
        section.cut = cut();
        const std::vector<Lane> lanes = family_.outputs();
        std::vector<std::vector<int>> joined(outputs.size());
        for (std::size_t v = 0; v < outputs.size(); ++v) {
            section.outputs.push_back({outputs[v], lane_size(lanes[v])});
            for (int r : outputs[v]) {
                section.joins.push_back({r, r, new_register(kernel_.registers[r].bits)});
                joined[v].push_back(section.joins.back().joined);
            }
        }
        for (std::size_t a = 0; a < family_.arguments.size(); ++a)
            section.inputs.push_back({argument_raw_[a], lane_size(family_.arguments[a])});
        for (std::size_t t = 1; t < program_.sections.size(); ++t)
            if (program_.sections[t].kind == Section::Kind::repair) lay_out_repair(int(t), s, section);
        section.body = std::move(kernel_.sections[s].body);
        kernel_.sections[s] = std::move(section);
        branch_to(s, Instruction::Kind::rare);
        return joined;
    }

    /// The repair runs ahead of the scan: it patches the only output and takes its lanes out of the rare mask.
    void lay_out_repair(int t, int s, KernelSection& section) {
        const Section repair = program_.sections[t];
        if (section.outputs.size() != 1)
            throw std::invalid_argument(program_.name + ": a repair needs a single output");
        const int outer = section_;
        section_ = s;
        for (int k = 0; k < int(program_.nodes.size()); ++k)
            if (k < int(live_.size()) && live_[k] && program_.nodes[k].section == t) lay_out_node(k);
        const Type type = program_.nodes[repair.after[0]].type;
        const int bits = whole_bits(type);
        for (int p = 0; p < whole_count(type); ++p)
            section.joins[p].after =
                emit(blend_form(type), bits,
                     {reg(section.joins[p].before, bits), any_operand(repair.after[0], Shape::whole, p, bits),
                      in_register(repair.mask, Shape::whole, p, bits)});
        const int finished = join_mask(repair.mask);
        const int differing = emit(xor_, 32, {reg(section.condition, 32), reg(finished, 32)}, -1, File::general);
        section.repaired_mask = emit(and_, 32, {reg(differing, 32), reg(section.condition, 32)}, -1, File::general);
        Instruction end;
        end.kind = Instruction::Kind::end;
        for (const Joined& j : section.joins) end.uses.push_back(j.after);
        end.uses.push_back(section.repaired_mask);
        for (const StashArray& array : section.inputs)
            end.uses.insert(end.uses.end(), array.parts.begin(), array.parts.end());
        body().push_back(end);
        section_ = outer;
    }

    void lay_out_exit(const std::vector<std::vector<int>>& outputs) {
        Instruction end;
        end.kind = Instruction::Kind::end;
        const auto pin = [&](int r, int physical) {
            kernel_.registers[r].hint = physical;
            end.uses.push_back(r);
        };
        int next = 0;
        std::int64_t stored = 0;
        const std::vector<Lane>& results = family_.results;
        if (kernel_.form == Form::memory) {
            for (std::size_t v = 0; v < results.size(); ++v)
                for (int r : outputs[v]) {
                    Memory target;
                    target.base = Memory::Base::result, target.offset = stored;
                    const int bits = kernel_.registers[r].bits;
                    emit_store(vmovups, target, bits, r, bits);
                    stored += bits / 8;
                }
            Operand pointer;
            pointer.kind = Operand::Kind::fixed, pointer.fixed = "rdi", pointer.bits = 64;
            pin(emit(mov, 64, {pointer}, -1, File::general), 0);
        } else if (width_ == 1 && results.size() == 2) {
            const bool wide = lane_size(results[0]) == 8, floating = tuvo::is_floating(results[0]);
            const int packed = emit(!floating ? vpunpckldq
                                    : wide    ? vunpcklpd
                                              : vunpcklps,
                                    128, {reg(outputs[0][0]), reg(outputs[1][0])});
            if (floating)
                pin(packed, next++);
            else
                pin(emit(vmovq, 64, {reg(packed)}, -1, File::general), 0);
        } else if (width_ == 1 && !tuvo::is_floating(results[0])) {
            const bool wide = lane_size(results[0]) == 8;
            pin(emit(wide ? vmovq : vmovd, wide ? 64 : 32, {reg(outputs[0][0])}, -1, File::general), 0);
        } else {
            for (std::size_t v = 0; v < results.size(); ++v)
                for (int r : outputs[v]) {
                    if (kernel_.registers[r].bits == 256) kernel_.returns_256 = true;
                    pin(r, next++);
                }
        }
        if (family_.out) {
            stored = 0;
            const int bytes = out_bytes(family_, width_);
            for (int r : outputs.back()) {
                Memory target;
                target.base = Memory::Base::out, target.offset = stored;
                const int bits = std::min(kernel_.registers[r].bits, 8 * (bytes - int(stored)));
                emit_store(bits == 32   ? vmovss
                           : bits == 64 ? vmovsd
                                        : vmovups,
                           target, bits, r, std::max(bits, 128));
                stored += bits / 8;
            }
        }
        body().push_back(end);
    }
};

}  // namespace

Kernel lay_out(const Program& program, const BlockLayout& blocks, const Family& family, int width, std::string symbol) {
    std::vector<Type> expected;
    for (Lane lane : family.arguments) expected.push_back(type_of(lane));
    if (program.argument_types != expected)
        throw std::invalid_argument(program.name +
                                    ": the description's arguments are not those of the operation table");
    const std::vector<Lane> lanes = family.outputs();
    for (std::size_t v = 0; v < program.outputs.size() && v < lanes.size(); ++v)
        if (program.nodes[program.outputs[v]].type != type_of(lanes[v]))
            throw std::invalid_argument(program.name + ": output " + std::to_string(v) +
                                        " has another type than the operation table says");
    return Layout(program, blocks, family, width, std::move(symbol)).run();
}

}  // namespace tuvo

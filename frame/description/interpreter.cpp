// Runs a recorded program on one lane with the processor's own scalar instructions, so that every bit, also of NaNs,
// is what a vector lane gets. Two-operand instructions are written out, because a compiler may swap the operands of an
// addition, and then another NaN survives.
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "frame/description/program.hpp"

namespace tuvo {
namespace {

float float_of(std::uint64_t v) { return __builtin_bit_cast(float, std::uint32_t(v)); }
double double_of(std::uint64_t v) { return __builtin_bit_cast(double, v); }
std::uint64_t bits_of(float v) { return __builtin_bit_cast(std::uint32_t, v); }
std::uint64_t bits_of(double v) { return __builtin_bit_cast(std::uint64_t, v); }

/// Whether both control words say so.
bool rounds_to_nearest() {
    unsigned mxcsr;
    unsigned short x87;
    __asm__("stmxcsr %0" : "=m"(mxcsr));
    __asm__("fnstcw %0" : "=m"(x87));
    return ((mxcsr & 0x6000) | (x87 & 0x0c00)) == 0;
}

#define TUVO_SCALAR(OPCODE)                             \
    if (type == Type::f32) {                            \
        float x = float_of(a), y = float_of(b);         \
        __asm__(OPCODE "ss %1, %0" : "+x"(x) : "x"(y)); \
        return bits_of(x);                              \
    } else {                                            \
        double x = double_of(a), y = double_of(b);      \
        __asm__(OPCODE "sd %1, %0" : "+x"(x) : "x"(y)); \
        return bits_of(x);                              \
    }

std::uint64_t float_arithmetic(Op op, Type type, std::uint64_t a, std::uint64_t b) {
    switch (op) {
    case Op::add: TUVO_SCALAR("add")
    case Op::sub: TUVO_SCALAR("sub")
    case Op::mul: TUVO_SCALAR("mul")
    case Op::div: TUVO_SCALAR("div")
    case Op::min: TUVO_SCALAR("min")
    case Op::max: TUVO_SCALAR("max")
    case Op::sqrt: b = a; TUVO_SCALAR("sqrt")
    case Op::reciprocal: {
        float r, x = float_of(a);
        __asm__("rcpss %1, %0" : "=x"(r) : "x"(x));
        return bits_of(r);
    }
    case Op::reciprocal_sqrt: {
        float r, x = float_of(a);
        __asm__("rsqrtss %1, %0" : "=x"(r) : "x"(x));
        return bits_of(r);
    }
    default: throw std::logic_error("not a floating-point operation");
    }
}
#undef TUVO_SCALAR

std::uint64_t round_to_integral(Type type, std::uint64_t a, std::uint64_t immediate) {
    const auto rounded = [&](auto x, auto round) {
        decltype(x) r{};
        round(r, x);
        return bits_of(r);
    };
#define TUVO_ROUND(IMM)                                                  \
    case IMM:                                                            \
        if (type == Type::f32)                                           \
            return rounded(float_of(a), [](float& r, float x) {          \
                __asm__("roundss $" #IMM ", %1, %0" : "=x"(r) : "x"(x)); \
            });                                                          \
        return rounded(double_of(a), [](double& r, double x) {           \
            __asm__("roundsd $" #IMM ", %1, %0" : "=x"(r) : "x"(x));     \
        });
    switch (immediate) {
        TUVO_ROUND(0)
        TUVO_ROUND(1)
        TUVO_ROUND(2)
        TUVO_ROUND(3)
        TUVO_ROUND(4)
        TUVO_ROUND(8)
        TUVO_ROUND(9)
        TUVO_ROUND(10)
        TUVO_ROUND(11)
        TUVO_ROUND(12)
    default: throw std::invalid_argument("unknown rounding immediate " + std::to_string(immediate));
    }
#undef TUVO_ROUND
}

bool compare(Type mask, std::uint64_t a, std::uint64_t b, std::uint64_t predicate) {
    const double x = mask == Type::m32 ? double(float_of(a)) : double_of(a);
    const double y = mask == Type::m32 ? double(float_of(b)) : double_of(b);
    const bool unordered = std::isnan(x) || std::isnan(y);
    switch (predicate) {
    case 0: return x == y;
    case 1: return x < y;
    case 2: return x <= y;
    case 3: return unordered;
    case 4: return !(x == y);
    case 5: return !(x < y);
    case 6: return !(x <= y);
    case 7: return !unordered;
    case 9: return !(x >= y);
    case 10: return !(x > y);
    case 13: return x >= y;
    case 14: return x > y;
    default: throw std::invalid_argument("unknown predicate " + std::to_string(predicate));
    }
}

std::uint64_t float_to_int(Op op, Type source, std::uint64_t a) {
    std::int32_t r;
    if (source == Type::f32) {
        const float x = float_of(a);
        if (op == Op::float_to_int)
            __asm__("cvtss2si %1, %0" : "=r"(r) : "x"(x));
        else
            __asm__("cvttss2si %1, %0" : "=r"(r) : "x"(x));
    } else {
        const double x = double_of(a);
        if (op == Op::float_to_int)
            __asm__("cvtsd2si %1, %0" : "=r"(r) : "x"(x));
        else
            __asm__("cvttsd2si %1, %0" : "=r"(r) : "x"(x));
    }
    return std::uint32_t(r);
}

std::uint64_t convert(const Node& node, Type source, std::uint64_t a) {
    switch (node.op) {
    case Op::int_to_float: {
        const auto x = std::int32_t(a);
        if (node.type == Type::f64) return bits_of(double(x));
        float r;
        __asm__("cvtsi2ss %1, %0" : "=x"(r) : "r"(x));
        return bits_of(r);
    }
    case Op::float_to_int:
    case Op::float_to_int_trunc: return float_to_int(node.op, source, a);
    case Op::widen: {
        double r;
        const float x = float_of(a);
        __asm__("cvtss2sd %1, %0" : "=x"(r) : "x"(x));
        return bits_of(r);
    }
    case Op::narrow: {
        float r;
        const double x = double_of(a);
        __asm__("cvtsd2ss %1, %0" : "=x"(r) : "x"(x));
        return bits_of(r);
    }
    case Op::zero_extend: return std::uint32_t(a);
    case Op::sign_extend: return std::uint64_t(std::int64_t(std::int32_t(a)));
    case Op::low_word: return std::uint32_t(a);
    case Op::high_word: return a >> 32;
    case Op::mask_widen: return a << 32 | std::uint32_t(a);
    case Op::mask_narrow: return std::uint32_t(a >> 32);
    default: throw std::logic_error("not a conversion");
    }
}

std::uint64_t integer_arithmetic(Op op, Type type, std::uint64_t a, std::uint64_t b) {
    const bool narrow = type_size(type) == 4;
    const auto sa = narrow ? std::int64_t(std::int32_t(a)) : std::int64_t(a);
    const auto sb = narrow ? std::int64_t(std::int32_t(b)) : std::int64_t(b);
    const unsigned size = narrow ? 32 : 64;
    std::uint64_t r = 0;
    switch (op) {
    case Op::add: r = a + b; break;
    case Op::sub: r = a - b; break;
    case Op::mul: r = a * b; break;
    case Op::min: r = sa < sb ? a : b; break;
    case Op::max: r = sa > sb ? a : b; break;
    case Op::umin: r = a < b ? a : b; break;
    case Op::umax: r = a > b ? a : b; break;
    case Op::multiply_words: r = std::uint64_t(std::uint32_t(a)) * std::uint32_t(b); break;
    case Op::bit_and: r = a & b; break;
    case Op::bit_or: r = a | b; break;
    case Op::bit_xor: r = a ^ b; break;
    case Op::and_not: r = ~a & b; break;
    case Op::shift_left:
    case Op::shift_left_each: r = b < size ? a << b : 0; break;
    case Op::shift_right:
    case Op::shift_right_each: r = b < size ? a >> b : 0; break;
    case Op::shift_right_signed: r = std::uint64_t(sa >> (b < size ? b : size - 1)); break;
    case Op::equal: r = a == b ? ~std::uint64_t(0) : 0; break;
    case Op::greater: r = sa > sb ? ~std::uint64_t(0) : 0; break;
    default: throw std::logic_error("not an integer operation");
    }
    return narrow ? std::uint32_t(r) : r;
}

std::uint64_t sign_of(Type type) { return type_size(type) == 4 ? 0x80000000u : std::uint64_t(1) << 63; }

struct Interpreter {
    const Program& program;
    std::span<const std::uint64_t> arguments;
    bool enter_sections;
    bool wide_parts;
    const Estimates& estimates;
    std::vector<std::uint64_t> values;

    std::uint64_t evaluate(const Node& node) {
        const auto arg = [&](int k) { return values[node.args[k]]; };
        const auto arg_type = [&](int k) { return program.nodes[node.args[k]].type; };
        const bool floating = node.type == Type::f32 || node.type == Type::f64;
        switch (node.op) {
        case Op::argument: return arguments[node.imm];
        case Op::constant: return node.quad ? 0 : node.imm;
        case Op::add:
        case Op::sub:
        case Op::mul:
        case Op::div:
        case Op::min:
        case Op::max:
            return floating ? float_arithmetic(node.op, node.type, arg(0), arg(1))
                            : integer_arithmetic(node.op, node.type, arg(0), arg(1));
        case Op::reciprocal:
            if (estimates.reciprocal) return bits_of(estimates.reciprocal(float_of(arg(0))));
            return float_arithmetic(node.op, node.type, arg(0), 0);
        case Op::reciprocal_sqrt:
            if (estimates.reciprocal_sqrt) return bits_of(estimates.reciprocal_sqrt(float_of(arg(0))));
            [[fallthrough]];
        case Op::sqrt: return float_arithmetic(node.op, node.type, arg(0), 0);
        case Op::round: return round_to_integral(node.type, arg(0), node.imm);
        case Op::umin:
        case Op::umax:
        case Op::multiply_words:
        case Op::bit_and:
        case Op::bit_or:
        case Op::bit_xor:
        case Op::and_not:
        case Op::shift_left_each:
        case Op::shift_right_each:
        case Op::equal:
        case Op::greater: return integer_arithmetic(node.op, node.type, arg(0), arg(1));
        case Op::shift_left:
        case Op::shift_right:
        case Op::shift_right_signed: return integer_arithmetic(node.op, node.type, arg(0), node.imm);
        case Op::compare:
            return compare(node.type, arg(0), arg(1), node.imm) ? integer_arithmetic(Op::equal, node.type, 0, 0) : 0;
        case Op::select: return arg(0) & sign_of(node.type) ? arg(1) : arg(2);
        case Op::bitcast: return arg(0);
        case Op::join_words: return arg(0) << 32 | std::uint32_t(arg(1));
        case Op::lookup4: return program.quads[program.nodes[node.args[0]].imm][arg(1) & 3];
        case Op::gather: return arg(0);
        case Op::element: {
            const Gather& gather = program.gathers[program.nodes[node.args[0]].imm];
            const RawTable& data = program.tables[gather.table].data;
            const auto offset = std::int64_t(std::int32_t(arg(0)));
            if (offset < gather.low || offset > gather.high || offset % lane_size(data.lane) != 0)
                throw std::logic_error(program.name + ": index " + std::to_string(offset) + " into table " +
                                       program.tables[gather.table].name + " is outside its stated range");
            return data.patterns[(offset - gather.bias) / lane_size(data.lane) + std::int64_t(node.imm)];
        }
        case Op::join: return values[node.args[0]];  // run() blends the section's value in
        case Op::by_part_size: return arg(wide_parts ? 1 : 0);
        default: return convert(node, arg_type(0), arg(0));
        }
    }

    LaneResult run() {
        values.assign(program.nodes.size(), 0);
        bool rare = program.always_rare || (program.nearest_only && !rounds_to_nearest());
        // Whether a section runs on this lane, and whether the lane is one of those that asked for it.
        const auto asked = [&](int s) {
            const Section& section = program.sections[s];
            return (values[section.mask] & sign_of(program.nodes[section.mask].type)) != 0;
        };
        const auto runs = [&](int s, auto&& self) -> bool {
            if (s == 0 || program.sections[s].kind == Section::Kind::repair) return true;
            return self(program.sections[s].parent, self) && (enter_sections || asked(s));
        };
        const auto asked_throughout = [&](int s) {
            for (; s != 0; s = program.sections[s].parent)
                if (program.sections[s].kind == Section::Kind::any_lane && !asked(s)) return false;
            return true;
        };
        std::vector<bool> rare_done(program.rare.size());
        const auto collect_rare = [&](int up_to) {
            for (std::size_t k = 0; k < program.rare.size(); ++k) {
                const RareTest& test = program.rare[k];
                if (rare_done[k] || test.mask > up_to || !runs(test.section, runs) || !asked_throughout(test.section))
                    continue;
                rare_done[k] = true;
                rare |= (values[test.mask] & sign_of(program.nodes[test.mask].type)) != 0;
            }
        };
        for (std::size_t k = 0; k < program.nodes.size(); ++k) {
            const Node& node = program.nodes[k];
            if (!runs(node.section, runs)) continue;
            values[k] = evaluate(node);
            if (node.op == Op::join) {
                const int s = int(node.imm);
                const Section& section = program.sections[s];
                if (section.kind == Section::Kind::any_lane) {
                    if (asked(s)) values[k] = values[node.args[1]];
                } else {
                    collect_rare(int(k));
                    if (asked(s)) {
                        if (!rare)
                            throw std::logic_error(program.name + ": the repair finishes a lane that is not rare");
                        values[k] = values[node.args[1]];
                        rare = false;
                    }
                }
            }
            for (const Claim& claim : program.claims) {
                const auto value = std::int64_t(std::int32_t(values[k]));
                if (claim.node == int(k) && (value < claim.low || value > claim.high))
                    throw std::logic_error(program.name + ": claimed range [" + std::to_string(claim.low) + ", " +
                                           std::to_string(claim.high) + "] does not hold: " + std::to_string(value));
            }
        }
        collect_rare(int(program.nodes.size()));
        LaneResult result;
        for (int output : program.outputs) result.outputs.push_back(values[output]);
        result.rare = rare;
        return result;
    }
};

}  // namespace

LaneResult interpret(const Program& program, std::span<const std::uint64_t> arguments, bool enter_sections,
                     bool wide_parts, const Estimates& estimates) {
    return Interpreter{program, arguments, enter_sections, wide_parts, estimates, {}}.run();
}

}  // namespace tuvo

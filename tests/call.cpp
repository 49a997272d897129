#include "tests/call.hpp"

#include <cpuid.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

extern "C" void tuvo_probe(const void* kernel, const tuvo::MachineState* before, tuvo::MachineState* after, void* stack,
                           std::size_t misalignment);

namespace tuvo {

namespace {

static_assert(offsetof(MachineState, vectors) == 128);
static_assert(offsetof(MachineState, mxcsr) == 640);
static_assert(offsetof(MachineState, x87_control) == 644);
static_assert(offsetof(MachineState, x87_status) == 646);
static_assert(offsetof(MachineState, x87_tags) == 648);
static_assert(offsetof(MachineState, flags) == 656);
static_assert(offsetof(MachineState, expected_rsp) == 664);

enum Register { rax, rbx, rcx, rdx, rsi, rdi, rbp, rsp, r8, r9, r10, r11, r12, r13, r14, r15 };
constexpr std::array register_names{"rax", "rbx", "rcx", "rdx", "rsi", "rdi", "rbp", "rsp",
                                    "r8",  "r9",  "r10", "r11", "r12", "r13", "r14", "r15"};

constexpr std::uint32_t mxcsr_flags = 0x3f;
constexpr std::uint64_t direction_flag = 1u << 10;

/// Registers before any argument is placed: each byte differs from its neighbours and from other registers.
MachineState initial_state() {
    MachineState state{};
    for (unsigned number = 0; number < 16; ++number) {
        state.general[number] = 0x9e3779b97f4a7c15u * (number + 1);
        for (unsigned byte = 0; byte < 32; ++byte)
            state.vectors[number][byte] = static_cast<std::uint8_t>(0x5b * (number + 1) + 0x1d * byte);
    }
    return state;
}

// Copies of a fixed size, which the compiler turns into single moves: these two dominate long runs.

void store_lane(std::uint8_t* bytes, std::uint64_t pattern, int size) {
    if (size == 8)
        std::memcpy(bytes, &pattern, 8);
    else
        std::memcpy(bytes, &pattern, 4);
}

std::uint64_t load_lane(const std::uint8_t* bytes, int size) {
    std::uint64_t pattern = 0;
    if (size == 8)
        std::memcpy(&pattern, bytes, 8);
    else
        std::memcpy(&pattern, bytes, 4);
    return pattern;
}

/// Bytes of a whole value in memory.
std::size_t value_bytes(Lane lane, int width) {
    return static_cast<std::size_t>(physical_lanes(width) * lane_size(lane));
}

bool all_equal(const std::uint8_t* bytes, std::size_t count, std::uint8_t filler) {
    // Bytes that all equal their neighbour equal the first one; comparing blocks is faster than a loop over bytes.
    return count == 0 || (bytes[0] == filler && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

bool in_general_register(Lane lane, int width) { return width == 1 && !is_floating(lane); }

}  // namespace

bool emulated() {
    unsigned eax, name[3];
    __cpuid(0x40000000, eax, name[0], name[1], name[2]);
    return std::memcmp(name, "TCGTCGTCGTCG", sizeof name) == 0;
}

std::uint64_t ignored_pattern(Ignored ignored, Lane lane) {
    bool wide = lane_size(lane) == 8;
    switch (ignored) {
    case Ignored::zero: return 0;
    case Ignored::signalling_nan: return wide ? 0x7ff4000000000001u : 0x7fa00001u;
    case Ignored::infinity: return wide ? 0x7ff0000000000000u : 0x7f800000u;
    case Ignored::negative: return wide ? 0xbff8000000000000u : 0xbfc00000u;  // -1.5
    case Ignored::huge: return wide ? 0x7fe0000000000001u : 0x7f000001u;
    case Ignored::subnormal: return 1;
    case Ignored::all_ones: return wide ? ~std::uint64_t{0} : 0xffffffffu;
    }
    throw std::invalid_argument("unknown content of ignored lanes");
}

Caller::Caller(const void* kernel, const Family& family, int width)
    : kernel_(kernel),
      family_(family),
      width_(width),
      outputs_(family.outputs()),
      memory_(call_form(family, width) == Form::memory),
      packed_(width == 1 && family.results.size() == 2),
      returns_wide_(false),
      preserved_(preserved(family, width)),
      before_(initial_state()),
      after_{} {
    if (!kernel) throw std::invalid_argument("no kernel for " + short_name(family, width));
    for (Lane lane : family.results) {
        if (memory_)
            buffer_.used += value_bytes(lane, width);
        else if (part_bits(lane, width).front() == 256)
            returns_wide_ = true;
    }
    out_target_.used = static_cast<std::size_t>(out_bytes(family, width));
    for (Lane lane : outputs_)
        result_.outputs.emplace_back(value_bytes(lane, width) / static_cast<std::size_t>(lane_size(lane)));
}

const CallResult& Caller::operator()(std::span<const std::vector<std::uint64_t>> arguments,
                                     const CallOptions& options) {
    auto in_range = [](int misalignment) { return misalignment >= 0 && misalignment < 64; };
    if (!in_range(options.stack_misalignment) || !in_range(options.pointer_misalignment))
        throw std::invalid_argument("misalignment out of range");
    if (arguments.size() != family_.arguments.size()) throw std::invalid_argument("wrong number of arguments");
    for (const std::vector<std::uint64_t>& argument : arguments)
        if (argument.size() < static_cast<std::size_t>(width_)) throw std::invalid_argument("too few lanes");

    constexpr std::uint8_t filler = 0xa5;
    run(arguments, options, filler);
    if (buffer_.used + out_target_.used == 0) return result_;

    // A lane that still holds the filler was left out, unless the filler happens to be its value: a second call over
    // another filler tells.
    std::vector<std::string> untouched = untouched_lanes(filler);
    if (untouched.empty()) return result_;
    constexpr std::uint8_t other_filler = 0x5a;
    run(arguments, options, other_filler);
    for (const std::string& lane : untouched_lanes(other_filler))
        if (std::find(untouched.begin(), untouched.end(), lane) != untouched.end()) violation(lane + " is not written");
    return result_;
}

void Caller::run(std::span<const std::vector<std::uint64_t>> arguments, const CallOptions& options,
                 std::uint8_t filler) {
    result_.violations.clear();
    stack_.fill(filler);
    for (Target* target : {&buffer_, &out_target_}) {
        if (target->used == 0) continue;
        target->bytes.fill(filler);
        target->start = target->bytes.data() + guard_bytes + options.pointer_misalignment;
    }
    before_.mxcsr = options.mxcsr;
    before_.x87_control = options.x87_control;
    place_arguments(arguments, options.ignored);
    tuvo_probe(kernel_, &before_, &after_, stack_.data(), static_cast<std::size_t>(options.stack_misalignment));
    result_.exception_flags = after_.mxcsr & mxcsr_flags;
    read_outputs();
    check_registers();
    check_memory(filler);
}

void Caller::place_arguments(std::span<const std::vector<std::uint64_t>> arguments, Ignored ignored) {
    constexpr std::array integer_registers{rdi, rsi};
    std::size_t next_integer = 0;
    std::size_t next_vector = 0;
    stack_used_ = 0;
    if (memory_) before_.general[integer_registers[next_integer++]] = reinterpret_cast<std::uintptr_t>(buffer_.start);

    for (std::size_t index = 0; index < arguments.size(); ++index) {
        Lane lane = family_.arguments[index];
        int size = lane_size(lane);
        if (in_general_register(lane, width_)) {
            std::uint64_t value = arguments[index][0];
            // The upper half of a register that passes 32 bits is undefined.
            if (size == 4) value = (value & 0xffffffffu) | 0xfff0badc00000000u;
            before_.general[integer_registers[next_integer++]] = value;
            continue;
        }
        std::size_t bytes = value_bytes(lane, width_);
        std::uint8_t* place;
        if (memory_) {
            place = stack_.data() + stack_used_;
            stack_used_ += bytes;
        } else {
            place = before_.vectors[next_vector];
            bytes = (bytes + 31) / 32 * 32;
            next_vector += bytes / 32;
        }
        int lanes = static_cast<int>(bytes) / size;
        for (int number = 0; number < width_; ++number)
            store_lane(place + number * size, arguments[index][static_cast<std::size_t>(number)], size);
        std::uint64_t pattern = ignored_pattern(ignored, lane);
        for (int number = width_; number < lanes; ++number) store_lane(place + number * size, pattern, size);
    }

    if (family_.out)
        before_.general[integer_registers[next_integer]] = reinterpret_cast<std::uintptr_t>(out_target_.start);
}

void Caller::read_outputs() {
    std::size_t results = family_.results.size();
    const std::uint8_t* place = memory_ ? buffer_.start : after_.vectors[0];
    for (std::size_t index = 0; index < outputs_.size(); ++index) {
        Lane lane = outputs_[index];
        int size = lane_size(lane);
        if (index == results) place = out_target_.start;
        std::vector<std::uint64_t>& patterns = result_.outputs[index];

        if (index < results && in_general_register(lane, width_)) {
            std::uint64_t value = after_.general[rax] >> (packed_ && index == 1 ? 32 : 0);
            patterns[0] = size == 4 ? value & 0xffffffffu : value;
            continue;
        }
        for (std::size_t number = 0; number < patterns.size(); ++number)
            patterns[number] = load_lane(place + number * static_cast<std::size_t>(size), size);
        std::size_t bytes = value_bytes(lane, width_);
        // In registers a value begins in a register of its own, but for the second of a packed pair.
        place += memory_ || packed_ ? bytes : (bytes + 31) / 32 * 32;
    }
}

void Caller::check_registers() {
    for (Register number : {rbx, rbp, r12, r13, r14, r15})
        if (after_.general[number] != before_.general[number])
            violation(std::string(register_names[number]) + " is not preserved");
    if (after_.general[rsp] != after_.expected_rsp) violation("rsp is not preserved");
    if (preserved_ != Preserved::nothing_more)
        for (Register number : {rsi, rdi})
            if (after_.general[number] != before_.general[number])
                violation(std::string(register_names[number]) + " is not preserved");
    if (preserved_ == Preserved::upper_vectors_and_pointers)
        for (int number = 8; number < 16; ++number)
            if (std::memcmp(after_.vectors[number], before_.vectors[number], 32) != 0)
                violation("ymm" + std::to_string(number) + " is not preserved");

    if (memory_ && after_.general[rax] != before_.general[rdi]) violation("rax is not the result pointer");

    // Upper halves that changed to something other than zero come of 256-bit work. A kernel that does not return any
    // has to clear them, or else the caller's SSE code is slowed down. Registers that are preserved are exempt.
    if (!returns_wide_) {
        int end = preserved_ == Preserved::upper_vectors_and_pointers ? 8 : 16;
        for (int number = 0; number < end; ++number) {
            const std::uint8_t* upper = after_.vectors[number] + 16;
            if (!all_equal(upper, 16, 0) && std::memcmp(upper, before_.vectors[number] + 16, 16) != 0)
                violation("upper half of ymm" + std::to_string(number) + " is left dirty");
        }
    }

    if ((after_.mxcsr ^ before_.mxcsr) & ~mxcsr_flags) violation("control bits of MXCSR are changed");
    if (after_.x87_control != before_.x87_control) violation("x87 control word is changed");
    if (after_.x87_tags != 0xffff) violation("x87 stack is not empty");
    if (after_.flags & direction_flag) violation("direction flag is set");
}

void Caller::check_memory(std::uint8_t filler) {
    auto check = [&](const Target& target, const char* name) {
        if (target.used == 0) return;
        const std::uint8_t* first = target.bytes.data();
        const std::uint8_t* end = target.start + target.used;
        if (!all_equal(first, static_cast<std::size_t>(target.start - first), filler))
            violation(std::string("bytes before the ") + name + " are written");
        if (!all_equal(end, static_cast<std::size_t>(first + target.bytes.size() - end), filler))
            violation(std::string("bytes behind the ") + name + " are written");
    };
    check(buffer_, "result buffer");
    check(out_target_, "out-target");
    // The arguments on the stack belong to the kernel, what lies above them to the caller.
    if (!all_equal(stack_.data() + stack_used_, stack_bytes - stack_used_, filler))
        violation("the caller's stack is written");
}

std::vector<std::string> Caller::untouched_lanes(std::uint8_t filler) const {
    std::vector<std::string> found;
    auto scan = [&](const std::uint8_t* place, Lane lane, const std::string& name) {
        std::size_t size = static_cast<std::size_t>(lane_size(lane));
        for (int number = 0; number < physical_lanes(width_); ++number, place += size)
            if (all_equal(place, size, filler)) found.push_back("lane " + std::to_string(number) + " of " + name);
    };
    if (memory_) {
        const std::uint8_t* place = buffer_.start;
        for (std::size_t index = 0; index < family_.results.size(); ++index) {
            scan(place, family_.results[index], "result " + std::to_string(index));
            place += value_bytes(family_.results[index], width_);
        }
    }
    if (family_.out) scan(out_target_.start, *family_.out, "the out-target");
    return found;
}

CallResult call(const void* kernel, const Family& family, int width,
                std::span<const std::vector<std::uint64_t>> arguments, const CallOptions& options) {
    return Caller(kernel, family, width)(arguments, options);
}

CallResult call_all(const void* kernel, const Family& family, int width,
                    std::span<const std::vector<std::uint64_t>> arguments, const CallOptions& options) {
    Caller caller(kernel, family, width);
    std::size_t total = arguments.empty() ? 0 : arguments[0].size();
    for (const std::vector<std::uint64_t>& argument : arguments)
        if (argument.size() != total) throw std::invalid_argument("arguments differ in their number of lanes");

    CallResult all;
    all.outputs.resize(family.outputs().size());
    for (std::vector<std::uint64_t>& output : all.outputs) output.reserve(total);

    std::size_t step = static_cast<std::size_t>(width);
    std::vector<std::vector<std::uint64_t>> lanes(arguments.size(), std::vector<std::uint64_t>(step));
    for (std::size_t first = 0; first < total; first += step) {
        std::size_t count = std::min(step, total - first);
        for (std::size_t index = 0; index < arguments.size(); ++index)
            for (std::size_t number = 0; number < step; ++number)
                lanes[index][number] = arguments[index][first + std::min(number, count - 1)];
        const CallResult& result = caller(lanes, options);
        for (std::size_t index = 0; index < all.outputs.size(); ++index)
            all.outputs[index].insert(all.outputs[index].end(), result.outputs[index].begin(),
                                      result.outputs[index].begin() + static_cast<std::ptrdiff_t>(count));
        all.exception_flags |= result.exception_flags;
        if (all.violations.empty()) all.violations = result.violations;
    }
    return all;
}

}  // namespace tuvo

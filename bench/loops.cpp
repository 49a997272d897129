// Writes the measuring loops, two for each shape of a call, as assembly text to the standard output.
//
// A compiler knows neither the register contract nor results in several registers, and its own spills around the call
// would be measured too. Each loop is
//
//     void loop(const void* kernel, const void* input, void* output, size_t calls, size_t passes)
//
// with the records of `calls` calls one behind the other in `input` and `output`, run over `passes` times. The
// throughput loop's calls are independent. In the latency loop each argument is or-ed with the last result and-ed with
// zero: two cycles on the chain, the same for every kernel.
#include <iostream>
#include <map>

#include "bench/shapes.hpp"

namespace {

using namespace tuvo;

constexpr const char* general_arguments[][2] = {{"edi", "rdi"}, {"esi", "rsi"}};

std::string at(const char* base, int offset) { return std::string("[") + base + " + " + std::to_string(offset) + "]"; }
std::string vector(int bytes, int number) { return (bytes == 32 ? "ymm" : "xmm") + std::to_string(number); }
const char* move(int bytes) { return bytes == 4 ? "vmovss" : bytes == 8 ? "vmovsd" : "vmovups"; }
const char* pointer(int bytes) {
    return bytes == 4 ? "dword ptr " : bytes == 8 ? "qword ptr " : bytes == 16 ? "xmmword ptr " : "ymmword ptr ";
}

/// A line of assembly text.
template <typename... Text>
void line(const Text&... text) {
    std::cout << "    ";
    (std::cout << ... << text) << "\n";
}

int widest(const Shape& shape) {
    int bytes = 16;
    for (const auto* parts : {&shape.arguments, &shape.results})
        for (const Shape::Part& part : *parts) bytes = std::max(bytes, part.bytes);
    return bytes;
}

/// Loads a call's arguments from the record at rbx; or-ed with ymm4 if `dependent`.
void load_arguments(const Shape& shape, bool dependent) {
    bool vectors = false;
    int next_vector = 0, next_general = 0;
    for (const Shape::Part& part : shape.arguments) vectors |= !part.general;
    if (dependent && !vectors) line("vmovq rax, xmm4");
    for (const Shape::Part& part : shape.arguments) {
        const std::string source = at("rbx", part.offset);
        if (part.general) {
            const char* target = general_arguments[next_general++][part.bytes == 8];
            line("mov ", target, ", ", source);
            if (dependent && !vectors) line("or ", target, ", ", part.bytes == 8 ? "rax" : "eax");
            continue;
        }
        const int number = shape.kind == Shape::Kind::memory ? 0 : next_vector++;
        const int bytes = dependent ? std::max(part.bytes, 16) : part.bytes;
        if (dependent)
            line("vorps ", vector(bytes, number), ", ", vector(bytes, 4), ", ", pointer(bytes), source);
        else
            line(move(bytes), " ", vector(bytes, number), ", ", pointer(bytes), source);
        if (shape.kind == Shape::Kind::memory)
            line("vmovups ", pointer(part.bytes), at("rsp", part.offset), ", ", vector(part.bytes, number));
    }
    if (shape.kind != Shape::Kind::registers) line("mov rdi, rbp");
    if (shape.out_pointer)
        line("lea ", shape.kind == Shape::Kind::memory ? "rsi, " : "rdi, ", at("rbp", shape.out_offset));
}

void store_results(const Shape& shape) {
    int number = 0;
    if (shape.kind != Shape::Kind::registers) return;
    for (const Shape::Part& part : shape.results) {
        if (part.general)
            line("mov ", at("rbp", part.offset), ", ", part.bytes == 4 ? "eax" : "rax");
        else
            line(move(part.bytes), " ", pointer(part.bytes), at("rbp", part.offset), ", ",
                 vector(part.bytes, number++));
    }
}

/// ymm4 = 0, but not before all results are there.
void depend_on_results(const Shape& shape) {
    const int wide = widest(shape);
    int number = 0;
    for (const Shape::Part& part : shape.results) {
        const bool first = number == 0;
        if (shape.kind != Shape::Kind::registers) {
            const std::string sum = vector(part.bytes, 4), source = pointer(part.bytes) + at("rbp", part.offset);
            first ? line(move(part.bytes), " ", sum, ", ", source) : line("vorps ", sum, ", ", sum, ", ", source);
        } else if (part.general) {
            line("vmovq xmm4, rax");
        } else if (first) {
            if (shape.results.size() > 1) line("vmovaps ", vector(wide, 4), ", ", vector(wide, 0));
        } else {
            line("vorps ", vector(wide, 4), ", ", vector(wide, 4), ", ", vector(wide, number));
        }
        ++number;
    }
    const bool direct = shape.kind == Shape::Kind::registers && shape.results.size() == 1 && !shape.results[0].general;
    line("vandps ", vector(wide, 4), ", ", vector(wide, direct ? 0 : 4), ", ", pointer(wide), "[rip + zeros]");
}

void write_loop(const Shape& shape, bool latency) {
    const std::string name = std::string(latency ? "latency_" : "throughput_") + shape.key();
    std::cout << "\n    .p2align 5\n" << name << ":\n";
    for (const char* saved : {"rbx", "rbp", "r12", "r13", "r14", "r15", "rsi", "rdx", "rcx", "r8"})
        line("push ", saved);
    line("mov r12, rdi");
    line("mov r13, rsp");  // the operands: [r13 + 24] input, [r13 + 16] output, [r13 + 8] calls, [r13] passes
    line("and rsp, -64");
    if (shape.kind == Shape::Kind::memory) line("sub rsp, ", (shape.input_bytes + 63) / 64 * 64);
    if (latency) line("vxorps xmm4, xmm4, xmm4");
    line("vzeroupper");
    std::cout << "1:\n";
    line("mov rbx, [r13 + 24]");
    line("mov rbp, [r13 + 16]");
    line("mov r14, [r13 + 8]");
    line(".p2align 5");
    std::cout << "2:\n";
    load_arguments(shape, latency);
    line("call r12");
    latency ? depend_on_results(shape) : store_results(shape);
    line("add rbx, ", shape.input_bytes);
    line("add rbp, ", shape.output_bytes);
    line("dec r14");
    line("jne 2b");
    line("dec qword ptr [r13]");
    line("jne 1b");
    line("vzeroupper");
    line("lea rsp, [r13 + 32]");
    for (const char* saved : {"r15", "r14", "r13", "r12", "rbp", "rbx"}) line("pop ", saved);
    line("ret");
}

}  // namespace

int main() {
    std::map<std::string, Shape> shapes;
    for (const Family& family : families()) {
        for (int width : widths) {
            const Shape shape = shape_of(family, width), hidden = hidden_shape_of(family, width);
            shapes.emplace(shape.key(), shape);
            if (hidden.results.back().bytes >= 16) shapes.emplace(hidden.key(), hidden);
        }
    }
    std::cout << "    .intel_syntax noprefix\n    .text\n    .globl tuvo_empty_call\ntuvo_empty_call:\n    ret\n";
    for (const auto& [key, shape] : shapes) {
        write_loop(shape, false);
        write_loop(shape, true);
    }
    std::cout << "\n    .section .rodata\n    .balign 32\nzeros:\n    .zero 32\n";
    int number = 0;
    for (const auto& [key, shape] : shapes) std::cout << "name" << number++ << ":\n    .asciz \"" << key << "\"\n";
    std::cout << "\n    .section .data.rel.ro, \"aw\"\n    .balign 8\n    .globl tuvo_loops\ntuvo_loops:\n";
    number = 0;
    for (const auto& [key, shape] : shapes)
        std::cout << "    .quad name" << number++ << ", throughput_" << key << ", latency_" << key << "\n";
    std::cout << "    .quad 0\n    .section .note.GNU-stack,\"\",@progbits\n";
}

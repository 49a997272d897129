// The harness itself under test: kernels that keep the call contract, and kernels that break it in one way each.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tests/call.hpp"

// Sound kernels, named after the call whose shape they have. Copies and integer sums stand for arithmetic.
asm(R"(
        .text
good_move8:                             # logf8
        ret
good_swap8:                             # atan2f8: the second argument, and ymm8 restored
        vmovups %ymm8, -40(%rsp)
        vmovaps %ymm1, %ymm8
        vmovaps %ymm8, %ymm0
        vmovups -40(%rsp), %ymm8
        ret
good_int_part4:                         # ldexp4: the int lanes, widened to 64 bits
        vpmovzxdq %xmm1, %xmm2
        vpsrldq $8, %xmm1, %xmm1
        vpmovzxdq %xmm1, %xmm1
        vinsertf128 $1, %xmm1, %ymm2, %ymm0
        ret
good_last16:                            # pownf16: the int lanes
        vmovaps %ymm2, %ymm0
        vmovaps %ymm3, %ymm1
        ret
good_ldexp1:                            # ldexpf1: float in xmm0, int in edi
        vmovd   %xmm0, %eax
        addl    %edi, %eax
        vmovd   %eax, %xmm0
        ret
good_divide1:                           # idivrem1: the two arguments as results
        movl    %edi, %eax
        movl    %esi, %ecx
        shlq    $32, %rcx
        orq     %rcx, %rax
        vpcmpeqd %xmm8, %xmm8, %xmm8    # not preserved here
        ret
good_long1:                             # cvti64tofprte1
        vmovq   %rdi, %xmm0
        ret
good_pair1:                             # sincosregf1: x and its bitwise complement
        vpcmpeqd %xmm1, %xmm1, %xmm1
        vpxor   %xmm0, %xmm1, %xmm1
        vunpcklps %xmm1, %xmm0, %xmm0
        ret
good_pair2:                             # sincosregf2: x and zero, in two registers
        vxorps  %xmm1, %xmm1, %xmm1
        ret
good_pair16:                            # sincosregf16: x and zero
        vxorps  %xmm2, %xmm2, %xmm2
        vxorps  %xmm3, %xmm3, %xmm3
        ret
good_read_modes1:                       # idivrem1: MXCSR and the x87 control word
        stmxcsr -8(%rsp)
        fnstcw  -4(%rsp)
        movl    -8(%rsp), %eax
        movzwl  -4(%rsp), %ecx
        shlq    $32, %rcx
        orq     %rcx, %rax
        ret
good_out3:                              # frexp3: the low words of the lanes through the pointer
        vextractf128 $1, %ymm0, %xmm1
        vshufps $0x88, %xmm1, %xmm0, %xmm1
        vmovdqu %xmm1, (%rdi)
        ret
good_memory16:                          # remquo16: y, and the first half of x as quotient
        movq    %rdi, %rax
        .set    at, 0
        .rept   4
        vmovups 136 + at(%rsp), %ymm8
        vmovups %ymm8, at(%rdi)
        .set    at, at + 32
        .endr
        vmovups 8(%rsp), %ymm0
        vmovups %ymm0, (%rsi)
        vmovups 40(%rsp), %ymm0
        vmovups %ymm0, 32(%rsi)
        xorl    %esi, %esi
        vzeroupper
        ret
good_memory_pair16:                     # sincosreg16: x twice
        movq    %rdi, %rax
        .set    at, 0
        .rept   4
        vmovups 8 + at(%rsp), %ymm0
        vmovups %ymm0, at(%rdi)
        vmovups %ymm0, 128 + at(%rdi)
        .set    at, at + 32
        .endr
        vzeroupper
        ret

bad_rbx:        incq    %rbx
                ret
bad_rbp:        xorl    %ebp, %ebp
                ret
bad_r15:        notq    %r15
                ret
bad_rsi:        incq    %rsi
                ret
bad_rdi:        movq    %rsi, %rdi
                ret
bad_rsp:        ret     $16
bad_ymm8:       vmovaps %xmm8, %xmm8
                ret
bad_ymm15:      vpcmpeqd %xmm15, %xmm15, %xmm15
                ret
bad_mxcsr:      movl    $0x3f80, -4(%rsp)
                ldmxcsr -4(%rsp)
                ret
bad_x87_control: movw   $0x0f7f, -2(%rsp)
                fldcw   -2(%rsp)
                ret
bad_x87_stack:  fld1
                ret
bad_direction:  std
                ret
bad_dirty:      vinsertf128 $1, %xmm0, %ymm0, %ymm5
                ret
bad_stack:      movl    $0, 8(%rsp)
                ret
bad_far_stack:  movb    $0, 455(%rsp)
                ret
good_store4:    vmovups %xmm0, (%rdi)
                ret
bad_behind:     vmovups %xmm0, (%rdi)
                movb    $0, 16(%rdi)
                ret
bad_before:     vmovups %xmm0, (%rdi)
                movb    $0, -1(%rdi)
                ret
bad_short:      vmovq   %xmm0, (%rdi)
                vpextrd $2, %xmm0, 8(%rdi)
                ret
good_fma8:      call    copy_second     # fma8: the second argument
                movq    %rdi, %rax
                ret
bad_rax:        call    copy_second
                xorl    %eax, %eax
                ret
copy_second:    vmovups 80(%rsp), %ymm0
                vmovups %ymm0, (%rdi)
                vmovups 112(%rsp), %ymm0
                vmovups %ymm0, 32(%rdi)
                vzeroupper
                ret
bad_buffer:     call    copy_second
                movq    %rdi, %rax
                movq    %rax, 64(%rdi)
                ret
bad_buffer_short: movq  %rdi, %rax
                vmovups 72(%rsp), %ymm0
                vmovups %ymm0, (%rdi)
                vzeroupper
                ret
bad_stack_of_arguments:
                call    copy_second
                movq    %rdi, %rax
                movq    %rax, 200(%rsp)
                ret
)");

extern "C" {
void good_move8(), good_swap8(), good_int_part4(), good_last16(), good_ldexp1(), good_divide1(), good_long1(),
    good_pair1(), good_pair2(), good_pair16(), good_read_modes1(), good_out3(), good_memory16(), good_memory_pair16(),
    bad_rbx(), bad_rbp(), bad_r15(), bad_rsi(), bad_rdi(), bad_rsp(), bad_ymm8(), bad_ymm15(), bad_mxcsr(),
    bad_x87_control(), bad_x87_stack(), bad_direction(), bad_dirty(), bad_stack(), bad_far_stack(), good_store4(),
    bad_behind(), bad_before(), bad_short(), good_fma8(), bad_rax(), bad_buffer(), bad_buffer_short(),
    bad_stack_of_arguments();
}

namespace tuvo {
namespace {

using Kernel = void (*)();
using Lanes = std::vector<std::uint64_t>;

const void* address(Kernel kernel) { return reinterpret_cast<const void*>(kernel); }

const Family& family_named(std::string_view name) {
    const Family* family = find_family(name);
    if (!family) throw std::runtime_error("no family " + std::string(name));
    return *family;
}

/// Distinct lanes for each argument, as integers of both sizes.
std::vector<Lanes> distinct_lanes(const Family& family, int width) {
    std::vector<Lanes> arguments;
    for (Lane lane : family.arguments) {
        std::uint64_t scale = lane_size(lane) == 8 ? 0x0101010100000000u : 0x01010100u;
        Lanes lanes;
        for (int number = 0; number < width; ++number)
            lanes.push_back(scale * (arguments.size() * 2 + 1) + static_cast<unsigned>(number) + 1);
        arguments.push_back(lanes);
    }
    return arguments;
}

CallResult call_distinct(Kernel kernel, const char* name, int width, const CallOptions& options = {}) {
    const Family& family = family_named(name);
    return call(address(kernel), family, width, distinct_lanes(family, width), options);
}

Lanes first_lanes(const Lanes& lanes, int width) { return {lanes.begin(), lanes.begin() + width}; }

TEST(Probe, SoundKernelsGiveTheirValuesAtAnyAlignment) {
    auto same = [](const std::vector<Lanes>& x, int index) { return x[static_cast<std::size_t>(index)]; };
    auto first = [=](const std::vector<Lanes>& x) { return same(x, 0); };
    auto second = [=](const std::vector<Lanes>& x) { return same(x, 1); };
    auto low_words = [](const std::vector<Lanes>& x) {
        Lanes words;
        for (std::uint64_t lane : x[0]) words.push_back(lane & 0xffffffffu);
        return words;
    };
    auto sum = [](const std::vector<Lanes>& x) { return Lanes{(x[0][0] + x[1][0]) & 0xffffffffu}; };
    auto complement = [](const std::vector<Lanes>& x) { return Lanes{~x[0][0] & 0xffffffffu}; };
    auto zeros = [](const std::vector<Lanes>& x) { return Lanes(x[0].size(), 0); };
    auto int_pairs = [](const std::vector<Lanes>& x) {
        // The first eight double lanes, each read as two ints.
        Lanes halves;
        for (std::size_t number = 0; number < 8; ++number) {
            halves.push_back(x[0][number] & 0xffffffffu);
            halves.push_back(x[0][number] >> 32);
        }
        return halves;
    };

    struct Case {
        Kernel kernel;
        const char* family;
        int width;
        std::vector<std::function<Lanes(const std::vector<Lanes>&)>> outputs;
    };
    const Case cases[] = {
        {good_move8, "logf", 8, {first}},
        {good_swap8, "atan2f", 8, {second}},
        {good_int_part4, "ldexp", 4, {second}},
        {good_int_part4, "ldexp", 3, {second}},
        {good_last16, "pownf", 16, {second}},
        {good_ldexp1, "ldexpf", 1, {sum}},
        {good_divide1, "idivrem", 1, {first, second}},
        {good_long1, "cvti64tofprte", 1, {first}},
        {good_pair1, "sincosregf", 1, {first, complement}},
        {good_pair2, "sincosregf", 2, {first, zeros}},
        {good_pair16, "sincosregf", 16, {first, zeros}},
        {good_out3, "frexp", 3, {first, low_words}},
        {good_store4, "sincosf", 4, {first, first}},
        {good_store4, "sincosf", 3, {first, first}},
        {good_fma8, "fma", 8, {second}},
        {good_memory16, "remquo", 16, {second, int_pairs}},
        {good_memory_pair16, "sincosreg", 16, {first, first}},
    };
    for (const Case& sound : cases) {
        const Family& family = family_named(sound.family);
        const std::vector<Lanes> arguments = distinct_lanes(family, sound.width);
        Caller caller(address(sound.kernel), family, sound.width);
        for (int misalignment = 0; misalignment < 64; ++misalignment) {
            CallOptions options;
            options.stack_misalignment = misalignment;
            options.pointer_misalignment = 63 - misalignment;
            const CallResult& result = caller(arguments, options);
            EXPECT_EQ(result.violations, std::vector<std::string>{}) << sound.family;
            ASSERT_EQ(result.outputs.size(), sound.outputs.size());
            for (std::size_t index = 0; index < sound.outputs.size(); ++index)
                EXPECT_EQ(first_lanes(result.outputs[index], sound.width), sound.outputs[index](arguments))
                    << sound.family << " output " << index << " at " << misalignment;
        }
    }
}

TEST(Probe, EachBreachIsReportedAlone) {
    struct Case {
        Kernel kernel;
        const char* family;
        int width;
        const char* report;
    };
    const Case cases[] = {
        {bad_rbx, "logf", 4, "rbx is not preserved"},
        {bad_rbp, "logf", 4, "rbp is not preserved"},
        {bad_r15, "logf", 4, "r15 is not preserved"},
        {bad_rsi, "logf", 4, "rsi is not preserved"},
        {bad_rsi, "idiv", 1, "rsi is not preserved"},
        {bad_rdi, "logf", 4, "rdi is not preserved"},
        {bad_rsp, "logf", 4, "rsp is not preserved"},
        {bad_ymm8, "logf", 4, "ymm8 is not preserved"},
        {bad_ymm15, "logf", 16, "ymm15 is not preserved"},
        {bad_mxcsr, "logf", 4, "control bits of MXCSR are changed"},
        {bad_x87_control, "logf", 4, "x87 control word is changed"},
        {bad_x87_stack, "logf", 4, "x87 stack is not empty"},
        {bad_direction, "logf", 4, "direction flag is set"},
        {bad_dirty, "logf", 4, "upper half of ymm5 is left dirty"},
        {bad_stack, "logf", 4, "the caller's stack is written"},
        {bad_far_stack, "logf", 4, "the caller's stack is written"},
        {bad_behind, "sincosf", 4, "bytes behind the out-target are written"},
        {bad_before, "sincosf", 3, "bytes before the out-target are written"},
        {good_store4, "sincosf", 2, "bytes behind the out-target are written"},
        {bad_short, "sincosf", 3, "lane 3 of the out-target is not written"},
        {bad_rax, "fma", 8, "rax is not the result pointer"},
        {bad_buffer, "fma", 8, "bytes behind the result buffer are written"},
        {bad_stack_of_arguments, "fma", 8, "the caller's stack is written"},
    };
    for (const Case& broken : cases)
        EXPECT_EQ(call_distinct(broken.kernel, broken.family, broken.width).violations,
                  std::vector<std::string>{broken.report})
            << broken.family << broken.width;

    EXPECT_EQ(call_distinct(bad_buffer_short, "fma", 8).violations,
              (std::vector<std::string>{"lane 4 of result 0 is not written", "lane 5 of result 0 is not written",
                                        "lane 6 of result 0 is not written", "lane 7 of result 0 is not written"}));
    // A fault leaves nothing behind that would disturb the next call.
    EXPECT_TRUE(call_distinct(good_move8, "logf", 8).violations.empty());
}

TEST(Probe, WhatOneFormForbidsAnotherAllows) {
    // Wide results leave the upper halves in use, and plain C functions may change every vector register.
    EXPECT_TRUE(call_distinct(bad_dirty, "logf", 8).violations.empty());
    EXPECT_TRUE(call_distinct(bad_ymm15, "idiv", 1).violations.empty());
    EXPECT_FALSE(call_distinct(good_divide1, "idiv", 2).violations.empty());
}

TEST(Probe, AStoredValueThatLooksUnwrittenIsNotReported) {
    const std::vector<Lanes> arguments{{0xa5a5a5a5, 0x5a5a5a5a, 0xa5a5a5a5, 1}};
    CallResult result = call(address(good_store4), family_named("sincosf"), 4, arguments);
    EXPECT_EQ(result.violations, std::vector<std::string>{});
    EXPECT_EQ(result.outputs[1], arguments[0]);
}

TEST(Probe, IgnoredLanesHoldWhatWasAskedFor) {
    // The identity shows lane 3 of a width of three.
    for (Ignored ignored : every_ignored) {
        CallOptions options;
        options.ignored = ignored;
        EXPECT_EQ(call_distinct(good_move8, "logf", 3, options).outputs[0][3], ignored_pattern(ignored, Lane::f32));
        EXPECT_EQ(call_distinct(good_move8, "log", 3, options).outputs[0][3], ignored_pattern(ignored, Lane::f64));
    }
}

TEST(Probe, AllLanesOfALongRun) {
    std::vector<Lanes> arguments(2);
    for (std::uint64_t number = 0; number < 21; ++number) {
        arguments[0].push_back(number);
        arguments[1].push_back(100 + number);
    }
    CallResult result = call_all(address(good_swap8), family_named("atan2f"), 8, arguments);
    EXPECT_EQ(result.outputs, std::vector<Lanes>{arguments[1]});
    EXPECT_TRUE(result.violations.empty());
    EXPECT_EQ(call_all(address(bad_rbx), family_named("atan2f"), 8, arguments).violations.size(), 1u);
}

TEST(Probe, RoundingModesReachTheKernel) {
    CallOptions options;
    options.mxcsr = 0x7f80;
    options.x87_control = 0x0f7f;
    CallResult result = call_distinct(good_read_modes1, "idivrem", 1, options);
    EXPECT_EQ(result.outputs, (std::vector<Lanes>{{0x7f80}, {0x0f7f}}));
    EXPECT_TRUE(result.violations.empty());
}

TEST(Probe, UnwindInformationLeadsThroughTheCall) {
    Kernel thrower = [] { throw std::runtime_error("from inside of the call"); };
    CallOptions options;
    options.stack_misalignment = 0;
    for (int round = 0; round < 3; ++round)
        EXPECT_THROW(call_distinct(thrower, "logf", 4, options), std::runtime_error);
}

TEST(Probe, WrongUseIsRefused) {
    const Family& family = family_named("atan2f");
    std::vector<Lanes> arguments = distinct_lanes(family, 8);
    EXPECT_THROW(Caller(nullptr, family, 8), std::invalid_argument);
    Caller caller(address(good_swap8), family, 8);
    CallOptions options;
    options.stack_misalignment = 64;
    EXPECT_THROW(caller(arguments, options), std::invalid_argument);
    EXPECT_THROW(caller(std::span(arguments).first(1)), std::invalid_argument);
    arguments[1].pop_back();
    EXPECT_THROW(caller(arguments), std::invalid_argument);
}

}  // namespace
}  // namespace tuvo

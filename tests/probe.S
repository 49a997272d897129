# void tuvo_probe(const void* kernel, const MachineState* before, MachineState* after, void* stack, size_t misalignment)
#
# Loads every register from `before`, calls `kernel`, and stores every register to `after`. The stack_bytes at `stack`
# lie at the stack pointer during the call, above the return address, and are copied back after it. The stack pointer
# at the call instruction is `misalignment` (0 to 63) above a multiple of 64.
#
# Nothing that the kernel may leave behind is trusted after the call, the stack pointer included: the probe finds its
# way back through thread-local words. Their addressing is that of an executable; a shared object cannot hold the probe.

        # Layout of MachineState; call.cpp holds the same figures.
        .set    general, 0              # rax rbx rcx rdx rsi rdi rbp rsp r8 ... r15
        .set    vectors, 128            # ymm0 ... ymm15
        .set    mxcsr, 640
        .set    x87_control, 644
        .set    x87_status, 646
        .set    x87_tags, 648
        .set    flags, 656
        .set    expected_rsp, 664

        .set    stack_bytes, 448        # three arguments of 128 bytes, and 64 guard bytes

        # Behind the copy of the stack bytes, during the call.
        .set    saved_frame, stack_bytes
        .set    kernel_address, stack_bytes + 8

        .section .tbss, "awT", @nobits
        .balign 8
own_frame:      .zero 8
after_state:    .zero 8
stack_image:    .zero 8
first_word:     .zero 8

        .text
        .globl  tuvo_probe
        .hidden tuvo_probe
        .type   tuvo_probe, @function
        .balign 16
tuvo_probe:
        .cfi_startproc
        pushq   %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        pushq   %rbx
        .cfi_offset %rbx, -24
        pushq   %r12
        .cfi_offset %r12, -32
        pushq   %r13
        .cfi_offset %r13, -40
        pushq   %r14
        .cfi_offset %r14, -48
        pushq   %r15
        .cfi_offset %r15, -56
        subq    $24, %rsp
        stmxcsr -48(%rbp)
        fnstcw  -44(%rbp)

        movq    %rbp, %fs:own_frame@tpoff
        movq    %rdx, %fs:after_state@tpoff
        movq    %rcx, %fs:stack_image@tpoff

        leaq    -(stack_bytes + 128)(%rsp), %rax
        andq    $-64, %rax
        addq    %r8, %rax
        movq    %rax, %rsp
        movq    %rbp, saved_frame(%rsp)
        movq    %rdi, kernel_address(%rsp)
        movq    %rsp, expected_rsp(%rdx)

        # rbp is about to be overwritten. From here the frame is found through the word above the stack bytes:
        # CFA = *(rsp + 448) + 16.
        .cfi_escape 0x0f, 6, 0x77, 0xc0, 0x03, 0x06, 0x23, 0x10

        .set    offset, 0
        .rept   stack_bytes / 32
        vmovdqu offset(%rcx), %ymm0
        vmovdqu %ymm0, offset(%rsp)
        .set    offset, offset + 32
        .endr

        ldmxcsr mxcsr(%rsi)
        fnclex
        fldcw   x87_control(%rsi)
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        vmovdqu vectors + 32 * \n(%rsi), %ymm\n
        .endr
        movq    general(%rsi), %rax
        movq    general + 8(%rsi), %rbx
        movq    general + 16(%rsi), %rcx
        movq    general + 24(%rsi), %rdx
        movq    general + 40(%rsi), %rdi
        movq    general + 48(%rsi), %rbp
        .irp    n, 8, 9, 10, 11, 12, 13, 14, 15
        movq    general + 8 * \n(%rsi), %r\n
        .endr
        movq    general + 32(%rsi), %rsi

        call    *kernel_address(%rsp)

        movq    %rax, %fs:first_word@tpoff
        movq    %fs:after_state@tpoff, %rax
        movq    %rbx, general + 8(%rax)
        movq    %rcx, general + 16(%rax)
        movq    %rdx, general + 24(%rax)
        movq    %rsi, general + 32(%rax)
        movq    %rdi, general + 40(%rax)
        movq    %rbp, general + 48(%rax)
        movq    %rsp, general + 56(%rax)
        .irp    n, 8, 9, 10, 11, 12, 13, 14, 15
        movq    %r\n, general + 8 * \n(%rax)
        .endr
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        vmovdqu %ymm\n, vectors + 32 * \n(%rax)
        .endr
        movq    %fs:first_word@tpoff, %rcx
        movq    %rcx, general(%rax)
        stmxcsr mxcsr(%rax)

        movq    expected_rsp(%rax), %rsp
        movq    %fs:own_frame@tpoff, %rbp
        .cfi_def_cfa %rbp, 16
        pushfq
        popq    flags(%rax)
        cld

        # The 28 bytes of the x87 environment go below everything in use: control at 0, status at 4, tags at 8.
        fnstenv -32(%rsp)
        movzwl  -32(%rsp), %ecx
        movw    %cx, x87_control(%rax)
        movzwl  -28(%rsp), %ecx
        movw    %cx, x87_status(%rax)
        movzwl  -24(%rsp), %ecx
        movw    %cx, x87_tags(%rax)
        cmpw    $-1, %cx
        je      1f
        fninit
1:      fldcw   -44(%rbp)
        ldmxcsr -48(%rbp)

        movq    %fs:stack_image@tpoff, %rcx
        .set    offset, 0
        .rept   stack_bytes / 32
        vmovdqu offset(%rsp), %ymm0
        vmovdqu %ymm0, offset(%rcx)
        .set    offset, offset + 32
        .endr
        vzeroupper

        leaq    -40(%rbp), %rsp
        popq    %r15
        popq    %r14
        popq    %r13
        popq    %r12
        popq    %rbx
        popq    %rbp
        .cfi_def_cfa %rsp, 8
        ret
        .cfi_endproc
        .size   tuvo_probe, . - tuvo_probe

        .section .note.GNU-stack, "", @progbits

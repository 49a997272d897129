# Stand-ins for rare routines: tuvo_stand_ins is an array of functions of 16 bytes each, the code of which loads their
# number. All go on to save the registers in a RareCall (recorder.hpp), pass it to tuvo_rare_called, and write over
# everything that a function of the platform's convention may change.

        .set    vectors, 64
        .set    rare_call_bytes, 64 + 16 * 32

        .text
        .globl  tuvo_stand_ins, tuvo_stand_in_count
        .hidden tuvo_stand_ins, tuvo_stand_in_count
        .set    count, 256
        .type   tuvo_stand_ins, @function
        .balign 16
tuvo_stand_ins:
        .cfi_startproc
        .set    number, 0
        .rept   count
        .balign 16
        movl    $number, %eax
        jmp     1f
        .set    number, number + 1
        .endr

1:      pushq   %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        subq    $rare_call_bytes, %rsp
        andq    $-64, %rsp
        movq    %rax, (%rsp)
        movq    %rdi, 8(%rsp)
        movq    %rsi, 16(%rsp)
        movq    %rdx, 24(%rsp)
        movq    %rcx, 32(%rsp)
        leaq    8(%rbp), %rax
        movq    %rax, 40(%rsp)
        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        vmovups %ymm\n, vectors + 32 * \n(%rsp)
        .endr
        movq    %rsp, %rdi
        call    tuvo_rare_called

        .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        vmovups vectors + 32 * \n(%rsp), %ymm\n
        .endr
        testl   %eax, %eax
        je      2f
        vzeroupper
2:      .irp    n, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
        pcmpeqd %xmm\n, %xmm\n
        .endr
        .irp    r, rax, rcx, rdx, rsi, rdi, r8, r9, r10, r11
        movq    $-3, %\r
        .endr
        leave
        .cfi_def_cfa %rsp, 8
        .cfi_restore %rbp
        ret
        .cfi_endproc
        .size   tuvo_stand_ins, . - tuvo_stand_ins

        .section .rodata
        .balign 4
tuvo_stand_in_count: .long count

        .section .note.GNU-stack, "", @progbits

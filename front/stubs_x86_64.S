// The exported functions on x86-64. Each is one jump through its slot. A slot starts out with the
// address of a short piece of code that has the slot's target looked up (kor_front_resolve), and
// then jumps there; from then on the slot holds the target itself.
//
// What a call carries at that point is in the argument registers and on the stack, and must arrive
// unchanged: the six integer registers, rax (number of vector registers, for variable arguments) and
// xmm0 to xmm7. The low 128 bits are enough: every argument of a GL or GLX function is an integer, a
// pointer, a float or a double, and no caller may rely on the upper parts of the vector registers
// across a call. Results need no care, since the target returns to the caller directly.

#ifndef KOR_SYMBOL_LIST // the vendor front has another
#define KOR_SYMBOL_LIST "symbols.def"
#endif

.macro kor_stub name
    .p2align 4
    .globl \name
    .type \name, @function
\name:
    jmp *.Lslot_\name(%rip)
    .size \name, . - \name
.endm

// r11 is free here: neither an argument nor preserved across calls.
.macro kor_first_call name
.Lfirst_\name:
    leaq .Lslot_\name(%rip), %r11
    jmp .Lresolve
.endm

.macro kor_slot name
.Lslot_\name:
    .quad .Lfirst_\name
.endm

    .section .text.kor_front_stubs, "ax", @progbits
    .cfi_startproc
#define KOR_SYMBOL(name) kor_stub name;
#include KOR_SYMBOL_LIST
#undef KOR_SYMBOL
    .cfi_endproc

    .section .text.kor_front_first_calls, "ax", @progbits
    .cfi_startproc
#define KOR_SYMBOL(name) kor_first_call name;
#include KOR_SYMBOL_LIST
#undef KOR_SYMBOL
    .cfi_endproc

    .p2align 4
    .type .Lresolve, @function
.Lresolve:
    .cfi_startproc
    pushq %rbp
    .cfi_def_cfa_offset 16
    .cfi_offset %rbp, -16
    movq %rsp, %rbp
    .cfi_def_cfa_register %rbp
    // 64 bytes of integer registers (with rax and one unused place) and 128 of vector registers; the
    // stack pointer is aligned to 16 bytes here.
    subq $192, %rsp
    movq %rdi, 0(%rsp)
    movq %rsi, 8(%rsp)
    movq %rdx, 16(%rsp)
    movq %rcx, 24(%rsp)
    movq %r8, 32(%rsp)
    movq %r9, 40(%rsp)
    movq %rax, 48(%rsp)
    movaps %xmm0, 64(%rsp)
    movaps %xmm1, 80(%rsp)
    movaps %xmm2, 96(%rsp)
    movaps %xmm3, 112(%rsp)
    movaps %xmm4, 128(%rsp)
    movaps %xmm5, 144(%rsp)
    movaps %xmm6, 160(%rsp)
    movaps %xmm7, 176(%rsp)
    movq %r11, %rdi
    call kor_front_resolve
    movq %rax, %r11
    movq 0(%rsp), %rdi
    movq 8(%rsp), %rsi
    movq 16(%rsp), %rdx
    movq 24(%rsp), %rcx
    movq 32(%rsp), %r8
    movq 40(%rsp), %r9
    movq 48(%rsp), %rax
    movaps 64(%rsp), %xmm0
    movaps 80(%rsp), %xmm1
    movaps 96(%rsp), %xmm2
    movaps 112(%rsp), %xmm3
    movaps 128(%rsp), %xmm4
    movaps 144(%rsp), %xmm5
    movaps 160(%rsp), %xmm6
    movaps 176(%rsp), %xmm7
    leave
    .cfi_def_cfa %rsp, 8
    jmp *%r11
    .cfi_endproc

// Stands in for a function that is nowhere to be had: 0, as an integer, a pointer or a float.
    .p2align 4
    .globl kor_front_nothing
    .hidden kor_front_nothing
    .type kor_front_nothing, @function
    .globl kor_front_float_nothing
    .hidden kor_front_float_nothing
    .type kor_front_float_nothing, @function
kor_front_float_nothing:
kor_front_nothing:
    .cfi_startproc
    xorl %eax, %eax
    xorps %xmm0, %xmm0
    ret
    .cfi_endproc
    .size kor_front_nothing, . - kor_front_nothing

    .section .data.kor_front_slots, "aw", @progbits
    .p2align 6
    .globl kor_front_slots
    .hidden kor_front_slots
kor_front_slots:
#define KOR_SYMBOL(name) kor_slot name;
#include KOR_SYMBOL_LIST
#undef KOR_SYMBOL

    .hidden kor_front_resolve
    .section .note.GNU-stack, "", @progbits

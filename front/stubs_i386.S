// The exported functions on i386: as on x86-64 (see stubs_x86_64.S), but for two things. All
// arguments are on the stack, so that eax, ecx and edx are free and only the stack pointer must be
// right again at the jump. And code cannot address data relative to itself, so that each stub first
// fetches its own address.

#ifndef KOR_SYMBOL_LIST // the vendor front has another
#define KOR_SYMBOL_LIST "symbols.def"
#endif

.macro kor_stub name
    .p2align 4
    .globl \name
    .type \name, @function
\name:
    call .Lown_address
    addl $_GLOBAL_OFFSET_TABLE_, %eax
    jmp *.Lslot_\name@GOTOFF(%eax)
    .size \name, . - \name
.endm

// eax still holds the address of the global offset table.
.macro kor_first_call name
.Lfirst_\name:
    leal .Lslot_\name@GOTOFF(%eax), %ecx
    jmp .Lresolve
.endm

.macro kor_slot name
.Lslot_\name:
    .long .Lfirst_\name
.endm

    .section .text.kor_front_stubs, "ax", @progbits
    .cfi_startproc
.Lown_address:
    movl (%esp), %eax
    ret
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
    pushl %ebp
    .cfi_def_cfa_offset 8
    .cfi_offset %ebp, -8
    movl %esp, %ebp
    .cfi_def_cfa_register %ebp
    // Callers built without it may not keep the stack aligned to 16 bytes.
    andl $-16, %esp
    subl $16, %esp
    movl %ecx, (%esp)
    call kor_front_resolve
    leave
    .cfi_def_cfa %esp, 4
    jmp *%eax
    .cfi_endproc

// Stands in for a function that is nowhere to be had: 0, as an integer or a pointer.
    .p2align 4
    .globl kor_front_nothing
    .hidden kor_front_nothing
    .type kor_front_nothing, @function
kor_front_nothing:
    .cfi_startproc
    xorl %eax, %eax
    xorl %edx, %edx
    ret
    .cfi_endproc
    .size kor_front_nothing, . - kor_front_nothing

// The same for a function that returns a floating-point number, which its caller takes from another
// place, and must take from there.
    .p2align 4
    .globl kor_front_float_nothing
    .hidden kor_front_float_nothing
    .type kor_front_float_nothing, @function
kor_front_float_nothing:
    .cfi_startproc
    fldz
    ret
    .cfi_endproc
    .size kor_front_float_nothing, . - kor_front_float_nothing

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

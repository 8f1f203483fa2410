// The names of the functions, for the look-up behind the stubs: kor_front_names holds the texts,
// kor_front_name_offsets where each begins. Offsets instead of pointers, so that loading the library
// relocates nothing here.

.macro kor_name name
    .type .Lname_\name, @object
.Lname_\name:
    .asciz "\name"
.endm

.macro kor_offset name
    .long .Lname_\name - kor_front_names
.endm

    .section .rodata.kor_front_names, "a", @progbits
    .globl kor_front_names
    .hidden kor_front_names
kor_front_names:
#define KOR_SYMBOL(name) kor_name name;
#include "symbols.def"
#undef KOR_SYMBOL

    .section .rodata.kor_front_name_offsets, "a", @progbits
    .p2align 2
    .globl kor_front_name_offsets
    .hidden kor_front_name_offsets
kor_front_name_offsets:
#define KOR_SYMBOL(name) kor_offset name;
#include "symbols.def"
#undef KOR_SYMBOL

    .section .note.GNU-stack, "", @progbits

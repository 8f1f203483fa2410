#ifndef KOR_FRONT_STUBS_H
#define KOR_FRONT_STUBS_H

#include <cstdint>

/// What the assembly (stubs_*.S, names.S) and the look-up share.
extern "C" {

/// One slot per name of symbols.def, in its order: the address to which the exported function of
/// that name jumps. Written by kor_front_resolve alone, each slot as one word, so that a function
/// called meanwhile on another thread jumps to the old or the new address.
extern __attribute__((visibility("hidden"))) void* kor_front_slots[];

/// The names, each with its terminating zero, and where in there each begins.
extern __attribute__((visibility("hidden"))) const char kor_front_names[];
extern __attribute__((visibility("hidden"))) const uint32_t kor_front_name_offsets[];

/// Does nothing and returns 0.
__attribute__((visibility("hidden"))) void kor_front_nothing();

/// The same in the place of a function whose result is a floating-point number.
__attribute__((visibility("hidden"))) float kor_front_float_nothing();

/// Called by a stub whose slot has no target yet, on the thread that called the GL or GLX function
/// and with that call's arguments set aside: starts the front if need be and returns the target,
/// never null. Keeps errno.
__attribute__((visibility("hidden"))) void* kor_front_resolve(void** slot);
}

#endif

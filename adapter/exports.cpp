#include "fixed_functions.h"

/// The exported names: indirect functions, each resolved when dlsym is asked for it. Nothing here
/// may refer to one of them, or the dynamic linker would resolve it too early, while the library is
/// being opened.
namespace {
using Function = void();
}

#define KOR_SYSTEM(name)                                                                           \
    extern "C" {                                                                                   \
    static Function* resolve_##name() {                                                            \
        return reinterpret_cast<Function*>(kor::adapter::resolveFunction(#name));                  \
    }                                                                                              \
    __attribute__((visibility("default"), ifunc("resolve_" #name))) void name();                   \
    }
#define KOR_SYSTEM_AS(name, reported) KOR_SYSTEM(name)
#define KOR_SYSTEM_OPTIONAL(name) KOR_SYSTEM(name)
#include "core/system_functions.def"

#include "support/gl_library.h"

#include "support/comparison.h"

#include <dlfcn.h>

namespace kor::bench {

namespace {

GlLibrary open(const char* path) {
    GlLibrary library;
    library.handle = dlopen(path, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library.handle == nullptr)
        fail(dlerror());
#define KOR_BENCH_LOOK_UP(name)                                                                    \
    library.name = reinterpret_cast<decltype(&::name)>(dlsym(library.handle, #name));              \
    if (library.name == nullptr)                                                                   \
        fail(std::string(path) + " has no " #name);
    KOR_BENCH_FUNCTIONS(KOR_BENCH_LOOK_UP)
#undef KOR_BENCH_LOOK_UP
    return library;
}

} // namespace

GlLibrary openSystemLibrary() {
    const GlLibrary library = open("libGL.so.1");
    if (dlsym(library.handle, "kor_front_marker") != nullptr)
        fail("LD_LIBRARY_PATH leads to the front library instead of the system's");
    return library;
}

GlLibrary openClassicFront() {
    return open(KOR_FRONT);
}

} // namespace kor::bench

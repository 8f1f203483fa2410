#include "gl_table.h"

#include "adapter/adapter.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

namespace kor::test {
namespace {

void* opened(const char* path) {
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::abort();
    }
    return handle;
}

template <typename Function> Function* symbol(void* handle, const char* name) {
    return reinterpret_cast<Function*>(dlsym(handle, name));
}

GlTable load(void* handle) {
    GlTable table;
#define KOR_TABLE_LOAD(name) table.name = symbol<decltype(::name)>(handle, #name);
    KOR_TABLE_ADAPTED(KOR_TABLE_LOAD)
#undef KOR_TABLE_LOAD
#define KOR_TABLE_LOAD(name) table.name = symbol<decltype(::name)>(systemHandle(), #name);
    KOR_TABLE_SYSTEM(KOR_TABLE_LOAD)
#undef KOR_TABLE_LOAD
    return table;
}

} // namespace

void* systemHandle() {
    static void* const handle = opened(KOR_SYSTEM_LIBGL);
    return handle;
}

void* adapterHandle() {
    static void* const handle = [] {
        void* made = opened(KOR_ADAPTER_PATH);
        auto* init = symbol<decltype(kor_adapter_init)>(made, "kor_adapter_init");
        if (!init(systemHandle()))
            std::abort();
        return made;
    }();
    return handle;
}

void prepareLocalDisplay(Display* display) {
    symbol<decltype(kor_adapter_local_display)>(adapterHandle(),
                                                "kor_adapter_local_display")(display);
}

const GlTable& directGl() {
    static const GlTable table = load(systemHandle());
    return table;
}

const GlTable& adaptedGl() {
    static const GlTable table = load(adapterHandle());
    return table;
}

} // namespace kor::test

// Linked into every test program of a sanitizer build. Mesa unloads its driver when the last
// connection is closed, and a leak out of an unloaded module can be named by no suppression: so
// libraries that are not ours stay loaded. Ours come and go as ever.

#include <cstring>
#include <dlfcn.h>
#include <link.h>

namespace {

bool isForeign(void* handle) {
    link_map* module = nullptr;
    return dlinfo(handle, RTLD_DI_LINKMAP, &module) == 0 && module != nullptr &&
           (strncmp(module->l_name, "/usr/lib/", 9) == 0 ||
            strncmp(module->l_name, "/lib/", 5) == 0);
}

} // namespace

extern "C" __attribute__((visibility("default"))) int dlclose(void* handle) noexcept {
    using Close = int(void*);
    static auto* next = reinterpret_cast<Close*>(dlsym(RTLD_NEXT, "dlclose"));
    return isForeign(handle) ? 0 : next(handle);
}

#include "driver.h"

#include "adapter.h"

#include <cstring>
#include <dlfcn.h>

namespace kor::adapter {
namespace {

const FunctionSource* currentSource = nullptr;

/// The folder of the object that holds an address, with its last slash; empty when unknown.
std::size_t folderOf(const void* address, const char** path) {
    Dl_info info{};
    if (!dladdr(address, &info) || !info.dli_fname)
        return 0;
    const char* slash = std::strrchr(info.dli_fname, '/');
    *path = info.dli_fname;
    return slash ? static_cast<std::size_t>(slash - info.dli_fname) + 1 : 0;
}

} // namespace

Driver driver;

void* SystemLibrary::find(const char* name) const {
    return dlsym(handle_, name);
}

bool SystemLibrary::isOurs() const {
    if (find(KOR_FRONT_MARKER) || find("kor_adapter_init"))
        return true;
    // The fronts are installed beside the adapter, and no system library ever is.
    const char* theirs = nullptr;
    const char* ours = nullptr;
    const std::size_t theirLength = folderOf(find("glXSwapBuffers"), &theirs);
    const std::size_t ourLength = folderOf(reinterpret_cast<void*>(&kor_adapter_init), &ours);
    return ourLength > 0 && theirLength == ourLength && !std::memcmp(theirs, ours, ourLength);
}

bool Driver::canMendFront() const {
    return canLendContext() && glXSwapBuffers && glXQueryExtension && glXQueryDrawable &&
           glBlitFramebuffer && glClear && glClearColor && glDrawBuffer && glFinish && glFlush &&
           glReadBuffer && glReadPixels;
}

bool Driver::canLendContext() const {
    return glXMakeContextCurrent && glXCreatePbuffer && glXDestroyPbuffer && glXCreateNewContext &&
           glXDestroyContext && glXGetCurrentContext && glXGetCurrentDisplay &&
           glXGetCurrentDrawable && glXGetCurrentReadDrawable && glXChooseFBConfig &&
           glXGetFBConfigAttrib && glXGetVisualFromFBConfig;
}

void useSource(const FunctionSource& chosen) {
#define KOR_FIND(name) driver.name = reinterpret_cast<decltype(driver.name)>(chosen.find(#name));
    KOR_DRIVER_FUNCTIONS(KOR_FIND)
#undef KOR_FIND
    if (!driver.glBlitFramebuffer) // a library that exports only the oldest GL by symbol
        if (auto* find = reinterpret_cast<decltype(&glXGetProcAddressARB)>(
                chosen.find("glXGetProcAddressARB")))
            driver.glBlitFramebuffer = reinterpret_cast<decltype(&::glBlitFramebuffer)>(
                find(reinterpret_cast<const GLubyte*>("glBlitFramebuffer")));
    currentSource = &chosen;
}

const FunctionSource* source() {
    return currentSource;
}

} // namespace kor::adapter

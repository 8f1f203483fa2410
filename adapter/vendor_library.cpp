#include "vendor_library.h"

#include "driver.h"

#include <array>
#include <atomic>
#include <dlfcn.h>
#include <fcntl.h>
#include <glvnd/libglxabi.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kor::adapter {
namespace {

constexpr int openFlags = RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE;

std::string libraryFile(const std::string& name) {
    return "libGLX_" + name + ".so.0";
}

/// Mesa's entry function hands its functions out at its first call and does nothing at any other.
bool answersOnlyOnce(void* handle) {
    return dlsym(handle, "MesaGLInteropGLXQueryDeviceInfo") != nullptr;
}

bool copyFile(int from, int to) {
    std::array<char, 65536> piece;
    for (;;) {
        const ssize_t size = read(from, piece.data(), piece.size());
        if (size <= 0)
            return size == 0;
        for (ssize_t written = 0; written < size;) {
            const ssize_t more = write(to, piece.data() + written, size - written);
            if (more <= 0)
                return false;
            written += more;
        }
    }
}

/// Opens a copy of a library that is open already; null when that cannot be done. Being a file of
/// its own, the dynamic linker takes it for another library; whoever opens one by the name goes on
/// finding the first.
void* openCopy(void* original, const std::string& name) {
    link_map* map = nullptr;
    if (dlinfo(original, RTLD_DI_LINKMAP, &map) != 0)
        return nullptr;
    const int file = open(map->l_name, O_RDONLY | O_CLOEXEC);
    if (file == -1)
        return nullptr;
    // Stays open: the dynamic linker remembers the library by the path that is made of its number.
    const int copy = memfd_create((libraryFile(name) + "-of-KOR-GL").c_str(), MFD_CLOEXEC);
    const bool copied = copy != -1 && copyFile(file, copy);
    close(file);
    void* handle = nullptr;
    if (copied)
        handle = dlopen(("/proc/self//fd/" + std::to_string(copy)).c_str(), openFlags);
    if (!handle && copy != -1)
        close(copy);
    return handle;
}

} // namespace

const VendorLibrary* VendorLibrary::open(const std::string& name, const DispatchLibrary& dispatch) {
    // Only ever grown at its front, so that it is whole in a child that is forked meanwhile.
    struct Known {
        std::string name;
        const VendorLibrary* library;
        const Known* next;
    };
    static constinit std::atomic<const Known*> all{nullptr};
    for (const Known* known = all; known != nullptr; known = known->next)
        if (known->name == name)
            return known->library;
    auto* library = new VendorLibrary(name);
    if (name.empty() || name.find('/') != std::string::npos || !library->load(dispatch)) {
        delete library;
        library = nullptr;
    }
    all = new Known{name, library, all};
    return library;
}

bool VendorLibrary::load(const DispatchLibrary& dispatch) {
    void* const original = dlopen(libraryFile(name_).c_str(), openFlags);
    if (!original || SystemLibrary(original).isOurs())
        return false;
    if (answersOnlyOnce(original))
        if (void* const copy = openCopy(original, name_); copy && take(copy, dispatch))
            return true;
    if (take(original, dispatch))
        return true;
    void* const copy = openCopy(original, name_);
    return copy && take(copy, dispatch);
}

bool VendorLibrary::take(void* handle, const DispatchLibrary& dispatch) {
    const auto enter = reinterpret_cast<__PFNGLXMAINPROC>(dlsym(handle, __GLX_MAIN_PROTO_NAME));
    __GLXapiImports imports{};
    if (!enter || !enter(GLX_VENDOR_ABI_VERSION, dispatch.exports, dispatch.vendor, &imports) ||
        !imports.getProcAddress || !imports.isScreenSupported)
        return false;
    getProcAddress_ = imports.getProcAddress;
    isScreenSupported_ = imports.isScreenSupported;
    const auto find = [this](const char* name, auto& pointer) {
        pointer = reinterpret_cast<std::remove_reference_t<decltype(pointer)>>(function(name));
        return pointer != nullptr;
    };
    return find("glXChooseFBConfig", chooseFBConfig) && find("glXGetConfig", getConfig) &&
           find("glXGetFBConfigAttrib", getFBConfigAttrib) &&
           find("glXQueryDrawable", queryDrawable) &&
           find("glXQueryExtensionsString", queryExtensionsString);
}

void* VendorLibrary::function(const char* name) const {
    return getProcAddress_(reinterpret_cast<const GLubyte*>(name));
}

bool VendorLibrary::supports(Display* display, int screen) const {
    return isScreenSupported_(display, screen) != False;
}

} // namespace kor::adapter

#include "vendor.h"

#include "adapter/adapter.h"
#include "app_displays.h"
#include "common/start.h"
#include "entry_points.h"
#include "extension_dispatch.h"
#include "own_place.h"

#include <atomic>
#include <cstring>
#include <dlfcn.h>
#include <glvnd/libglxabi.h>
#include <string>
#include <unistd.h>

namespace kor::front {

namespace {

std::atomic<const __GLXapiExports*> exports{nullptr};
std::atomic<__GLXvendorInfo*> vendor{nullptr};

bool isInstalled(const char* place) {
    return access((std::string(ownPlace().directory) + "/" + place).c_str(), R_OK) == 0;
}

/// True when the classic front routes this process's calls to the library: it asks the system's
/// libraries about the application's display, and they must not send it back to itself.
bool otherFrontIsHere() {
    void* library = dlopen("libGL_KOR.so", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr)
        return false;
    const auto claim = reinterpret_cast<int (*)(const void*)>(dlsym(library, "kor_claim_process"));
    const bool claimed = claim != nullptr && claim(nullptr) == 0;
    dlclose(library);
    return claimed && libraries().kor == nullptr;
}

Bool isScreenSupported(Display* display, int /*screen*/) {
    return isAppDisplay(display) && !otherFrontIsHere();
}

/// GL functions that must not be used here although drivers have them.
bool isHidden(const char* name) {
    return strcmp(name, "glImportSyncEXT") == 0; // its syncs belong to the application's server
}

void* driverFunction(const char* name) {
    if (!ensureStarted() || libraries().adapter == nullptr)
        return nullptr;
    using Find = decltype(&kor_adapter_driver_function);
    // No local static: a child that was forked meanwhile would wait for its maker.
    static std::atomic<Find> found{nullptr};
    Find find = found.load(std::memory_order_relaxed);
    if (find == nullptr) {
        find = reinterpret_cast<Find>(dlsym(libraries().adapter, "kor_adapter_driver_function"));
        found.store(find, std::memory_order_relaxed);
    }
    return find == nullptr ? nullptr : find(name);
}

void* getProcAddress(const GLubyte* procedure) {
    const char* name = reinterpret_cast<const char*>(procedure);
    if (void* function = entryPoint(name))
        return function;
    const bool isGL = strncmp(name, "gl", 2) == 0 && name[2] != 'X';
    return isGL && !isHidden(name) ? driverFunction(name) : nullptr;
}

void* getDispatchAddress(const GLubyte* procedure) {
    return extensionDispatch(reinterpret_cast<const char*>(procedure));
}

void setDispatchIndex(const GLubyte* procedure, int index) {
    setExtensionIndex(reinterpret_cast<const char*>(procedure), index);
}

} // namespace

DispatchHandles dispatchHandles() {
    return {exports.load(), vendor.load()};
}

void keepDispatchLibrary() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(exports.load()->getDynDispatch), &info) != 0)
        dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

} // namespace kor::front

extern "C" __attribute__((visibility("default"))) Bool __glx_Main(uint32_t version,
                                                                  const __GLXapiExports* exports,
                                                                  __GLXvendorInfo* vendor,
                                                                  __GLXapiImports* imports) {
    using namespace kor::front;
    if (GLX_VENDOR_ABI_GET_MAJOR_VERSION(version) != GLX_VENDOR_ABI_MAJOR_VERSION)
        return False;
    // Then the dispatch library tries the next vendor.
    if (!isInstalled("libGL_KOR.so") || !isInstalled("kor/libkor-sysgl.so"))
        return False;
    // More than once when the application closes its GL library and opens it again.
    kor::front::exports.store(exports);
    kor::front::vendor.store(vendor);
    useDispatchLibrary(exports);
    imports->isScreenSupported = isScreenSupported;
    imports->getProcAddress = getProcAddress;
    imports->getDispatchAddress = getDispatchAddress;
    imports->setDispatchIndex = setDispatchIndex;
    return True;
}

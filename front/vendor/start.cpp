#include "common/start.h"

#include "adapter/adapter.h"
#include "app_displays.h"
#include "environment.h"
#include "report.h"
#include "vendor.h"

#include <dlfcn.h>

namespace kor::front {

namespace {

/// A variable that says which vendor's library to use; null when it says nothing.
const char* forcedVendor(const char* variable, bool trusted) {
    const char* name = trusted ? environmentValue(variable) : nullptr;
    return name == nullptr || *name == '\0' ? nullptr : name;
}

bool useVendors(void* adapter, void* korLibrary, bool trusted) {
    const auto init = reinterpret_cast<decltype(&kor_adapter_init_vendors)>(
        dlsym(adapter, "kor_adapter_init_vendors"));
    const std::string localDisplay = localDisplayName(korLibrary);
    const DispatchHandles handles = dispatchHandles();
    const KorAdapterVendors vendors = {handles.exports, handles.vendor, localDisplay.c_str(),
                                       forcedVendor("KOR_FRONT_LOCAL_VENDOR", trusted),
                                       forcedVendor("KOR_FRONT_APP_VENDOR", trusted)};
    if (init == nullptr || !init(&vendors))
        return false;
    const auto find = reinterpret_cast<decltype(&kor_adapter_driver_function)>(
        dlsym(adapter, "kor_adapter_driver_function"));
    if (find == nullptr || find("glXSwapBuffers") == nullptr)
        report("no vendor's GL library is to be had for the local display, %s%s%s. OpenGL does "
               "nothing in this process.",
               localDisplay.c_str(), vendors.localVendor == nullptr ? "" : "; wanted: ",
               vendors.localVendor == nullptr ? "" : vendors.localVendor);
    return true;
}

} // namespace

void start(Libraries& opened) {
    const bool trusted = trustEnvironment();
    keepDispatchLibrary();
    KorLibrary library;
    if (!findKor(library, openKorLibrary({"libGL_KOR.so"}, trusted)))
        return;
    if (!claimKor(library)) {
        report("another front of KOR-GL serves this process already; OpenGL does nothing by way of "
               "this one.");
        return;
    }
    openAdapter(opened, "kor/libkor-sysgl.so");
    if (opened.adapter == nullptr)
        return;
    if (!useVendors(opened.adapter, library.handle, trusted)) {
        report("the adapter beside this library is none of this front's. OpenGL does nothing.");
        return;
    }
    startKor(library, opened.adapter);
}

} // namespace kor::front

#include "adapter.h"

#include "bound_objects.h"
#include "driver.h"
#include "driver_trial.h"
#include "fbconfig_owners.h"
#include "helper_context.h"
#include "id_range.h"
#include "local_displays.h"
#include "pbuffer_put_error.h"
#include "process_end.h"
#include "vendor_source.h"

namespace {

const kor::adapter::VendorSource* vendors = nullptr; // lives until the process ends

const char* orEmpty(const char* text) {
    return text ? text : "";
}

} // namespace

bool kor_adapter_init(void* systemHandle) {
    using namespace kor::adapter;
    static const SystemLibrary* library = nullptr; // lives until the process ends
    if (library)
        return library->handle() == systemHandle;
    if (!systemHandle || vendors)
        return false;
    const SystemLibrary candidate(systemHandle);
    if (!candidate.find("glXSwapBuffers") || candidate.isOurs())
        return false;
    library = new SystemLibrary(systemHandle);
    useSource(*library);
    return true;
}

bool kor_adapter_init_vendors(const KorAdapterVendors* given) {
    using namespace kor::adapter;
    if (source())
        return false;
    const DispatchLibrary dispatch{static_cast<const __GLXapiExportsRec*>(given->exports),
                                   static_cast<__GLXvendorInfoRec*>(given->vendor)};
    vendors = new VendorSource(dispatch, {orEmpty(given->localDisplay), orEmpty(given->localVendor),
                                          orEmpty(given->appVendor)});
    useSource(*vendors);
    return true;
}

void* kor_adapter_driver_function(const char* name) {
    return vendors ? vendors->localFunction(name) : nullptr;
}

void kor_adapter_local_display(Display* display) {
    using namespace kor::adapter;
    if (!display || !source())
        return;
    moveIdsToUpperHalf(display);
    addVendorsLocalDisplay(display);
    leaveParentsBinding(display);
    const DriverHabits habits = processEnds() ? DriverHabits() : tryDriver(display);
    noteEndAheadOfDriver();
    learnMesaContext();
    if (habits.putErrors)
        dropPbufferPutErrors(display);
    addLocalDisplay(display, habits.forgetsFront);
    if (habits.forgetsFront || habits.putErrors)
        countBindings(display);
    learnFbconfigs(display);
}

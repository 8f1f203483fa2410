#include "adapter.h"

#include "driver.h"
#include "driver_trial.h"
#include "fbconfig_owners.h"
#include "id_range.h"
#include "local_displays.h"
#include "pbuffer_put_error.h"

bool kor_adapter_init(void* systemHandle) {
    using namespace kor::adapter;
    static const SystemLibrary* library = nullptr; // lives until the process ends
    if (library)
        return library->handle() == systemHandle;
    if (!systemHandle)
        return false;
    const SystemLibrary candidate(systemHandle);
    if (!candidate.find("glXSwapBuffers") || candidate.isOurs())
        return false;
    library = new SystemLibrary(systemHandle);
    useSource(*library);
    return true;
}

void kor_adapter_local_display(Display* display) {
    using namespace kor::adapter;
    if (!display || !source())
        return;
    moveIdsToUpperHalf(display);
    const DriverHabits habits = tryDriver(display);
    if (habits.putErrors)
        dropPbufferPutErrors(display);
    if (habits.forgetsFront || habits.putErrors)
        addLocalDisplay(display, habits.forgetsFront);
    learnFbconfigs(display);
}

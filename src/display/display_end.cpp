#include "display/display_end.h"

#include "display/display_map.h"
#include "display/displays.h"
#include "support/log.h"

#include <X11/Xlibint.h>
#undef min
#undef max

namespace kor::gl {

namespace {

/// Inside XCloseDisplay, while the connection still works, on whatever thread that is. The library
/// may be at its end, and the process a child that was forked: neither ends what it does not have.
int onClose(Display* appDpy, XExtCodes* /*codes*/) {
    if (!DisplayMap::instance().unwatch(appDpy) || !threadRecordsAreKept())
        return 0;
    KOR_DEBUG("application display %p closes", static_cast<void*>(appDpy));
    {
        // To the end, whatever gives it up meanwhile.
        const LocalDisplay local = pinPairOf(appDpy);
        if (TSD* tsd = knownTSD())
            leaveCurrentOf(*tsd, appDpy);
        endDrawablesOf(appDpy, {appDpy->resource_base, appDpy->resource_mask});
        endContextsOf(appDpy);
        forgetAppDisplay(appDpy);
        unpairAppDisplay(appDpy);
    }
    return 0;
}

} // namespace

void watchAppDisplay(Display* appDpy) {
    if (!DisplayMap::instance().watch(appDpy))
        return;
    if (XExtCodes* codes = XAddExtension(appDpy))
        XESetCloseDisplay(appDpy, codes->extension, onClose);
}

} // namespace kor::gl

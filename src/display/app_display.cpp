#include "display/connections.h"
#include "display/displays.h"
#include "display/kor_ext.h"
#include "display/kor_ext_protocol.h"

#include "config/settings.h"
#include "support/failures.h"
#include "support/forked_child.h"
#include "support/log.h"

#include <cstdlib>

using kor::gl::TSD;

namespace {

/// Held while a secondary connection is opened and the extension brought up, so that the threads of
/// an application do it one after another.
kor::PerProcess<kor::Mutex> setupMutex;

void takeAppDisplay(TSD& tsd, Display* dpy) {
    kor::gl::watchAppDisplay(dpy);
    tsd.appDisplay = dpy;
    tsd.appDisplayClosed = false;
}

} // namespace

bool _setupAppDisplay(Display* dpy, TSD* tsd) {
    if (dpy == nullptr)
        return false;
    if (tsd == nullptr)
        tsd = getTSD();
    if (tsd == nullptr)
        return false;
    if (tsd->appDisplay == nullptr) {
        KOR_DEBUG("setting TSD appdpy %p", static_cast<void*>(dpy));
        takeAppDisplay(*tsd, dpy);
    }
    if (tsd->appDisplay != dpy) {
        KOR_DEBUG("switching TSD appdpy from %p to %p", static_cast<void*>(tsd->appDisplay.load()),
                  static_cast<void*>(dpy));
        if (kor::conf::settings().overrideCachedDisplay)
            takeAppDisplay(*tsd, dpy);
    }
    if (tsd->appDisplay2 != nullptr)
        return true;

    const kor::Lock lock(*setupMutex);
    tsd->appDisplay2 = kor::gl::openConnection(DisplayString(dpy), kor::gl::SecondaryConnection);
    if (tsd->appDisplay2 == nullptr) {
        KOR_ERROR_ECHO("Cannot open secondary connection to application display.");
        return false;
    }
    if (tsd->extCodes == nullptr) {
        Bool present = False;
        if (!XKorExtQueryExtension(tsd->appDisplay2, &present)) {
            KOR_ERROR_ECHO("You should install Xkor to use KOR (KOR-V1 extension not found on %s).",
                           DisplayString(tsd->appDisplay2));
            exit(20);
        }
        tsd->extCodes = XInitExtension(tsd->appDisplay2, kor::gl::protocol::extensionName);
        if (tsd->extCodes == nullptr) {
            KOR_ERROR_ECHO("Could not initialized the KOR X Extension. Please check that KOR is "
                           "properly installed");
            exit(20);
        }
        KOR_DEBUG("KOR ext is enabled on display %s (%p)", DisplayString(tsd->appDisplay2),
                  static_cast<void*>(tsd->appDisplay2));
    }
    // Closed again, so that the thread's next call comes here and asks anew.
    const auto giveBack = [&] {
        XCloseDisplay(tsd->appDisplay2);
        tsd->appDisplay2 = nullptr;
        tsd->extCodes = nullptr;
    };
    const kor::OnFailure undo(giveBack);
    const kor::gl::LocalDisplay local = kor::gl::pinLocalDisplay(tsd);
    if (local && korIsSameXDisplay(dpy, local.get())) {
        KOR_ERROR_ECHO("Local display is the same as the application display.");
        giveBack();
        return false;
    }
    return true;
}

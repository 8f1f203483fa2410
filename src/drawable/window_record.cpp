#include "context/deleted_drawables.h"
#include "display/local_call.h"
#include "drawable/registry.h"
#include "drawable/window_known.h"
#include "support/failures.h"
#include "support/log.h"

using kor::gl::DrawableInfo;
using kor::gl::DrawableRef;
using kor::gl::TSD;

namespace {

#define RECORD_DEBUG(...)                                                                          \
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG",                                                    \
               "kor::gl::DrawableInfo* getDrawableInfo(Display*, Window, __GLXFBConfigRec*, "      \
               "kor::gl::TSD*)",                                                                   \
               false, __VA_ARGS__)

/// True when a record found under the window's id can go on being used.
bool isUsable(DrawableInfo& record, GLXFBConfig fbconfig) {
    const TSD* tsd = record.lastContext == nullptr ? getTSD() : nullptr;
    if (record.localDrawable != record.appDrawable && tsd != nullptr &&
        tsd->appDisplay2 != nullptr && tsd->extCodes != nullptr &&
        !kor::gl::isWindowKnown(*tsd, record.appDrawable)) {
        RECORD_DEBUG("%x was deleted", static_cast<unsigned>(record.appDrawable));
        return false; // the stale record goes with the next clearDeletedDrawables
    }
    if (!record.fbconfigChanged(fbconfig))
        return true;
    if (!record.updateWindowInfo(nullptr, nullptr, nullptr)) {
        RECORD_DEBUG("Cannot invalidate fbconfig if the drawable is not valid");
        return true;
    }
    RECORD_DEBUG("Invalidating fbconfig for drawable info");
    record.invalidateFbconfig();
    return false;
}

/// Sees to it that the thread has a local context to spare.
bool makeThrowawayContext(TSD* tsd, GLXFBConfig fbconfig) {
    if (tsd->throwawayContext != nullptr)
        return true;
    RECORD_DEBUG("creating throwaway ctx");
    const kor::gl::LocalDisplay local = kor::gl::pinLocalDisplay(tsd);
    if (!local)
        return false;
    tsd->throwawayContext = kor::gl::callLocal(system_glXCreateNewContext, local.get(), fbconfig,
                                               GLX_RGBA_TYPE, GLXContext{nullptr}, True);
    return true;
}

} // namespace

DrawableRef getDrawableInfo(Display* dpy, Window window, GLXFBConfig fbconfig, TSD* tsd) {
    // Whichever connection asks: a window has one record, and what one thread has drawn into it
    // stays where it is when another makes the window current over a connection of its own.
    DrawableRef found = findLocalDrawable(window);
    if (found && isUsable(*found, fbconfig)) {
        found->appDisplay.replace(nullptr, dpy); // it belongs to nobody: its display is closed
        return found;
    }
    // The window must be known to the server before our own connection asks about it.
    XSync(dpy, False);
    if (tsd == nullptr)
        tsd = getTSD();
    if (tsd == nullptr)
        return DrawableRef();
    _setupAppDisplay(dpy, tsd);
    clearDeletedDrawables();

    auto* record = new DrawableInfo(kor::gl::WindowDrawable, window, fbconfig, dpy, 0, 0, 100, 100);
    if (!record->updateWindowInfo(nullptr, nullptr, nullptr)) {
        RECORD_DEBUG("failed to update window info (appDrawable %x).",
                     static_cast<unsigned>(window));
        kor::gl::discard(record);
        return DrawableRef();
    }
    {
        const kor::OnFailure undo([&] { kor::gl::discard(record); });
        record->visualInfo = _getLVI(dpy, record->getVisualID(), tsd);
    }
    if (record->visualInfo == nullptr) {
        RECORD_DEBUG("no lvi for %x", static_cast<unsigned>(record->getVisualID()));
        return DrawableRef(); // the half-built record is left as it is, on purpose
    }
    if (!makeThrowawayContext(tsd, fbconfig))
        return DrawableRef(); // likewise
    record->initDummyReadbackPbuffer();
    record->updateOffscreenPbuffer();
    RECORD_DEBUG("new local drawable %lx (%d) for app drawable %lx",
                 static_cast<unsigned long>(record->localDrawable),
                 record->visualInfo->doubleBuffered ? 1 : 0, window);
    DrawableRef made(record);
    pushLocalDrawable(record);
    return made;
}

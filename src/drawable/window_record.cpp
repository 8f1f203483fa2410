#include "context/deleted_drawables.h"
#include "display/local_call.h"
#include "drawable/registry.h"
#include "drawable/window_known.h"
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
    Display* local = _getLocalDisplay(tsd);
    if (local == nullptr)
        return false;
    tsd->throwawayContext = kor::gl::callLocal(system_glXCreateNewContext, local, fbconfig,
                                               GLX_RGBA_TYPE, GLXContext{nullptr}, True);
    return true;
}

} // namespace

DrawableRef getDrawableInfo(Display* dpy, Window window, GLXFBConfig fbconfig, TSD* tsd) {
    DrawableRef found = findLocalDrawable(window);
    // A local drawable serves the connection that it was made on, and every application display has
    // a local connection of its own. The server hands ids out again when a display is closed.
    if (found && found->type == kor::gl::WindowDrawable && found->appDisplay != dpy)
        found = findWindowRecord(window, dpy);
    if (found && isUsable(*found, fbconfig))
        return found;
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
    record->visualInfo = _getLVI(dpy, record->getVisualID(), tsd);
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

#include "drawable/drawable_info.h"

#include "display/local_call.h"
#include "support/log.h"

#include <algorithm>

namespace kor::gl {

namespace {

constexpr int smallestPbuffer = 10; // pixels; some drivers refuse smaller ones

} // namespace

void DrawableInfo::updateOffscreenPbuffer() {
    const LocalDisplay local = localDisplay();
    if (!local)
        return;
    const std::lock_guard frameLock(frameMutex);
    {
        const Lock lock(getLocalDisplayMutex());
        if (released())
            return;
        livesOn(local);
        if (localDrawable != 0)
            system_glXDestroyPbuffer(local.get(), localDrawable);
        IRect rect;
        getGeometry(&rect);
        const int attributes[] = {GLX_PBUFFER_WIDTH,
                                  std::max(rect.width, smallestPbuffer),
                                  GLX_PBUFFER_HEIGHT,
                                  std::max(rect.height, smallestPbuffer),
                                  GLX_PRESERVED_CONTENTS,
                                  True,
                                  None};
        localDrawable = system_glXCreatePbuffer(local.get(), fbconfig, attributes);
        KOR_DEBUG("resized pbuffer to new geometry: %dx%d", rect.width, rect.height);
    }
    pbufferNeedsUpdate = false;
}

void DrawableInfo::checkForResize() {
    KOR_DEBUG("START");
    if (type != WindowDrawable) {
        KOR_DEBUG("ignored. %lx is not a window", appDrawable);
        return;
    }
    const Undisturbed undisturbed; // nothing is current while the pbuffer is replaced
    bool resized = false;
    bool moved = false;
    bool visibilityChanged = false;
    if (!updateWindowInfo(&resized, &moved, &visibilityChanged)) {
        KOR_DEBUG("failed to update window info");
        return;
    }
    const TSD* tsd = getTSD();
    const LocalDisplay pinned = localDisplay();
    Display* const local = pinned.get();
    if (!pbufferNeedsUpdate || tsd == nullptr || local == nullptr || released())
        return;

    if (tsd->currentDrawable != this && tsd->currentReadDrawable != this) {
        updateOffscreenPbuffer();
        return;
    }
    if (!callLocal(system_glXMakeCurrent, local, GLXDrawable{None}, GLXContext{nullptr})) {
        KOR_WARNING("failed to unset context");
        return;
    }
    updateOffscreenPbuffer();
    if (lastContext == nullptr)
        return; // the thread stays unbound
    // The last one on the window may be another thread's, which that thread keeps.
    const GLXContext context =
        tsd->currentContext != nullptr ? tsd->currentContext : lastContext.load();
    const Lock lock(getLocalDisplayMutex());
    const GLXDrawable draw = localDrawable;
    const DrawableInfo* const readRecord = tsd->currentReadDrawable;
    const GLXDrawable read = readRecord != nullptr ? readRecord->localDrawable.load() : None;
    Bool bound = False;
    if (readRecord != nullptr && (draw == None) == (read == None))
        bound = system_glXMakeContextCurrent(local, draw, read, context);
    else if (draw != None)
        bound = system_glXMakeCurrent(local, draw, context); // the read drawable is gone
    else
        return; // a read drawable alone would be an error
    if (!bound)
        KOR_WARNING("failed to restore context");
}

} // namespace kor::gl

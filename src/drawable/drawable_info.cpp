#include "drawable/drawable_info.h"

#include "config/settings.h"
#include "core/thread_end.h"
#include "display/kor_ext.h"
#include "display/local_call.h"
#include "drawable/transport_operations.h"
#include "support/log.h"

namespace kor::gl {

DrawableInfo::DrawableInfo(LocalDrawableType type, unsigned long appDrawable, GLXFBConfig fbconfig,
                           Display* appDisplay, int x, int y, unsigned width, unsigned height)
    : type(type), appDrawable(appDrawable), appDisplay(appDisplay), fbconfig(fbconfig), x_(x),
      y_(y), width_(width), height_(height), statistics(newFrameStatistics()),
      painter(newPainter(appDrawable)) {}

DrawableInfo::~DrawableInfo() {
    release();
}

void DrawableInfo::release() {
    ReadbackContext* leftContext = nullptr;
    XImagePainter* leftPainter = nullptr;
    LocalDisplay local;
    {
        // A frame that is being copied ends first: its thread needs the pbuffer to return to.
        const std::lock_guard frameLock(frameMutex);
        // Under the same lock as a thread that is about to use them (setupReadbackContexts).
        const Lock lock(getLocalDisplayMutex());
        if (released_.exchange(true, std::memory_order_acq_rel))
            return;
        leftContext = readbackContext.exchange(nullptr);
        leftPainter = painter;
        painter = nullptr;
        local = connection_ != nullptr ? LocalDisplay(connection_.get()) : LocalDisplay();
        heldOpen_ = LocalDisplay(); // not the last pin: local has one as long as there is any
    }
    if (leftContext != nullptr)
        unrefReadbackContext(leftContext);
    deletePainter(leftPainter);
    // Of a connection that is closed there is nothing left to release, and none is opened for it.
    if (connection_ == nullptr) {
        const TSD* tsd = knownTSD();
        local = tsd != nullptr ? pinPairOf(tsd->appDisplay) : LocalDisplay();
    }
    if (local)
        releaseLocalObjects(local.get());
    local = LocalDisplay();
    _unsetLocalDisplay(appDisplay);
}

LocalDisplay DrawableInfo::localDisplay() {
    LocalDisplay local = pinLocalDisplay(nullptr);
    if (!local) {
        const Lock lock(getLocalDisplayMutex());
        local = LocalDisplay(connection_.get());
    }
    return local;
}

void DrawableInfo::livesOn(const LocalDisplay& local) {
    if (connection_ != nullptr)
        return;
    connection_ = local.connection();
    if (type == WindowDrawable)
        heldOpen_ = local;
}

void DrawableInfo::releaseLocalObjects(Display* local) {
    constexpr const char* function = "virtual kor::gl::DrawableInfo::~DrawableInfo()";
    const auto debug = [](const char* message) {
        KOR_LOG_AT("KORGL", LogDebug, "DEBUG", function, false, "%s", message);
    };
    KOR_LOG_AT("KORGL", LogDebug, "DEBUG", function, false, "Destroying DrawableInfo %p",
               static_cast<void*>(this));
    const Lock lock(getLocalDisplayMutex());
    // Some drivers crash when drawables go while nothing is current: then they are abandoned.
    if (system_glXGetCurrentContext() == nullptr && !conf::settings().freeDrawablesWithoutContext) {
        debug("destroying ldi without a current context");
        return;
    }
    if (localDrawable != 0) {
        if (type == PixmapDrawable) {
            debug("Destroying local pixmap");
            system_glXDestroyPixmap(local, localDrawable);
        } else {
            debug("Destroying local pbuffer");
            system_glXDestroyPbuffer(local, localDrawable);
        }
        localDrawable = 0;
    }
    if (dummyPbuffer != 0) {
        debug("Destroying dummy pbuffer");
        system_glXDestroyPbuffer(local, dummyPbuffer);
        dummyPbuffer = 0;
    }
    if (readContext != nullptr) {
        debug("Destroying read context");
        system_glXDestroyContext(local, readContext);
        readContext = nullptr;
    }
}

void DrawableInfo::unname() {
    if (names_.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

bool DrawableInfo::updateWindowInfo(bool* resized, bool* moved, bool* visibilityChanged) {
    const TSD* tsd = getTSD();
    if (tsd == nullptr || tsd->appDisplay2 == nullptr || tsd->extCodes == nullptr)
        return false;
    Bool shown = False;
    int visualId = 0;
    int rect[4] = {};
    if (!XKorExtGetWindowInfo(tsd->appDisplay2, tsd->extCodes, appDrawable, &shown, &visualId,
                              rect))
        return false;
    if (!conf::settings().enableVisibilityCheck)
        shown = True;

    const Lock lock(mutex);
    const auto width = static_cast<unsigned>(rect[2]);
    const auto height = static_cast<unsigned>(rect[3]);
    const bool isResized = width != width_ || height != height_;
    if (isResized)
        pbufferNeedsUpdate = true;
    KOR_DEBUG("Pbuffer needs update: %d", static_cast<int>(pbufferNeedsUpdate));
    if (moved != nullptr) {
        *moved = rect[0] != x_ || rect[1] != y_;
        if (*moved)
            KOR_DEBUG("Moved from (%d,%d) to (%d,%d)", x_, y_, rect[0], rect[1]);
    }
    if (resized != nullptr) {
        *resized = isResized;
        if (isResized)
            KOR_DEBUG("Resized from %dx%d to %dx%d", static_cast<int>(width_),
                      static_cast<int>(height_), rect[2], rect[3]);
    }
    x_ = rect[0];
    y_ = rect[1];
    width_ = width;
    height_ = height;
    const bool wasVisible = visible;
    visible = shown && width >= 1 && height >= 1;
    if (visibilityChanged != nullptr) {
        *visibilityChanged = wasVisible != visible;
        if (*visibilityChanged) {
            pbufferNeedsUpdate = true;
            KOR_DEBUG("Became %s", visible ? "visible" : "hidden");
        }
    }
    if (visualID == 0) {
        visualID = static_cast<uint32_t>(visualId);
        KOR_DEBUG("VisualID set to 0x%x", static_cast<unsigned>(visualID));
    }
    return true;
}

void DrawableInfo::incrementFpsCounter(uint64_t nowMs) {
    frameCount = frameCount + 1;
    if (lastFpsReport != 0) {
        const unsigned long long elapsed = nowMs - lastFpsReport;
        if (elapsed <= 5000)
            return;
        KOR_INFO("Produced %d frames in the last %llu ms: average FPS %.3f",
                 static_cast<int>(frameCount), elapsed,
                 frameCount * 1000.0 / static_cast<double>(elapsed));
        frameCount = 0;
    }
    lastFpsReport = nowMs;
}

bool DrawableInfo::isVisible() {
    const Lock lock(mutex);
    return visible;
}

VisualID DrawableInfo::getVisualID() {
    const Lock lock(mutex);
    return visualID;
}

void DrawableInfo::getGeometry(kor::IRect* rect) {
    const Lock lock(mutex);
    *rect = {x_, y_, static_cast<int>(width_), static_cast<int>(height_)};
}

} // namespace kor::gl

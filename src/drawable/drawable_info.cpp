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
    : type(type), appDrawable(appDrawable), appDisplay(appDisplay), x_(x), y_(y), width_(width),
      height_(height), fbconfig_(fbconfig), painter_(newPainter(appDrawable)) {}

DrawableInfo::~DrawableInfo() {
    release();
}

void DrawableInfo::release() {
    ReadbackContext* readbackContext = nullptr;
    XImagePainter* painter = nullptr;
    {
        // Under the same lock as a thread that is about to use them (setupReadbackContexts).
        const Lock lock(getLocalDisplayMutex());
        if (released_.exchange(true, std::memory_order_acq_rel))
            return;
        readbackContext = readbackContext_.exchange(nullptr);
        painter = painter_;
        painter_ = nullptr;
    }
    if (readbackContext != nullptr)
        unrefReadbackContext(readbackContext);
    deletePainter(painter);
    if (Display* local = _getLocalDisplay(nullptr))
        releaseLocalObjects(local);
    _unsetLocalDisplay(appDisplay);
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
    if (dummyPbuffer_ != 0) {
        debug("Destroying dummy pbuffer");
        system_glXDestroyPbuffer(local, dummyPbuffer_);
        dummyPbuffer_ = 0;
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

    const Lock lock(mutex_);
    const auto width = static_cast<unsigned>(rect[2]);
    const auto height = static_cast<unsigned>(rect[3]);
    const bool isResized = width != width_ || height != height_;
    if (isResized)
        pbufferNeedsUpdate_ = true;
    KOR_DEBUG("Pbuffer needs update: %d", static_cast<int>(pbufferNeedsUpdate_));
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
    const bool wasVisible = visible_;
    visible_ = shown && width >= 1 && height >= 1;
    if (visibilityChanged != nullptr) {
        *visibilityChanged = wasVisible != visible_;
        if (*visibilityChanged) {
            pbufferNeedsUpdate_ = true;
            KOR_DEBUG("Became %s", visible_ ? "visible" : "hidden");
        }
    }
    if (visualID_ == 0) {
        visualID_ = static_cast<uint32_t>(visualId);
        KOR_DEBUG("VisualID set to 0x%x", static_cast<unsigned>(visualID_));
    }
    return true;
}

void DrawableInfo::incrementFpsCounter(uint64_t nowMs) {
    frameCount_ = frameCount_ + 1;
    if (lastFpsReport_ != 0) {
        const unsigned long long elapsed = nowMs - lastFpsReport_;
        if (elapsed <= 5000)
            return;
        KOR_INFO("Produced %d frames in the last %llu ms: average FPS %.3f",
                 static_cast<int>(frameCount_), elapsed,
                 frameCount_ * 1000.0 / static_cast<double>(elapsed));
        frameCount_ = 0;
    }
    lastFpsReport_ = nowMs;
}

bool DrawableInfo::isVisible() {
    const Lock lock(mutex_);
    return visible_;
}

VisualID DrawableInfo::getVisualID() {
    const Lock lock(mutex_);
    return visualID_;
}

void DrawableInfo::getGeometry(kor::IRect* rect) {
    const Lock lock(mutex_);
    *rect = {x_, y_, static_cast<int>(width_), static_cast<int>(height_)};
}

} // namespace kor::gl

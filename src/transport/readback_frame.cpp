#include "config/settings.h"
#include "core/process_end.h"
#include "core/system_gl.h"
#include "display/local_call.h"
#include "drawable/drawable_info.h"
#include "support/failures.h"
#include "support/log.h"
#include "support/process.h"
#include "transport/copyback.h"
#include "transport/frame_statistics.h"
#include "transport/readback_context.h"

#include <mutex>
#include <optional>
#include <unistd.h>

namespace kor::gl {

namespace {

/// The application's context and render mode, put back when the frame has been copied.
class ApplicationState {
  public:
    ApplicationState(Display* local, DrawableInfo& record) : local_(local), record_(record) {
        context_ = system_glXGetCurrentContext();
        system_glGetIntegerv(GL_RENDER_MODE, &renderMode_);
    }

    void forceRenderMode(const char* function) {
        if (renderMode_ == GL_RENDER)
            return;
        KOR_LOG_AT("KORGL", LogDebug, "DEBUG", function, false, "forcing render mode");
        system_glRenderMode(GL_RENDER);
    }

    void restore() {
        const Lock lock(getLocalDisplayMutex());
        bindContext();
        if (renderMode_ != GL_RENDER)
            system_glRenderMode(static_cast<GLenum>(renderMode_));
    }

  private:
    static GLXDrawable localOf(const DrawableInfo* record) {
        return record != nullptr ? record->localDrawable.load() : GLXDrawable{None};
    }

    /// A drawable of the thread may have been destroyed since it was made current; a context beside
    /// none would be an error. Under the local display mutex.
    void bindContext() {
        const GLXDrawable shown = localOf(&record_);
        if (shown != None)
            system_glXMakeCurrent(local_, shown, context_);
        // A thread that has other drawables current than the one it swapped gets them back.
        const TSD* tsd = getTSD();
        const GLXDrawable draw = tsd != nullptr ? localOf(tsd->currentDrawable) : None;
        const GLXDrawable read = tsd != nullptr ? localOf(tsd->currentReadDrawable) : None;
        const bool hasOthers = draw != shown || (read != None && read != shown);
        if (context_ != nullptr && draw != None && hasOthers) {
            if (read != None)
                system_glXMakeContextCurrent(local_, draw, read, context_);
            else
                system_glXMakeCurrent(local_, draw, context_);
        } else if (shown == None && system_glXGetCurrentContext() != context_) {
            // All that the thread had is gone. It must not go on in the read context.
            system_glXMakeCurrent(local_, None, nullptr);
        }
    }

    Display* local_;
    DrawableInfo& record_;
    GLXContext context_;
    GLint renderMode_ = GL_RENDER; // stays so where the context has no render modes
};

} // namespace

void DrawableInfo::readback() {
    const TSD* tsd = getTSD();
    if (tsd == nullptr || released())
        return;
    std::optional<OwnRendering> rendering(std::in_place);
    if (!rendering->allowed())
        return;
    const Undisturbed undisturbed; // a context of ours is current meanwhile
    setViewportCheckForResize(true);
    const conf::Settings& settings = conf::settings();
    if (settings.doubleCheckVisible && !isVisible() &&
        !updateWindowInfo(nullptr, nullptr, nullptr)) {
        KOR_DEBUG("failed to update window info");
        return;
    }
    if (settings.noReadback)
        return;
    if (!isVisible()) {
        KOR_DEBUG("window not visible");
        countHiddenFrame();
        return;
    }
    const LocalDisplay local = localDisplay();
    if (!local)
        return;
    IRect rect;
    getGeometry(&rect);
    KOR_DEBUG("ldi %p, geom(%d,%d,%d,%d)", static_cast<void*>(this), rect.x, rect.y, rect.width,
              rect.height);

    std::unique_lock frameLock(frameMutex);
    ApplicationState application(local.get(), *this);
    application.forceRenderMode(__PRETTY_FUNCTION__);
    const OnFailure undo([&] { application.restore(); });
    if (!setupReadbackContexts()) {
        // It is the position that is printed, not the size: kept so.
        KOR_WARNING("Failed to create readback contexts for ldi %p, %dx%d",
                    static_cast<void*>(this), rect.x, rect.y);
        application.restore();
        return;
    }
    // Another thread may end this record in the meantime; its readback context stays for this
    // frame.
    if (ReadbackContext* context = holdReadbackContext()) {
        const OnFailure drop([&] { context->unref(); });
        context->performGPUReadback(rect.width, rect.height);
        context->unref();
        watchForProcessEnd();
    }
    Copyback::instance()->unblock();
    application.restore();
    frameLock.unlock();
    rendering.reset(); // the pause that may follow is not waited for

    incrementFpsCounter(korGetCurrentTime());
    // Unsigned: a clock that was set back makes the elapsed time huge, not the pause.
    const uint64_t elapsed = korGetCurrentTime() - lastReadbackTime;
    const int interval = settings.readbackInterval;
    if (interval > 0 && elapsed < static_cast<uint64_t>(interval))
        usleep(static_cast<useconds_t>((static_cast<uint64_t>(interval) - elapsed) * 1000));
    lastReadbackTime = korGetCurrentTime();
    checkForResize();
    KOR_DEBUG("DONE");
}

void DrawableInfo::countHiddenFrame() {
    if (type != WindowDrawable || !statistics->hidden(appDrawable))
        return;
    IRect rect;
    getGeometry(&rect);
    statistics->sized(rect.width, rect.height);
}

ReadbackContext* DrawableInfo::holdReadbackContext() {
    const Lock lock(getLocalDisplayMutex());
    ReadbackContext* context = readbackContext.load(std::memory_order_acquire);
    if (context != nullptr)
        context->ref();
    return context;
}

void DrawableInfo::copyback(Display* display) {
    if (type != WindowDrawable)
        return;
    ReadbackContext* context = readbackContext.load(std::memory_order_acquire);
    if (context == nullptr) {
        KOR_DEBUG("copyback called before readback context has been set. Ignoring.");
        return;
    }
    context->copyToAppDisplay(display, painter, getVisualID());
}

} // namespace kor::gl

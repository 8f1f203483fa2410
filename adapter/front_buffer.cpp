#include "front_buffer.h"

#include "bound_objects.h"
#include "current_state.h"
#include "driver.h"

namespace kor::adapter {
namespace {

/// A context for one copy, taken from the idle ones of its connection and fbconfig or made anew: no
/// other thread has it meanwhile. It draws to front and reads from back, whatever it was used for.
class HelperContext {
  public:
    HelperContext(Display* display, GLXFBConfig fbconfig) : display_(display), fbconfig_(fbconfig) {
        {
            const std::lock_guard lock(tablesMutex());
            LocalDisplay* local = findLocalDisplay(display);
            if (local) {
                const auto idle = local->idleHelpers.find(fbconfig);
                if (idle != local->idleHelpers.end() && !idle->second.empty()) {
                    context_ = idle->second.back();
                    idle->second.pop_back();
                }
            }
        }
        if (!context_)
            context_ = driver.glXCreateNewContext(display, fbconfig, renderType(), nullptr, True);
    }
    ~HelperContext() {
        if (!context_)
            return;
        {
            const std::lock_guard lock(tablesMutex());
            if (LocalDisplay* local = findLocalDisplay(display_)) {
                local->idleHelpers[fbconfig_].push_back(context_);
                return;
            }
        }
        driver.glXDestroyContext(display_, context_);
    }
    HelperContext(const HelperContext&) = delete;
    HelperContext& operator=(const HelperContext&) = delete;

    GLXContext get() const { return context_; }

  private:
    int renderType() const {
        int types = 0;
        driver.glXGetFBConfigAttrib(display_, fbconfig_, GLX_RENDER_TYPE, &types);
        if (types & GLX_RGBA_BIT)
            return GLX_RGBA_TYPE;
        if (types & GLX_RGBA_FLOAT_BIT_ARB)
            return GLX_RGBA_FLOAT_TYPE_ARB;
        if (types & GLX_RGBA_UNSIGNED_FLOAT_BIT_EXT)
            return GLX_RGBA_UNSIGNED_FLOAT_TYPE_EXT;
        return GLX_RGBA_TYPE;
    }

    Display* display_;
    GLXFBConfig fbconfig_;
    GLXContext context_ = nullptr;
};

void copyBackToFront(Display* display, GLXDrawable drawable, DrawableUse& use) {
    const GLint width = static_cast<GLint>(use.width());
    const GLint height = static_cast<GLint>(use.height());
    const HelperContext helper(display, use.fbconfig());
    if (!helper.get())
        return;
    CurrentState application; // gives the application's context back before the helper goes idle
    // A swap flushes the calling context; the copy comes before the swap and needs it sooner. The
    // change of context may not do it: GL_KHR_context_flush_control.
    if (application.drawsTo(display, drawable))
        driver.glFlush();
    if (!application.change(display, drawable, helper.get()))
        return;
    driver.glReadBuffer(GL_BACK);
    driver.glDrawBuffer(GL_FRONT);
    driver.glBlitFramebuffer(0, 0, width, height, 0, 0, width, height, GL_COLOR_BUFFER_BIT,
                             GL_NEAREST);
    // Other contexts may rely on a finished copy only, not on a flushed one.
    driver.glFinish();
}

[[gnu::noinline]] void copyAndSwap(Display* display, GLXDrawable drawable) {
    DrawableUse use(display, drawable);
    if (use.losesFront())
        copyBackToFront(display, drawable, use);
    driver.glXSwapBuffers(display, drawable);
}

} // namespace

void swapBuffersKeepingFront(Display* display, GLXDrawable drawable) {
    if (noHelpNeeded())
        return driver.glXSwapBuffers(display, drawable);
    copyAndSwap(display, drawable);
}

} // namespace kor::adapter

#include "front_buffer.h"

#include "bound_objects.h"
#include "current_state.h"
#include "driver.h"
#include "helper_context.h"
#include "late_destroy.h"
#include "process_end.h"

namespace kor::adapter {
namespace {

void copyBackToFront(Display* display, GLXDrawable drawable, DrawableUse& use) {
    const GLint width = static_cast<GLint>(use.width());
    const GLint height = static_cast<GLint>(use.height());
    const HelperContext helper(display, use.fbconfig()); // draws to front and reads from back
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
    endRow();
    if (noHelpNeeded() || processEnds())
        return driver.glXSwapBuffers(display, drawable);
    copyAndSwap(display, drawable);
}

} // namespace kor::adapter

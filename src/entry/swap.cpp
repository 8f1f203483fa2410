#include "config/settings.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "drawable/registry.h"
#include "support/failures.h"
#include "support/log.h"

void kor_glXSwapBuffers(Display* dpy, GLXDrawable drawable) try {
    KOR_DEBUG("drawable %lx", drawable);
    if (!_setupAppDisplay(dpy, nullptr) || drawable == None)
        return;
    const kor::gl::DrawableRef record = findLocalDrawable(drawable);
    if (!record) {
        KOR_DEBUG("no local drawable");
        return;
    }
    // A driver that draws over the application's connection sends what waits there along with the
    // frame, and programs that only draw never send it themselves: a window that was just mapped or
    // moved, its title. The frame travels over other connections, and would come before it.
    XFlush(dpy);
    if (record->skipNextSwap) {
        record->skipNextSwap = false;
        return;
    }
    system_glFinish();
    if (record->isDoubleBuffered()) {
        const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(nullptr);
        Display* const local = pinned.get();
        if (local == nullptr) {
            KOR_DEBUG("No local display");
            return;
        }
        {
            const kor::Lock lock(getLocalDisplayMutex());
            system_glXSwapBuffers(local, record->localDrawable);
        }
        // The setting halves the frames of an application that swaps each one twice.
        if (kor::conf::settings().skipDoubleSwap)
            record->skipNextSwap = true;
    }
    if (record->type == kor::gl::WindowDrawable)
        record->readback();
}
KOR_OTHERWISE()

void kor_glXWaitGL() try {
    KOR_DEBUG("START");
    system_glXWaitGL();
}
KOR_OTHERWISE()

void kor_glXWaitX() try {
    KOR_DEBUG("START");
    if (kor::conf::settings().glxwaitxSyncAppDisplay) {
        const kor::gl::TSD* tsd = getTSD();
        if (tsd != nullptr && tsd->appDisplay != nullptr)
            XSync(tsd->appDisplay, False);
    }
    system_glXWaitX();
}
KOR_OTHERWISE()

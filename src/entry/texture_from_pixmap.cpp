#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "drawable/registry.h"
#include "support/failures.h"
#include "support/log.h"

#include <X11/Xutil.h>

namespace {

/// Copies what the application's pixmap shows now to the local one. The drawable to bind, or None
/// when that cannot be done. The caller holds the local display mutex.
GLXDrawable copyToLocalPixmap(Display* dpy, Display* local, kor::gl::DrawableInfo& record,
                              const kor::IRect& rect) {
    const auto width = static_cast<unsigned>(rect.width);
    const auto height = static_cast<unsigned>(rect.height);
    XImage* image = XGetImage(dpy, record.appPixmap, 0, 0, width, height, AllPlanes, ZPixmap);
    if (image == nullptr)
        return None;
    GLXDrawable bound = None;
    if (GC gc = XCreateGC(local, record.localPixmap, 0, nullptr)) {
        XPutImage(local, record.localPixmap, gc, image, 0, 0, 0, 0, width, height);
        bound = record.localDrawable;
        XFreeGC(local, gc);
    }
    XDestroyImage(image);
    return bound;
}

} // namespace

void kor_glXBindTexImageEXT(Display* dpy, GLXDrawable drawable, int buffer,
                            const int* attribList) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return;
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(nullptr);
    Display* const local = pinned.get();
    if (local == nullptr) {
        KOR_DEBUG("no local display");
        return;
    }
    if (system_glXBindTexImageEXT == nullptr)
        return;
    GLXDrawable bound = None;
    const kor::gl::DrawableRef record =
        drawable != None ? findLocalDrawable(drawable) : kor::gl::DrawableRef();
    kor::IRect rect;
    if (record)
        record->getGeometry(&rect);
    else if (drawable != None)
        KOR_DEBUG("local drawable not found");

    const kor::Lock lock(getLocalDisplayMutex());
    if (record)
        bound = copyToLocalPixmap(dpy, local, *record, rect);
    system_glXBindTexImageEXT(local, bound, buffer, attribList);
}
KOR_OTHERWISE()

void kor_glXReleaseTexImageEXT(Display* dpy, GLXDrawable drawable, int buffer) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return;
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(nullptr);
    Display* const local = pinned.get();
    if (local == nullptr) {
        KOR_DEBUG("no local display");
        return;
    }
    if (system_glXReleaseTexImageEXT == nullptr)
        return;
    const kor::gl::DrawableRef record =
        drawable != None ? findLocalDrawable(drawable) : kor::gl::DrawableRef();
    if (!record)
        KOR_DEBUG("local drawable not found");
    const kor::Lock lock(getLocalDisplayMutex());
    system_glXReleaseTexImageEXT(local, record ? record->localDrawable.load() : GLXDrawable{None},
                                 buffer);
}
KOR_OTHERWISE()

#include "entry/copyback_pixmap.h"

#include "display/displays.h"
#include "support/log.h"

#include <X11/Xutil.h>

void copybackPixmap(kor::gl::DrawableInfo& record) {
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(nullptr);
    Display* const local = pinned.get();
    Display* const app = record.appDisplay;
    // Another thread may have ended what this one still has current, the pixmap included.
    if (local == nullptr || app == nullptr || record.released())
        return;
    kor::IRect rect;
    record.getGeometry(&rect);
    KOR_DEBUG("Copying pixmap %d to %d\n (%d,%d %dx%d)", static_cast<int>(record.localPixmap),
              static_cast<int>(record.appPixmap), rect.x, rect.y, rect.width, rect.height);
    const auto width = static_cast<unsigned>(rect.width);
    const auto height = static_cast<unsigned>(rect.height);

    const kor::Lock lock(getLocalDisplayMutex());
    XImage* image = XGetImage(local, record.localPixmap, 0, 0, width, height, AllPlanes, ZPixmap);
    if (image == nullptr)
        return;
    if (GC gc = XCreateGC(app, record.appPixmap, 0, nullptr)) {
        XPutImage(app, record.appPixmap, gc, image, 0, 0, 0, 0, width, height);
        XFreeGC(app, gc);
    }
    XDestroyImage(image);
}

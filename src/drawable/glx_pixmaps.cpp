#include "core/entry_points.h"
#include "display/local_call.h"
#include "drawable/glx_record.h"
#include "support/failures.h"
#include "support/forked_child.h"
#include "support/handle_text.h"
#include "support/log.h"

#include <memory>

using kor::gl::DrawableInfo;
using kor::gl::LocalDisplay;
using kor::gl::LocalVisualInfo;

namespace {

struct PixmapGeometry {
    Window root = None;
    int x = 0;
    int y = 0;
    unsigned width = 0;
    unsigned height = 0;
    unsigned borderWidth = 0;
    unsigned depth = 0;
};

PixmapGeometry geometryOf(Display* dpy, Pixmap pixmap) {
    PixmapGeometry geometry;
    XGetGeometry(dpy, pixmap, &geometry.root, &geometry.x, &geometry.y, &geometry.width,
                 &geometry.height, &geometry.borderWidth, &geometry.depth);
    return geometry;
}

/// The hidden window against which every local pixmap is created: made on the first local
/// connection that needs it, never mapped and never destroyed. It dies with that connection, and is
/// made anew on the next.
struct PixmapParent {
    Window id = None;
    std::shared_ptr<kor::gl::SharedConnection> home;
};
kor::PerProcess<PixmapParent> parentOfPixmaps;

/// The caller holds the local display mutex, under which connections close.
Window pixmapParent(const LocalDisplay& local) {
    auto& [parent, home] = *parentOfPixmaps;
    if (home == nullptr || home->hasEnded()) {
        Display* const display = local.get();
        parent = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 10, 10, 0, 0, 0);
        home = local.connection();
    }
    return parent;
}

/// Makes the local pixmap pair for an application pixmap and registers it under fbconfig. The local
/// X pixmap is never freed, on purpose: the GLX pixmap may outlive its record.
GLXPixmap createPixmap(Display* dpy, const LocalDisplay& local, LocalVisualInfo* mapping,
                       GLXFBConfig chosen, GLXFBConfig fbconfig, Pixmap pixmap,
                       const PixmapGeometry& geometry, const int* attribs) {
    Pixmap localPixmap = None;
    GLXPixmap glxPixmap = None;
    {
        const kor::Lock lock(getLocalDisplayMutex());
        localPixmap = XCreatePixmap(local.get(), pixmapParent(local), geometry.width,
                                    geometry.height, geometry.depth);
        glxPixmap = system_glXCreatePixmap(local.get(), chosen, localPixmap, attribs);
    }
    DrawableInfo* record = nullptr;
    {
        const kor::OnFailure undo(
            [&] { kor::gl::takeBack(local.get(), glxPixmap, system_glXDestroyPixmap); });
        record = new DrawableInfo(kor::gl::PixmapDrawable, glxPixmap, fbconfig, dpy, geometry.x,
                                  geometry.y, geometry.width, geometry.height);
    }
    record->livesOn(local);
    record->localDrawable = glxPixmap;
    record->visualInfo = mapping;
    record->appPixmap = pixmap;
    record->localPixmap = localPixmap;
    pushLocalDrawable(record);
    return glxPixmap;
}

} // namespace

GLXPixmap kor_glXCreatePixmap(Display* dpy, GLXFBConfig config, Pixmap pixmap,
                              const int* attribs) try {
    KOR_DEBUG("fbconfig %x", handleText(config));
    kor::gl::TSD* tsd = getTSD();
    const LocalDisplay local = kor::gl::localDisplayFor(dpy, tsd);
    if (!local)
        return None;
    const PixmapGeometry geometry = geometryOf(dpy, pixmap);
    LocalVisualInfo* mapping = _getLVI(dpy, config, nullptr);
    if (mapping == nullptr) {
        KOR_DEBUG("no lvi.");
        return None;
    }
    bool forced = false;
    const GLXFBConfig chosen = kor::gl::fbconfigFor(*mapping, config, &forced);
    if (forced)
        KOR_DEBUG("forcing fbconfig %x", handleText(chosen));
    return createPixmap(dpy, local, mapping, chosen, config, pixmap, geometry, attribs);
}
KOR_OTHERWISE(None)

GLXPixmap kor_glXCreateGLXPixmap(Display* dpy, XVisualInfo* vis, Pixmap pixmap) try {
    if (vis == nullptr)
        return None;
    KOR_DEBUG("visual id %x", static_cast<unsigned>(vis->visualid));
    kor::gl::TSD* tsd = getTSD();
    const LocalDisplay local = kor::gl::localDisplayFor(dpy, tsd);
    if (!local)
        return None;
    const PixmapGeometry geometry = geometryOf(dpy, pixmap);
    LocalVisualInfo* mapping = _getLVI(dpy, vis->visualid, nullptr);
    if (mapping == nullptr) {
        KOR_DEBUG("FAILED for no lvi.");
        return None;
    }
    const GLXFBConfig chosen = mapping->chosenFbconfig();
    return createPixmap(dpy, local, mapping, chosen, chosen, pixmap, geometry, nullptr);
}
KOR_OTHERWISE(None)

GLXPixmap kor_glXCreateGLXPixmapWithConfigSGIX(Display* dpy, GLXFBConfigSGIX config,
                                               Pixmap pixmap) try {
    KOR_DEBUG("START");
    return kor_glXCreatePixmap(dpy, config, pixmap, nullptr);
}
KOR_OTHERWISE(None)

void kor_glXDestroyPixmap(Display* dpy, GLXPixmap pixmap) try {
    KOR_DEBUG("START");
    if (_setupAppDisplay(dpy, nullptr))
        eraseLocalDrawable(pixmap, kor::gl::PixmapDrawable);
}
KOR_OTHERWISE()

void kor_glXDestroyGLXPixmap(Display* dpy, GLXPixmap pixmap) try {
    KOR_DEBUG("START");
    kor_glXDestroyPixmap(dpy, pixmap);
}
KOR_OTHERWISE()

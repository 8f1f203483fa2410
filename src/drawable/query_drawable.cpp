#include "core/entry_points.h"
#include "display/local_call.h"
#include "drawable/registry.h"
#include "support/failures.h"
#include "support/log.h"

namespace {

void logAttribute(int attribute) {
#define QUERY_DEBUG(...)                                                                           \
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG",                                                    \
               "void kor_glXQueryDrawable(Display*, GLXDrawable, int, unsigned int*)", false,      \
               __VA_ARGS__)
    switch (attribute) {
    case GLX_FBCONFIG_ID:
        QUERY_DEBUG("querying GLX_FBCONFIG_ID");
        break;
    case GLX_PRESERVED_CONTENTS:
        QUERY_DEBUG("querying GLX_PRESERVED_CONTENTS");
        break;
    case GLX_LARGEST_PBUFFER:
        QUERY_DEBUG("querying GLX_LARGEST_PBUFFER");
        break;
    case GLX_WIDTH:
        QUERY_DEBUG("querying GLX_WIDTH");
        break;
    case GLX_HEIGHT:
        QUERY_DEBUG("querying GLX_HEIGHT");
        break;
    default:
        QUERY_DEBUG("querying %d", attribute);
    }
#undef QUERY_DEBUG
}

} // namespace

void kor_glXQueryDrawable(Display* dpy, GLXDrawable drawable, int attribute,
                          unsigned int* value) try {
    KOR_DEBUG("START");
    if (value == nullptr)
        return;
    if (!_setupAppDisplay(dpy, nullptr)) {
        *value = 0;
        return;
    }
    logAttribute(attribute);
    const kor::gl::DrawableRef record = findLocalDrawable(drawable);
    if (!record) {
        system_glXQueryDrawable(dpy, drawable, attribute, value);
        return;
    }
    const kor::gl::LocalDisplay local = kor::gl::pinLocalDisplay(nullptr);
    if (!local) {
        KOR_DEBUG("no local display");
        *value = 0;
        return;
    }
    kor::gl::callLocal(system_glXQueryDrawable, local.get(), record->localDrawable.load(),
                       attribute, value);
}
KOR_OTHERWISE()

int kor_glXQueryGLXPbufferSGIX(Display* dpy, GLXPbufferSGIX pbuffer, int attribute,
                               unsigned int* value) try {
    KOR_DEBUG("START");
    if (value == nullptr)
        return 0;
    if (!_setupAppDisplay(dpy, nullptr)) {
        *value = 0;
        return 0;
    }
    const kor::gl::LocalDisplay local = kor::gl::pinLocalDisplay(nullptr);
    if (!local) {
        KOR_DEBUG("no local display");
        *value = 0;
        return 0;
    }
    const kor::gl::DrawableRef record = findLocalDrawable(pbuffer);
    if (!record || record->type != kor::gl::PbufferDrawable)
        return GLX_BAD_ATTRIBUTE;
    return kor::gl::callLocal(system_glXQueryGLXPbufferSGIX, local.get(), pbuffer, attribute,
                              value);
}
KOR_OTHERWISE(0)

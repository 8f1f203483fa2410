#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"
#include "visual/visual_map.h"

#include <optional>

using kor::Lock;
using kor::gl::LocalVisualInfo;

namespace {

#define ATTRIB_DEBUG(...)                                                                          \
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG",                                                    \
               "int kor_glXGetFBConfigAttrib(Display*, GLXFBConfig, int, int*)", false,            \
               __VA_ARGS__)

void logAttribute(int attribute) {
    if (!kor::logs(kor::LogDebug))
        return;
    switch (attribute) {
#define KOR_FBCONFIG_ATTRIBUTE(attribute, name)                                                    \
    case attribute:                                                                                \
        ATTRIB_DEBUG("%s", name);                                                                  \
        return;
#include "visual/fbconfig_attributes.def"
#undef KOR_FBCONFIG_ATTRIBUTE
    case GLX_VISUAL_ID:
        ATTRIB_DEBUG("GLX_VISUAL_ID");
        return;
    default:
        ATTRIB_DEBUG("Unrecognized attribute %d", attribute);
    }
}

void logCaveat(int caveat) {
    if (caveat == GLX_NONE)
        ATTRIB_DEBUG("GLX_CONFIG_CAVEAT: GL_NONE");
    else if (caveat == GLX_SLOW_CONFIG)
        ATTRIB_DEBUG("GLX_CONFIG_CAVEAT: GLX_SLOW_CONFIG");
    else if (caveat == GLX_NON_CONFORMANT_CONFIG)
        ATTRIB_DEBUG("GLX_CONFIG_CAVEAT: GLX_NON_CONFORMANT_CONFIG");
}

int fbconfigId(Display* local, GLXFBConfig config) {
    int id = 0;
    system_glXGetFBConfigAttrib(local, config, GLX_FBCONFIG_ID, &id);
    return id;
}

/// The application visual that stands for a local visual id, or for the fbconfig itself. The second
/// pass asks the local display under the map's lock alone, as the map's users always did; it is
/// reached only for fbconfigs of a visual that no mapping chose.
std::optional<int> translateVisualId(Display* local, GLXFBConfig config, int localVisualId) {
    const Lock lock(kor::gl::getVisualMapMutex());
    for (const LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        if (mapping->localVisual.visualId == localVisualId)
            return mapping->appVisual.visualId;
    }
    const int wanted = fbconfigId(local, config);
    for (const LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        if (mapping->appVisual.visualId == 0 || mapping->numLocalFbconfigs < 1)
            continue;
        for (int i = 0; i < mapping->numLocalFbconfigs; ++i) {
            if (fbconfigId(local, mapping->localFbconfigs[i]) == wanted)
                return mapping->appVisual.visualId;
        }
    }
    return std::nullopt;
}

} // namespace

int kor_glXGetFBConfigAttrib(Display* dpy, GLXFBConfig config, int attribute, int* value) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return 0; // success, with *value untouched: kept on purpose
    initializeVisualMap(dpy, DefaultScreen(dpy), nullptr);
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(nullptr);
    Display* const local = pinned.get();
    if (local == nullptr) {
        KOR_DEBUG("no local display");
        return 0; // likewise
    }

    logAttribute(attribute);
    int result = 0;
    {
        const Lock lock(getLocalDisplayMutex());
        result = system_glXGetFBConfigAttrib(local, config, attribute, value);
    }
    if (value == nullptr)
        return result;
    KOR_DEBUG("return value %d", *value);
    if (attribute == GLX_CONFIG_CAVEAT) {
        logCaveat(*value);
    } else if (attribute == GLX_VISUAL_ID) {
        if (const std::optional<int> id = translateVisualId(local, config, *value))
            *value = *id;
        else
            KOR_DEBUG("GLX_VISUAL_ID FAILED for visual id %u", static_cast<unsigned>(*value));
    }
    return result;
}
KOR_OTHERWISE(GLX_BAD_VALUE)

int kor_glXGetFBConfigAttribSGIX(Display* dpy, GLXFBConfigSGIX config, int attribute,
                                 int* value) try {
    KOR_DEBUG("START");
    return kor_glXGetFBConfigAttrib(dpy, config, attribute, value);
}
KOR_OTHERWISE(GLX_BAD_VALUE)

XVisualInfo* kor_glXGetVisualFromFBConfig(Display* dpy, GLXFBConfig config) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return nullptr;
    if (!kor::gl::pinLocalDisplay(nullptr)) {
        KOR_DEBUG("no local display");
        return nullptr;
    }
    const LocalVisualInfo* mapping = _getLVI(dpy, config, nullptr);
    if (mapping == nullptr) {
        KOR_DEBUG("no lvi.");
        return nullptr;
    }
    KOR_DEBUG("lvi %p.", static_cast<const void*>(mapping));
    if (mapping->localVisual.visualId == 0 || mapping->appVisual.visualId == 0) {
        KOR_DEBUG("FAILURE!");
        return nullptr;
    }
    XVisualInfo wanted{};
    wanted.visualid = static_cast<uint32_t>(mapping->appVisual.visualId);
    int count = 0;
    XVisualInfo* visual = XGetVisualInfo(dpy, VisualIDMask, &wanted, &count);
    if (visual != nullptr)
        KOR_DEBUG("found visual %x", mapping->appVisual.visualId);
    else
        KOR_DEBUG("cannot find visual %x", mapping->appVisual.visualId);
    return visual;
}
KOR_OTHERWISE(nullptr)

XVisualInfo* kor_glXGetVisualFromFBConfigSGIX(Display* dpy, GLXFBConfigSGIX config) try {
    KOR_DEBUG("START");
    return kor_glXGetVisualFromFBConfig(dpy, config);
}
KOR_OTHERWISE(nullptr)

GLXFBConfigSGIX kor_glXGetFBConfigFromVisualSGIX(Display* dpy, XVisualInfo* /*vis*/) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return nullptr; // unsupported by design
}
KOR_OTHERWISE(nullptr)

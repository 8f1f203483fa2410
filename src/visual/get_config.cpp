#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"
#include "visual/visual_map.h"

using kor::gl::LocalVisualInfo;
using kor::gl::VisualAttribs;

namespace {

struct Answered {
    int attribute;
    int32_t VisualAttribs::*field;
    const char* line;
};

constexpr Answered answeredAttributes[] = {
    {GLX_USE_GL, &VisualAttribs::useGL, "%lx GLX_USE_GL val %x"},
    {GLX_RGBA, &VisualAttribs::rgba, "%lx GLX_RGBA val %x"},
    {GLX_DOUBLEBUFFER, &VisualAttribs::doubleBuffer, "%lx GLX_DOUBLEBUFFER val %x"},
    {GLX_STEREO, &VisualAttribs::stereo, "%lx GLX_STEREO val %x"},
    {GLX_DEPTH_SIZE, &VisualAttribs::depthSize, "%lx GLX_DEPTH_SIZE val %x"},
    {GLX_VISUAL_CAVEAT_EXT, &VisualAttribs::visualCaveat, "%lx GLX_VISUAL_CAVEAT_EXT val %x"},
#define KOR_VISUAL_ATTRIBUTE(attribute, field, request, rejection, answer)                         \
    {attribute, &VisualAttribs::field, answer},
#include "visual/visual_attributes.def"
#undef KOR_VISUAL_ATTRIBUTE
};

const LocalVisualInfo* findMapping(VisualID id) {
    const kor::Lock lock(kor::gl::getVisualMapMutex());
    for (const LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        if (static_cast<VisualID>(static_cast<uint32_t>(mapping->appVisual.visualId)) == id)
            return mapping;
    }
    return nullptr;
}

} // namespace

int kor_glXGetConfig(Display* dpy, XVisualInfo* vis, int attribute, int* value) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr) || vis == nullptr || value == nullptr)
        return GLX_BAD_VALUE;
    KOR_DEBUG("visual id %x", static_cast<unsigned>(vis->visualid));
    initializeVisualMap(dpy, DefaultScreen(dpy), nullptr);
    const LocalVisualInfo* mapping = findMapping(vis->visualid);
    if (mapping == nullptr) {
        KOR_DEBUG("NOT IN CACHE... %lx attrib %x", vis->visualid, attribute);
        return system_glXGetConfig(dpy, vis, attribute, value);
    }
    for (const Answered& answered : answeredAttributes) {
        if (answered.attribute == attribute) {
            *value = mapping->localVisual.*answered.field;
            KOR_DEBUG(answered.line, vis->visualid, *value);
            return 0;
        }
    }
    *value = 0;
    KOR_DEBUG("%lx default val %x", vis->visualid, *value);
    return GLX_BAD_ATTRIBUTE;
}
KOR_OTHERWISE(GLX_BAD_VALUE)

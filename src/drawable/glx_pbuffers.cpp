#include "core/entry_points.h"
#include "display/local_call.h"
#include "drawable/glx_record.h"
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

using kor::gl::DrawableInfo;
using kor::gl::LocalVisualInfo;

namespace {

const char* attributeName(int attribute) {
    switch (attribute) {
    case GLX_PRESERVED_CONTENTS:
        return "GLX_PRESERVED_CONTENTS";
    case GLX_LARGEST_PBUFFER:
        return "GLX_LARGEST_PBUFFER";
    case GLX_PBUFFER_HEIGHT:
        return "GLX_PBUFFER_HEIGHT";
    case GLX_PBUFFER_WIDTH:
        return "GLX_PBUFFER_WIDTH";
    default:
        return "UNKNOWN";
    }
}

/// Registers a pbuffer under the fbconfig that the application passed, whatever it was made with:
/// a later make-current is compared with that one. A pbuffer that could not be made gets a record
/// all the same.
GLXPbuffer registerPbuffer(Display* dpy, const kor::gl::LocalDisplay& local, GLXPbuffer pbuffer,
                           GLXFBConfig config, LocalVisualInfo* mapping) {
    DrawableInfo* record = nullptr;
    {
        const kor::OnFailure undo(
            [&] { kor::gl::takeBack(local.get(), pbuffer, system_glXDestroyPbuffer); });
        record = new DrawableInfo(kor::gl::PbufferDrawable, pbuffer, config, dpy, 0, 0, 100, 100);
    }
    record->livesOn(local);
    record->localDrawable = pbuffer;
    record->visualInfo = mapping;
    pushLocalDrawable(record);
    return pbuffer;
}

} // namespace

GLXPbuffer kor_glXCreatePbuffer(Display* dpy, GLXFBConfig config, const int* attribs) try {
    KOR_DEBUG("fbconfig %x", handleText(config));
    for (const int* pair = attribs; pair != nullptr && *pair != 0; pair += 2)
        KOR_DEBUG("attr, value: %s (%d), %d", attributeName(pair[0]), pair[0], pair[1]);
    kor::gl::TSD* tsd = getTSD();
    const kor::gl::LocalDisplay local = kor::gl::localDisplayFor(dpy, tsd);
    if (!local)
        return None;
    LocalVisualInfo* mapping = _getLVI(dpy, config, tsd);
    if (mapping == nullptr) {
        KOR_DEBUG("no lvi.");
        return None;
    }
    bool forced = false;
    const GLXFBConfig chosen = kor::gl::fbconfigFor(*mapping, config, &forced);
    if (forced)
        KOR_DEBUG("forcing fbconfig %x", handleText(chosen));
    const GLXPbuffer pbuffer =
        kor::gl::callLocal(system_glXCreatePbuffer, local.get(), chosen, attribs);
    return registerPbuffer(dpy, local, pbuffer, config, mapping);
}
KOR_OTHERWISE(None)

GLXPbufferSGIX kor_glXCreateGLXPbufferSGIX(Display* dpy, GLXFBConfigSGIX config, unsigned int width,
                                           unsigned int height, int* attribs) try {
    KOR_DEBUG("fbconfig %x", handleText(config));
    kor::gl::TSD* tsd = getTSD();
    const kor::gl::LocalDisplay local = kor::gl::localDisplayFor(dpy, tsd);
    if (!local)
        return None;
    LocalVisualInfo* mapping = _getLVI(dpy, config, tsd);
    if (mapping == nullptr) {
        KOR_DEBUG("no lvi.");
        return None;
    }
    const GLXPbuffer pbuffer = kor::gl::callLocal(system_glXCreateGLXPbufferSGIX, local.get(),
                                                  config, width, height, attribs);
    return registerPbuffer(dpy, local, pbuffer, config, mapping);
}
KOR_OTHERWISE(None)

void kor_glXDestroyPbuffer(Display* dpy, GLXPbuffer pbuffer) try {
    KOR_DEBUG("START");
    if (_setupAppDisplay(dpy, nullptr))
        eraseLocalDrawable(pbuffer, kor::gl::PbufferDrawable);
}
KOR_OTHERWISE()

void kor_glXDestroyGLXPbufferSGIX(Display* dpy, GLXPbufferSGIX pbuffer) try {
    KOR_DEBUG("START");
    kor_glXDestroyPbuffer(dpy, pbuffer);
}
KOR_OTHERWISE()

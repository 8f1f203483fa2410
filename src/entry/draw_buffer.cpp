#include "config/settings.h"
#include "context/context_map.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "drawable/drawable_info.h"
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

using kor::Lock;
using kor::gl::ContextInfo;
using kor::gl::TSD;

namespace {

const char* bufferName(GLenum mode) {
    switch (mode) {
    case GL_NONE:
        return "NONE";
    case GL_FRONT_LEFT:
        return "FRONT_LEFT";
    case GL_FRONT_RIGHT:
        return "FRONT_RIGHT";
    case GL_BACK_LEFT:
        return "BACK_LEFT";
    case GL_BACK_RIGHT:
        return "BACK_RIGHT";
    case GL_FRONT:
        return "FRONT";
    case GL_BACK:
        return "BACK";
    case GL_LEFT:
        return "LEFT";
    case GL_RIGHT:
        return "RIGHT";
    case GL_FRONT_AND_BACK:
        return "FRONT_AND_BACK";
    default:
        return "unknown";
    }
}

/// What remains to be done once the lock is released.
struct Switch {
    GLenum systemMode; // for the system's glDrawBuffer
    bool frameEnds;    // a front-buffer frame was completed
};

#define BUFFER_DEBUG(...)                                                                          \
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", "void kor_glDrawBuffer(GLenum)", false, __VA_ARGS__)

bool isBack(GLenum buffer) {
    return buffer == GL_BACK_LEFT || buffer == GL_BACK || buffer == GL_BACK_RIGHT;
}

/// Reads the samples that were drawn into the front buffer. The query is not started again: the
/// next switch to a front buffer does that.
GLint finishQuery(const ContextInfo& context) {
    GLint samples = 0;
    BUFFER_DEBUG("mode %x - Finishing query", GL_BACK);
    system_glEndQuery(GL_SAMPLES_PASSED);
    system_glGetQueryObjectiv(context.samplesQuery, GL_QUERY_RESULT, &samples);
    BUFFER_DEBUG("switch from front to back after drawing %d pixels...", samples);
    return samples;
}

/// Records the new mode. The caller holds the context mutex.
Switch record(ContextInfo& context, GLenum mode) {
    const bool queries = kor::conf::settings().useSampleQueries;
    const GLenum old = context.drawBuffer;
    const bool dbf = context.doubleBuffered();
    BUFFER_DEBUG("found context %p (old mode: %s, dbf: %d)", static_cast<void*>(&context),
                 bufferName(old), dbf ? 1 : 0);
    if (queries && context.samplesQuery == 0)
        system_glGenQueries(1, &context.samplesQuery);

    switch (mode) {
    case GL_NONE:
    case GL_FRONT_LEFT:
    case GL_FRONT_RIGHT:
    case GL_FRONT:
    case GL_LEFT:
    case GL_RIGHT:
        context.drawBuffer = mode;
        if (dbf && queries && isBack(old)) {
            BUFFER_DEBUG("mode %x - starting query", mode);
            system_glBeginQuery(GL_SAMPLES_PASSED, context.samplesQuery);
        }
        break;
    case GL_BACK_LEFT:
    case GL_BACK_RIGHT:
    case GL_BACK:
    case GL_FRONT_AND_BACK:
        if (!dbf) {
            // A back buffer that the visual does not have is refused on purpose.
            BUFFER_DEBUG("mode %x - ignoring", mode);
            return {old, false};
        }
        context.drawBuffer = mode;
        break;
    default:
        break;
    }

    const bool leavesFront =
        mode != old && dbf && mode == GL_BACK && (old == GL_FRONT_AND_BACK || old == GL_FRONT);
    if (!leavesFront)
        return {mode, false};
    const GLint samples = queries ? finishQuery(context) : 0;
    return {mode, samples >= 1 || context.forceNextReadback};
}

} // namespace

void kor_glDrawBuffer(GLenum mode) try {
    KOR_DEBUG("START");
    TSD* tsd = getTSD();
    if (tsd == nullptr || tsd->currentContext == nullptr) {
        KOR_DEBUG("no context");
        return;
    }
    KOR_DEBUG("mode %s (0x%x)", bufferName(mode), mode);
    Switch change{};
    {
        const Lock lock(kor::gl::getContextMutex());
        ContextInfo* context = kor::gl::findContext(tsd->currentContext);
        if (context == nullptr) {
            KOR_DEBUG("cannot find context %x in the context map", handleText(tsd->currentContext));
            return;
        }
        if (context->destroyed) {
            KOR_DEBUG("the context %x is already destroyed", handleText(tsd->currentContext));
            return;
        }
        change = record(*context, mode);
    }
    if (change.frameEnds) {
        system_glFinish();
        const kor::gl::DrawableRef drawable(tsd->currentDrawable);
        if (drawable && drawable->type == kor::gl::WindowDrawable)
            drawable->readback();
    }
    system_glDrawBuffer(change.systemMode);
    KOR_DEBUG("DONE");
}
KOR_OTHERWISE()

GLint kor_glRenderMode(GLenum mode) try {
    const char* name = mode == GL_RENDER     ? "GL_RENDER"
                       : mode == GL_SELECT   ? "GL_SELECT"
                       : mode == GL_FEEDBACK ? "GL_FEEDBACK"
                                             : "UNKNOWN";
    KOR_DEBUG("mode: %s (0x%x)", name, mode);
    const TSD* tsd = getTSD();
    if (tsd == nullptr || tsd->currentContext == nullptr) {
        KOR_DEBUG("no context");
        return 0;
    }
    {
        const Lock lock(kor::gl::getContextMutex());
        ContextInfo* context = kor::gl::findContext(tsd->currentContext);
        if (context == nullptr) {
            KOR_DEBUG("cannot find context %x in the context map", handleText(tsd->currentContext));
            return 0;
        }
        if (context->destroyed) {
            KOR_DEBUG("the context %x is already destroyed", handleText(tsd->currentContext));
            return 0;
        }
        context->renderMode = mode;
    }
    return system_glRenderMode(mode);
}
KOR_OTHERWISE(0)

void kor_glPopAttrib() try {
    KOR_DEBUG("START");
    GLint before = 0;
    GLint after = 0;
    system_glGetIntegerv(GL_DRAW_BUFFER, &before);
    system_glPopAttrib();
    system_glGetIntegerv(GL_DRAW_BUFFER, &after);
    // Only reported: the recorded draw buffer is what glDrawBuffer last said.
    if (before != after)
        KOR_INFO("draw buffer changed from %x to %x", static_cast<unsigned>(before),
                 static_cast<unsigned>(after));
}
KOR_OTHERWISE()

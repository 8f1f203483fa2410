#include "config/settings.h"
#include "context/context_map.h"
#include "context/frame_end.h"
#include "core/entry_points.h"
#include "core/process_end.h"
#include "core/system_gl.h"
#include "drawable/drawable_info.h"
#include "entry/copyback_pixmap.h"
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

using kor::gl::ContextInfo;
using kor::gl::TSD;

namespace {

#define FLUSH_DEBUG(...)                                                                           \
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", "void finishOrFlush(void (*)(), kor::gl::TSD*)",   \
               false, __VA_ARGS__)

bool isFront(GLenum buffer) {
    return buffer == GL_FRONT_LEFT || buffer == GL_FRONT || buffer == GL_FRONT_RIGHT;
}

/// True when what is drawn reaches the user's eyes without a swap.
bool drawsVisibly(const ContextInfo& context) {
    if (context.renderMode != GL_RENDER)
        return false;
    return !context.doubleBuffered() || isFront(context.drawBuffer) ||
           context.drawBuffer == GL_FRONT_AND_BACK;
}

/// Tells whether anything was drawn into the front buffer since the last time, and counts on. The
/// first flush of a context whose query nothing began ends a query that does not run and reads 0:
/// it then depends on the flag alone.
bool frontBufferChanged(ContextInfo& context) {
    if (context.samplesQuery == 0)
        system_glGenQueries(1, &context.samplesQuery);
    GLint samples = 0;
    system_glEndQuery(GL_SAMPLES_PASSED);
    system_glGetQueryObjectiv(context.samplesQuery, GL_QUERY_RESULT, &samples);
    FLUSH_DEBUG("draw %x, dbf %d - drawn %d pixels", context.drawBuffer,
                context.doubleBuffered() ? 1 : 0, samples);
    system_glBeginQuery(GL_SAMPLES_PASSED, context.samplesQuery);
    if (samples < 1 && !context.forceNextReadback)
        return false;
    context.forceNextReadback = false;
    return true;
}

enum class FrameEnd { Dropped, No, Yes };

/// Decides under the context mutex, which also covers the query: it is short.
FrameEnd decide(const TSD& tsd) {
    const kor::Lock lock(kor::gl::getContextMutex());
    ContextInfo* context = kor::gl::findContext(tsd.currentContext);
    if (context == nullptr) {
        FLUSH_DEBUG("cannot find context %x in the context map", handleText(tsd.currentContext));
        return FrameEnd::Dropped;
    }
    if (context->destroyed) {
        FLUSH_DEBUG("the context %x is already destroyed", handleText(tsd.currentContext));
        return FrameEnd::Dropped;
    }
    FLUSH_DEBUG("draw %x, dbf %d", context->drawBuffer, context->doubleBuffered() ? 1 : 0);
    if (!drawsVisibly(*context))
        return FrameEnd::No;
    if (kor::conf::settings().useSampleQueries && isFront(context->drawBuffer) &&
        !frontBufferChanged(*context))
        return FrameEnd::No;
    return FrameEnd::Yes;
}

void flushOrFinish(void (*systemFunction)()) {
    TSD* tsd = getTSD();
    if (tsd == nullptr)
        return;
    // Named for the call: the frame may outlast the record's place in the registry.
    const kor::gl::DrawableRef drawable(tsd->currentDrawable);
    if (drawable && drawable->type == kor::gl::WindowDrawable) {
        finishOrFlush(systemFunction, tsd);
        return;
    }
    systemFunction();
    if (drawable && drawable->type == kor::gl::PixmapDrawable &&
        drawable->localPixmap != drawable->appPixmap)
        copybackPixmap(*drawable);
}

} // namespace

void finishOrFlush(void (*systemFunction)(), TSD* tsd) {
    if (tsd->currentContext == nullptr) {
        KOR_DEBUG("no context");
        return; // a flush without a context is dropped on purpose
    }
    if (kor::gl::processEnds()) {
        systemFunction();
        return;
    }
    switch (decide(*tsd)) {
    case FrameEnd::Dropped:
        return;
    case FrameEnd::No:
        systemFunction();
        return;
    case FrameEnd::Yes:
        break;
    }
    const kor::gl::DrawableRef drawable(tsd->currentDrawable);
    if (!drawable)
        return;
    system_glFinish();
    drawable->readback();
}

void kor_glFlush() try {
    KOR_DEBUG("START");
    flushOrFinish(system_glFlush);
}
KOR_OTHERWISE()

void kor_glFinish() try {
    KOR_DEBUG("START");
    flushOrFinish(system_glFinish);
}
KOR_OTHERWISE()

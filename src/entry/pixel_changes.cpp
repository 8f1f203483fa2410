#include "entry/pixel_changes.h"
#include "config/settings.h"
#include "context/context_map.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "drawable/drawable_info.h"
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

void setNonRasterPixelChange() {
    const kor::gl::TSD* tsd = getTSD();
    if (tsd == nullptr || tsd->currentContext == nullptr)
        return;
    const kor::Lock lock(kor::gl::getContextMutex());
    kor::gl::ContextInfo* context = kor::gl::findContext(tsd->currentContext);
    if (context == nullptr)
        KOR_DEBUG("cannot find context");
    else if (context->destroyed)
        KOR_DEBUG("context %x is already destroyed", handleText(tsd->currentContext));
    else
        context->forceNextReadback = true;
}

void kor_glBitmap(GLsizei width, GLsizei height, GLfloat xorig, GLfloat yorig, GLfloat xmove,
                  GLfloat ymove, const GLubyte* bitmap) try {
    KOR_DEBUG("START");
    setNonRasterPixelChange();
    system_glBitmap(width, height, xorig, yorig, xmove, ymove, bitmap);
}
KOR_OTHERWISE()

void kor_glDrawPixels(GLsizei width, GLsizei height, GLenum format, GLenum type,
                      const GLvoid* pixels) try {
    KOR_DEBUG("START");
    setNonRasterPixelChange();
    system_glDrawPixels(width, height, format, type, pixels);
}
KOR_OTHERWISE()

void kor_glCopyPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum type) try {
    KOR_DEBUG("START");
    if (type == GL_COLOR)
        setNonRasterPixelChange();
    system_glCopyPixels(x, y, width, height, type);
}
KOR_OTHERWISE()

void kor_glClear(GLbitfield mask) try {
    KOR_DEBUG("START");
    if ((mask & GL_COLOR_BUFFER_BIT) != 0)
        setNonRasterPixelChange();
    system_glClear(mask);
}
KOR_OTHERWISE()

namespace {

/// An application with queries of its own would be disturbed by ours: no more of them, for the
/// whole process and for good.
void giveUpSampleQueries(const char* function) {
    kor::conf::Settings& settings = kor::conf::settings();
    if (!settings.useSampleQueries)
        return;
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false,
               "disable occlusion query optimization");
    settings.useSampleQueries = false;
}

} // namespace

void kor_glGenQueries(GLsizei n, GLuint* ids) try {
    KOR_DEBUG("START");
    giveUpSampleQueries(__PRETTY_FUNCTION__);
    system_glGenQueries(n, ids);
}
KOR_OTHERWISE()

void kor_glGenQueriesARB(GLsizei n, GLuint* ids) try {
    KOR_DEBUG("START");
    giveUpSampleQueries(__PRETTY_FUNCTION__);
    system_glGenQueriesARB(n, ids);
}
KOR_OTHERWISE()

void kor_glViewport(GLint x, GLint y, GLsizei width, GLsizei height) try {
    KOR_DEBUG("%d %d %d %d", x, y, width, height);
    const kor::gl::TSD* tsd = getTSD();
    if (tsd == nullptr) {
        KOR_DEBUG("no tsd");
        return;
    }
    const kor::gl::DrawableRef drawable(tsd->currentDrawable);
    if (!drawable) {
        KOR_DEBUG("no current drawable");
        return;
    }
    if (drawable->type == kor::gl::WindowDrawable && drawable->getViewportCheckForResize()) {
        drawable->checkForResize();
        if (kor::conf::settings().viewportResizeOptimization)
            drawable->setViewportCheckForResize(false);
    }
    system_glViewport(x, y, width, height);
}
KOR_OTHERWISE()

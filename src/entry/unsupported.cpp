#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/log.h"

// GLX extensions that make no sense across two servers. Each answers as if it did not work; none
// reaches the system's library, but for the two memory calls at the end.

GLXContextID kor_glXGetContextIDEXT(const GLXContext /*ctx*/) {
    KOR_DEBUG("START");
    return 0;
}

int kor_glXBindChannelToWindowSGIX(Display*, int, int, Window) {
    KOR_DEBUG("START");
    return 0;
}

int kor_glXSendPbufferToVideoNV(Display*, GLXPbuffer, int, unsigned long*, GLboolean) {
    KOR_DEBUG("START");
    return 0;
}

int kor_glXReleaseVideoImageNV(Display*, GLXPbuffer) {
    KOR_DEBUG("START");
    return 0;
}

GLboolean kor_glXSet3DfxModeMESA(GLint /*mode*/) {
    KOR_DEBUG("START");
    return 0;
}

int kor_glXGetRefreshRateSGI(unsigned int* /*rate*/) {
    KOR_DEBUG("START");
    return GLX_BAD_CONTEXT;
}

int kor_glXWaitVideoSyncSGI(int, int, unsigned int*) {
    KOR_DEBUG("START");
    return GLX_BAD_CONTEXT;
}

int kor_glXGetVideoSyncSGI(unsigned int* /*count*/) {
    KOR_DEBUG("START");
    return GLX_BAD_CONTEXT;
}

Bool kor_glXResetFrameCountNV(Display*, int) {
    KOR_DEBUG("START");
    return 0;
}

Bool kor_glXQueryFrameCountNV(Display*, int, GLuint* count) {
    KOR_DEBUG("START");
    if (count != nullptr)
        *count = 0;
    return 0;
}

Bool kor_glXQueryMaxSwapGroupsNV(Display*, int, GLuint* maxGroups, GLuint* maxBarriers) {
    KOR_DEBUG("START");
    if (maxGroups != nullptr)
        *maxGroups = 0;
    if (maxBarriers != nullptr)
        *maxBarriers = 0;
    return 1;
}

Bool kor_glXQuerySwapGroupNV(Display*, GLXDrawable, GLuint*, GLuint*) {
    KOR_DEBUG("START");
    return 0;
}

Bool kor_glXBindSwapBarrierNV(Display*, GLuint, GLuint) {
    KOR_DEBUG("START");
    return 0;
}

Bool kor_glXJoinSwapGroupNV(Display*, GLXDrawable, GLuint) {
    KOR_DEBUG("START");
    return 0;
}

int kor_glXQueryContextInfoEXT(Display* dpy, GLXContext, int, int*) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}

int kor_glXQueryChannelRectSGIX(Display* dpy, int, int, int*, int*, int*, int*) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}

int kor_glXQueryChannelDeltasSGIX(Display* dpy, int, int, int*, int*, int*, int*) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}

GLXContext kor_glXImportContextEXT(Display* dpy, GLXContextID) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return nullptr;
}

int kor_glXChannelRectSyncSGIX(Display* dpy, int, int, GLenum) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}

int kor_glXChannelRectSGIX(Display* dpy, int, int, int, int, int, int) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}

void kor_glXFreeContextEXT(Display* dpy, GLXContext) {
    if (_setupAppDisplay(dpy, nullptr))
        KOR_DEBUG("START");
}

void kor_glXGetSelectedEvent(Display* dpy, GLXDrawable, unsigned long*) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}

void kor_glXSelectEvent(Display* dpy, GLXDrawable, unsigned long) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}

void kor_glXGetSelectedEventSGIX(Display* dpy, GLXDrawable, unsigned long*) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}

void kor_glXSelectEventSGIX(Display* dpy, GLXDrawable, unsigned long) {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}

void* kor_glXAllocateMemoryNV(GLsizei size, GLfloat readFrequency, GLfloat writeFrequency,
                              GLfloat priority) {
    KOR_DEBUG("START");
    if (system_glXAllocateMemoryNV == nullptr)
        return nullptr;
    return system_glXAllocateMemoryNV(size, readFrequency, writeFrequency, priority);
}

void kor_glXFreeMemoryNV(void* pointer) {
    KOR_DEBUG("START");
    if (system_glXFreeMemoryNV != nullptr)
        system_glXFreeMemoryNV(pointer);
}

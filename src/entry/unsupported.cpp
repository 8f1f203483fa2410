#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"

// GLX extensions that make no sense across two servers. Each answers as if it did not work; none
// reaches the system's library, but for the two memory calls at the end.

GLXContextID kor_glXGetContextIDEXT(const GLXContext /*ctx*/) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(0)

int kor_glXBindChannelToWindowSGIX(Display*, int, int, Window) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(0)

int kor_glXSendPbufferToVideoNV(Display*, GLXPbuffer, int, unsigned long*, GLboolean) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(0)

int kor_glXReleaseVideoImageNV(Display*, GLXPbuffer) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(0)

GLboolean kor_glXSet3DfxModeMESA(GLint /*mode*/) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(GL_FALSE)

int kor_glXGetRefreshRateSGI(unsigned int* /*rate*/) try {
    KOR_DEBUG("START");
    return GLX_BAD_CONTEXT;
}
KOR_OTHERWISE(0)

int kor_glXWaitVideoSyncSGI(int, int, unsigned int*) try {
    KOR_DEBUG("START");
    return GLX_BAD_CONTEXT;
}
KOR_OTHERWISE(0)

int kor_glXGetVideoSyncSGI(unsigned int* /*count*/) try {
    KOR_DEBUG("START");
    return GLX_BAD_CONTEXT;
}
KOR_OTHERWISE(0)

Bool kor_glXResetFrameCountNV(Display*, int) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(False)

Bool kor_glXQueryFrameCountNV(Display*, int, GLuint* count) try {
    KOR_DEBUG("START");
    if (count != nullptr)
        *count = 0;
    return 0;
}
KOR_OTHERWISE(False)

Bool kor_glXQueryMaxSwapGroupsNV(Display*, int, GLuint* maxGroups, GLuint* maxBarriers) try {
    KOR_DEBUG("START");
    if (maxGroups != nullptr)
        *maxGroups = 0;
    if (maxBarriers != nullptr)
        *maxBarriers = 0;
    return 1;
}
KOR_OTHERWISE(False)

Bool kor_glXQuerySwapGroupNV(Display*, GLXDrawable, GLuint*, GLuint*) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(False)

Bool kor_glXBindSwapBarrierNV(Display*, GLuint, GLuint) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(False)

Bool kor_glXJoinSwapGroupNV(Display*, GLXDrawable, GLuint) try {
    KOR_DEBUG("START");
    return 0;
}
KOR_OTHERWISE(False)

int kor_glXQueryContextInfoEXT(Display* dpy, GLXContext, int, int*) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}
KOR_OTHERWISE(0)

int kor_glXQueryChannelRectSGIX(Display* dpy, int, int, int*, int*, int*, int*) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}
KOR_OTHERWISE(0)

int kor_glXQueryChannelDeltasSGIX(Display* dpy, int, int, int*, int*, int*, int*) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}
KOR_OTHERWISE(0)

GLXContext kor_glXImportContextEXT(Display* dpy, GLXContextID) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return nullptr;
}
KOR_OTHERWISE(nullptr)

int kor_glXChannelRectSyncSGIX(Display* dpy, int, int, GLenum) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}
KOR_OTHERWISE(0)

int kor_glXChannelRectSGIX(Display* dpy, int, int, int, int, int, int) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
    return 0;
}
KOR_OTHERWISE(0)

void kor_glXFreeContextEXT(Display* dpy, GLXContext) try {
    if (_setupAppDisplay(dpy, nullptr))
        KOR_DEBUG("START");
}
KOR_OTHERWISE()

void kor_glXGetSelectedEvent(Display* dpy, GLXDrawable, unsigned long*) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}
KOR_OTHERWISE()

void kor_glXSelectEvent(Display* dpy, GLXDrawable, unsigned long) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}
KOR_OTHERWISE()

void kor_glXGetSelectedEventSGIX(Display* dpy, GLXDrawable, unsigned long*) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}
KOR_OTHERWISE()

void kor_glXSelectEventSGIX(Display* dpy, GLXDrawable, unsigned long) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}
KOR_OTHERWISE()

void* kor_glXAllocateMemoryNV(GLsizei size, GLfloat readFrequency, GLfloat writeFrequency,
                              GLfloat priority) try {
    KOR_DEBUG("START");
    if (system_glXAllocateMemoryNV == nullptr)
        return nullptr;
    return system_glXAllocateMemoryNV(size, readFrequency, writeFrequency, priority);
}
KOR_OTHERWISE(nullptr)

void kor_glXFreeMemoryNV(void* pointer) try {
    KOR_DEBUG("START");
    if (system_glXFreeMemoryNV != nullptr)
        system_glXFreeMemoryNV(pointer);
}
KOR_OTHERWISE()

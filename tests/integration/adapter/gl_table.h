#ifndef KOR_TESTS_ADAPTER_GL_TABLE_H
#define KOR_TESTS_ADAPTER_GL_TABLE_H

#include "core/gl_headers.h"

namespace kor::test {

// Where the adapter may stand before the driver...
#define KOR_TABLE_ADAPTED(X)                                                                       \
    X(glXSwapBuffers)                                                                              \
    X(glXMakeCurrent)                                                                              \
    X(glXMakeContextCurrent)                                                                       \
    X(glXCreatePbuffer)                                                                            \
    X(glXCreateGLXPbufferSGIX)                                                                     \
    X(glXDestroyPbuffer)                                                                           \
    X(glXDestroyGLXPbufferSGIX)                                                                    \
    X(glXCreatePixmap)                                                                             \
    X(glXDestroyPixmap)                                                                            \
    X(glXCreateContextAttribsARB)                                                                  \
    X(glXCreateNewContext)                                                                         \
    X(glXDestroyContext)                                                                           \
    X(glXGetCurrentContext)                                                                        \
    X(glXGetCurrentDisplay)                                                                        \
    X(glXGetCurrentDrawable)                                                                       \
    X(glXGetCurrentReadDrawable)                                                                   \
    X(glXQueryDrawable)                                                                            \
    X(glXChooseFBConfig)                                                                           \
    X(glXGetFBConfigs)                                                                             \
    X(glXGetFBConfigAttrib)                                                                        \
    X(glXGetVisualFromFBConfig)                                                                    \
    X(glXGetProcAddressARB)                                                                        \
    X(glClear)                                                                                     \
    X(glClearColor)                                                                                \
    X(glDisable)                                                                                   \
    X(glEnable)                                                                                    \
    X(glFinish)                                                                                    \
    X(glFlush)                                                                                     \
    X(glGetError)                                                                                  \
    X(glGetIntegerv)                                                                               \
    X(glDrawBuffer)                                                                                \
    X(glReadBuffer)                                                                                \
    X(glReadPixels)                                                                                \
    X(glPixelStorei)                                                                               \
    X(glGenFramebuffers)                                                                           \
    X(glBindFramebuffer)                                                                           \
    X(glGenTextures)                                                                               \
    X(glBindTexture)                                                                               \
    X(glTexImage2D)                                                                                \
    X(glFramebufferTexture2D)                                                                      \
    X(glGenQueries)                                                                                \
    X(glBeginQuery)                                                                                \
    X(glEndQuery)                                                                                  \
    X(glGetQueryObjectiv)
// ... and what only the tests call, from the system.
#define KOR_TABLE_SYSTEM(X)                                                                        \
    X(glScissor)                                                                                   \
    X(glColorMask)                                                                                 \
    X(glIsEnabled)                                                                                 \
    X(glBlitFramebuffer)

/// The functions that the tests call: through the adapter, or directly to see what the driver does
/// without it.
struct GlTable {
#define KOR_TABLE_POINTER(name) decltype(&::name) name = nullptr;
    KOR_TABLE_ADAPTED(KOR_TABLE_POINTER)
    KOR_TABLE_SYSTEM(KOR_TABLE_POINTER)
#undef KOR_TABLE_POINTER
};

/// The system's library, opened by its full path, once.
void* systemHandle();
/// The adapter, opened and initialised with systemHandle(), once.
void* adapterHandle();
/// kor_adapter_local_display of adapterHandle().
void prepareLocalDisplay(Display* display);

const GlTable& directGl();
const GlTable& adaptedGl();

} // namespace kor::test

#endif

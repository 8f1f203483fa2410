#ifndef KOR_BENCH_SUPPORT_GL_LIBRARY_H
#define KOR_BENCH_SUPPORT_GL_LIBRARY_H

#include "core/gl_headers.h"

namespace kor::bench {

// What the measuring programs call.
#define KOR_BENCH_FUNCTIONS(X)                                                                     \
    X(glXChooseFBConfig)                                                                           \
    X(glXChooseVisual)                                                                             \
    X(glXCreateContext)                                                                            \
    X(glXCreateNewContext)                                                                         \
    X(glXCreatePbuffer)                                                                            \
    X(glXGetCurrentContext)                                                                        \
    X(glXGetCurrentDisplay)                                                                        \
    X(glXGetCurrentDrawable)                                                                       \
    X(glXGetCurrentReadDrawable)                                                                   \
    X(glXMakeContextCurrent)                                                                       \
    X(glXMakeCurrent)                                                                              \
    X(glXQueryContext)                                                                             \
    X(glXSwapBuffers)                                                                              \
    X(glActiveTexture)                                                                             \
    X(glAttachShader)                                                                              \
    X(glBegin)                                                                                     \
    X(glBindFramebuffer)                                                                           \
    X(glBindTexture)                                                                               \
    X(glBitmap)                                                                                    \
    X(glBlitFramebuffer)                                                                           \
    X(glClear)                                                                                     \
    X(glClearColor)                                                                                \
    X(glClientWaitSync)                                                                            \
    X(glColor3f)                                                                                   \
    X(glCompileShader)                                                                             \
    X(glCopyTexSubImage2D)                                                                         \
    X(glCreateProgram)                                                                             \
    X(glCreateShader)                                                                              \
    X(glDeleteSync)                                                                                \
    X(glDisable)                                                                                   \
    X(glDrawArrays)                                                                                \
    X(glDrawBuffer)                                                                                \
    X(glEnable)                                                                                    \
    X(glEnd)                                                                                       \
    X(glFenceSync)                                                                                 \
    X(glFinish)                                                                                    \
    X(glFlush)                                                                                     \
    X(glFramebufferTexture)                                                                        \
    X(glGenFramebuffers)                                                                           \
    X(glGenTextures)                                                                               \
    X(glGetError)                                                                                  \
    X(glGetIntegerv)                                                                               \
    X(glGetString)                                                                                 \
    X(glGetUniformLocation)                                                                        \
    X(glLinkProgram)                                                                               \
    X(glPixelStorei)                                                                               \
    X(glPopClientAttrib)                                                                           \
    X(glPushClientAttrib)                                                                          \
    X(glReadBuffer)                                                                                \
    X(glReadPixels)                                                                                \
    X(glShaderSource)                                                                              \
    X(glTexImage2D)                                                                                \
    X(glTexParameteri)                                                                             \
    X(glUniform1f)                                                                                 \
    X(glUniform1i)                                                                                 \
    X(glUseProgram)                                                                                \
    X(glVertex2f)                                                                                  \
    X(glVertex3f)                                                                                  \
    X(glViewport)

/// A GL library, opened beside others in one process, and its functions. Opened for good.
struct GlLibrary {
    void* handle = nullptr; ///< of dlopen
#define KOR_BENCH_POINTER(name) decltype(&::name) name = nullptr;
    KOR_BENCH_FUNCTIONS(KOR_BENCH_POINTER)
#undef KOR_BENCH_POINTER
};

/// The system's library alone. Ends the program when it cannot be had, or when the loader is set up
/// to give ours in its place.
GlLibrary openSystemLibrary();

/// This build's classic front. Not before the system's: both bear the same name, and the loader
/// gives a name to the one that came first.
GlLibrary openClassicFront();

} // namespace kor::bench

#endif

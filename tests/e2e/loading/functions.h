// The few functions that a picture takes, however a program came by them.
#pragma once

// None for GL: a program here has functions of its own by those names.
#define GLX_GLXEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glx.h>
#include <GL/glxext.h>

#define KOR_GLX_FUNCTIONS(X)                                                                       \
    X(glXChooseVisual)                                                                             \
    X(glXCreateContext)                                                                            \
    X(glXMakeCurrent)                                                                              \
    X(glXSwapBuffers)                                                                              \
    X(glXDestroyContext)                                                                           \
    X(glXGetCurrentContext)
#define KOR_GL_FUNCTIONS(X)                                                                        \
    X(glClearColor)                                                                                \
    X(glClear)                                                                                     \
    X(glScissor)                                                                                   \
    X(glEnable)                                                                                    \
    X(glGetError)

namespace kor::loading {

struct Functions {
#define KOR_POINTER(name) decltype(&::name) name = nullptr;
    KOR_GLX_FUNCTIONS(KOR_POINTER)
    KOR_GL_FUNCTIONS(KOR_POINTER)
#undef KOR_POINTER
};

} // namespace kor::loading

// As a linked program has them.
#define KOR_TAKE_LINKED(name) functions.name = &::name;

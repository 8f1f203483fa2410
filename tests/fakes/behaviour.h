#ifndef KOR_TESTS_FAKES_BEHAVIOUR_H
#define KOR_TESTS_FAKES_BEHAVIOUR_H

#include "core/gl_headers.h"

namespace fake {

/// The functions of the list, in its order.
enum class Function {
#define KOR_SYSTEM(name) name,
#define KOR_SYSTEM_AS(name, reported) name,
#define KOR_SYSTEM_OPTIONAL(name) name,
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
};

/// What a function does after it was recorded; the ones that are not specialised here do nothing
/// and return zero.
template <Function> struct Behaviour {};

#define KOR_FAKE(name, result, ...)                                                                \
    template <> struct Behaviour<Function::name> { static result call(__VA_ARGS__); }

// Contexts and drawables.
KOR_FAKE(glXCreateContext, GLXContext, Display*, XVisualInfo*, GLXContext, Bool);
KOR_FAKE(glXCreateNewContext, GLXContext, Display*, GLXFBConfig, int, GLXContext, Bool);
KOR_FAKE(glXCreateContextAttribsARB, GLXContext, Display*, GLXFBConfig, GLXContext, Bool,
         const int*);
KOR_FAKE(glXMakeCurrent, Bool, Display*, GLXDrawable, GLXContext);
KOR_FAKE(glXMakeContextCurrent, Bool, Display*, GLXDrawable, GLXDrawable, GLXContext);
KOR_FAKE(glXGetCurrentContext, GLXContext);
KOR_FAKE(glXGetCurrentDrawable, GLXDrawable);
KOR_FAKE(glXGetCurrentReadDrawable, GLXDrawable);
KOR_FAKE(glXGetCurrentDisplay, Display*);
KOR_FAKE(glXIsDirect, Bool, Display*, GLXContext);
KOR_FAKE(glXCreatePbuffer, GLXPbuffer, Display*, GLXFBConfig, const int*);
KOR_FAKE(glXCreateGLXPbufferSGIX, GLXPbufferSGIX, Display*, GLXFBConfigSGIX, unsigned, unsigned,
         int*);
KOR_FAKE(glXCreatePixmap, GLXPixmap, Display*, GLXFBConfig, Pixmap, const int*);
KOR_FAKE(glXCreateWindow, GLXWindow, Display*, GLXFBConfig, Window, const int*);

// Visuals, fbconfigs and strings.
KOR_FAKE(glXGetConfig, int, Display*, XVisualInfo*, int, int*);
KOR_FAKE(glXChooseFBConfig, GLXFBConfig*, Display*, int, const int*, int*);
KOR_FAKE(glXGetFBConfigAttrib, int, Display*, GLXFBConfig, int, int*);
KOR_FAKE(glXGetVisualFromFBConfig, XVisualInfo*, Display*, GLXFBConfig);
KOR_FAKE(glXQueryExtension, Bool, Display*, int*, int*);
KOR_FAKE(glXQueryVersion, Bool, Display*, int*, int*);
KOR_FAKE(glXQueryExtensionsString, const char*, Display*, int);
KOR_FAKE(glXGetClientString, const char*, Display*, int);
KOR_FAKE(glXQueryServerString, const char*, Display*, int, int);

// GL.
KOR_FAKE(glGetIntegerv, void, GLenum, GLint*);
KOR_FAKE(glGetQueryObjectiv, void, GLuint, GLenum, GLint*);
KOR_FAKE(glGenQueries, void, GLsizei, GLuint*);
KOR_FAKE(glGenQueriesARB, void, GLsizei, GLuint*);
KOR_FAKE(glGenTextures, void, GLsizei, GLuint*);
KOR_FAKE(glGenFramebuffers, void, GLsizei, GLuint*);
KOR_FAKE(glGenBuffers, void, GLsizei, GLuint*);
KOR_FAKE(glGenVertexArrays, void, GLsizei, GLuint*);
KOR_FAKE(glBindFramebuffer, void, GLenum, GLuint);
KOR_FAKE(glCreateShader, GLuint, GLenum);
KOR_FAKE(glCreateProgram, GLuint);
KOR_FAKE(glGetUniformLocation, GLint, GLuint, const GLchar*);
KOR_FAKE(glCheckFramebufferStatus, GLenum, GLenum);
KOR_FAKE(glFenceSync, GLsync, GLenum, GLbitfield);
KOR_FAKE(glClientWaitSync, GLenum, GLsync, GLbitfield, GLuint64);
KOR_FAKE(glPixelStorei, void, GLenum, GLint);
KOR_FAKE(glPushClientAttrib, void, GLbitfield);
KOR_FAKE(glPopClientAttrib, void);
KOR_FAKE(glReadPixels, void, GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, void*);

#undef KOR_FAKE

} // namespace fake

#endif

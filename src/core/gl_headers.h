#ifndef KOR_CORE_GL_HEADERS_H
#define KOR_CORE_GL_HEADERS_H

/// GL, GLX and their extensions with prototypes: only the types of the functions are used. The
/// library never calls GL by symbol name (see system_gl.h).
#ifndef GL_GLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES 1
#endif
#ifndef GLX_GLXEXT_PROTOTYPES
#define GLX_GLXEXT_PROTOTYPES 1
#endif
// Current headers declare this one void; the extension and the drivers give it a result.
#define glXQueryGLXPbufferSGIX glXQueryGLXPbufferSGIX_as_void
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>
#include <GL/glxext.h>
#undef glXQueryGLXPbufferSGIX

extern "C" {
int glXQueryGLXPbufferSGIX(Display* dpy, GLXPbufferSGIX pbuf, int attribute, unsigned int* value);
// No current header declares it any more; some drivers still have it.
int glXGetRefreshRateSGI(unsigned int* rate);
}

#endif

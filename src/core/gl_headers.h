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
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>
#include <GL/glxext.h>

extern "C" {
// No current header declares it any more; some drivers still have it.
int glXGetRefreshRateSGI(unsigned int* rate);
}

#endif

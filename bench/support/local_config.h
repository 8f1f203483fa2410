#ifndef KOR_BENCH_SUPPORT_LOCAL_CONFIG_H
#define KOR_BENCH_SUPPORT_LOCAL_CONFIG_H

#include "support/gl_library.h"

namespace kor::bench {

/// The fbconfig of that id on a display of the system's GL. Ends the program when there is none.
GLXFBConfig configOfId(const GlLibrary& gl, Display* display, int id);

/// A pbuffer of at least 10 x 10, as the library makes them.
GLXPbuffer makePbuffer(const GlLibrary& gl, Display* display, GLXFBConfig config, int width,
                       int height);

/// A direct context that may share another's objects. Ends the program when there is none.
GLXContext makeContext(const GlLibrary& gl, Display* display, GLXFBConfig config, GLXContext share);

} // namespace kor::bench

#endif

#ifndef KOR_ADAPTER_RELEASE_WITHOUT_CONTEXT_H
#define KOR_ADAPTER_RELEASE_WITHOUT_CONTEXT_H

#include "core/gl_headers.h"

namespace kor::adapter {

/// Cause: GLX answers a make-current of a drawable without a context with BadMatch, whose default
/// handler ends the process. The library makes a drawable current with the context that was
/// current before, also when that was none: it means a release, and here it is one.
inline void releaseWithoutContext(GLXContext context, GLXDrawable& draw, GLXDrawable& read) {
    if (__builtin_expect(!context, 0))
        draw = read = None;
}

} // namespace kor::adapter

#endif

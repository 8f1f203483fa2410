#ifndef KOR_ADAPTER_FRONT_BUFFER_H
#define KOR_ADAPTER_FRONT_BUFFER_H

#include "core/gl_headers.h"

namespace kor::adapter {

/// Cause: a driver that does not keep a pbuffer's front buffer across a swap (Mesa's software
/// rasterisers, 22.3: a second context then reads black from GL_FRONT). The library reads every
/// frame from the front buffer, with a context of its own, after the swap.
///
/// Swaps the buffers of a drawable, and where the driver forgets, copies back to front just before:
/// in a helper context, so that neither the state nor the version of the application's context
/// matters. Any thread; the calling thread's current context and drawables are what they were.
void swapBuffersKeepingFront(Display* display, GLXDrawable drawable);

} // namespace kor::adapter

#endif

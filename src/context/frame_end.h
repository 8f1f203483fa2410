#ifndef KOR_CONTEXT_FRAME_END_H
#define KOR_CONTEXT_FRAME_END_H

#include "core/tsd.h"

/// Ends a frame that the thread has drawn into what its user sees, and transports it; otherwise
/// calls systemFunction (system_glFlush or system_glFinish). Without a usable current context
/// neither happens. Implemented in entry/flush.cpp; called with no lock held.
void finishOrFlush(void (*systemFunction)(), kor::gl::TSD* tsd);

#endif

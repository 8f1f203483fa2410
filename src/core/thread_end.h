#ifndef KOR_CORE_THREAD_END_H
#define KOR_CORE_THREAD_END_H

#include <X11/Xlib.h>

/// What the end of a thread's record and of the library asks of higher floors. Implemented in
/// display/local_display.cpp, context/ended_contexts.cpp, drawable/drawable_names.cpp and
/// transport/copyback.cpp.

namespace kor::gl {
class TSD;

/// Notes that the thread that has the current context is gone.
void leaveContextBehind(const TSD& tsd);

/// Takes the thread's two drawable fields back, so that the records may go.
void dropCurrentDrawables(TSD& tsd);

/// Asks the copyback thread to end, and waits for it, a second at most. When the process ends no
/// thread is made for that.
void stopCopyback();
} // namespace kor::gl

/// Closes the local connection of an application display when the settings allow it and nothing
/// uses it any more. Null is ignored.
void _unsetLocalDisplay(Display* appDpy);

#endif

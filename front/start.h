#ifndef KOR_FRONT_START_H
#define KOR_FRONT_START_H

#include "open_libraries.h"

/// The classic front: what an application loads in place of the system's libGL.so.1.
///
/// It exports every function that the system's library exports (symbols.def), each as one jump
/// through a slot (stubs_*.S). The first call of each function finds no target in its slot and
/// comes to resolve.cpp, which looks the target up, once: the entry point of libGL_KOR.so if that
/// has one of the name (core/entry_points.def), else the system's own function. From then on the
/// front is a jump and nothing else.
///
/// The first call of all, on whichever thread, starts the front (below): the system's library is
/// found by its path and opened, then libGL_KOR.so and the adapter, which lie beside this library,
/// and kor_init is called, once per process. A process that never calls GL or GLX loads none of
/// them. Closing the front before it was started removes it; once started, all of it stays mapped
/// until the process ends, since slots, threads and connections refer to it. (That leaves nothing
/// to do for the setting "disable-kor-gl-unload": the library is never unloaded.)
///
/// What the libraries cannot know is done here as well: connections.cpp keeps X errors on the
/// library's own connections from ending an application that handles none, and the exit of the
/// process stops the library's threads (setting "cleanup-atexit").
namespace kor::front {

/// Returns true when the front is started, after having started it or waited for another thread to
/// do so. Returns false on the thread that is just starting it: a call from within the start.
bool ensureStarted();

/// What the start has opened. Complete, and never changed again, once ensureStarted() has returned
/// true; on the starting thread, what it has opened so far.
const Libraries& libraries();

} // namespace kor::front

#endif

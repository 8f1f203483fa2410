#ifndef KOR_FRONT_START_H
#define KOR_FRONT_START_H

#include "open_libraries.h"

/// How a front starts, whichever it is: once per process, on the thread of its first call, whatever
/// else is going on. From then on all of it stays mapped until the process ends, since threads,
/// connections and what calls were routed to refer to it. Closing a front before it was started
/// removes it. (That leaves nothing to do for the setting "disable-kor-gl-unload": the library is
/// never unloaded.) A child that is forked meanwhile is born after the start.
///
/// What the libraries cannot know is done here as well: connections.cpp keeps X errors on the
/// library's own connections from ending an application that handles none, and the exit of the
/// process stops the library's threads (setting "cleanup-atexit").
namespace kor::front {

/// Returns true when the front is started, after having started it or waited for another thread to
/// do so. Returns false on the thread that is just starting it: a call from within the start.
bool ensureStarted();

/// True when the front is started; starts nothing.
bool isStarted();

/// What the start has opened. Complete, and never changed again, once ensureStarted() has returned
/// true; on the starting thread, what it has opened so far.
const Libraries& libraries();

/// Defined by each front: opens what it routes calls to, in libraries(), with the steps below.
void start(Libraries& opened);

/// False when the environment must not name what is loaded; the library's own variables are then
/// removed from it.
bool trustEnvironment();

/// The library while it is not in use yet.
struct KorLibrary {
    void* handle = nullptr;
    void (*init)(void*) = nullptr;
};

/// Finds what a front calls in the library of that handle (null is ignored); says so when it is not
/// there. False then.
bool findKor(KorLibrary& library, void* handle);

/// True when this front may use the library. False when another one in this process does already:
/// calls that come here must not reach it a second time.
bool claimKor(const KorLibrary& library);

/// Starts the library on the driver that this handle leads to, once opened.adapter is there if it
/// is to be; from then on opened.kor is set.
void startKor(const KorLibrary& library, void* driver);

} // namespace kor::front

#endif

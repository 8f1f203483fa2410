#ifndef KOR_DISPLAY_DISPLAYS_H
#define KOR_DISPLAY_DISPLAYS_H

#include "core/thread_end.h"
#include "core/tsd.h"
#include "display/shared_connection.h"
#include "support/mutex.h"

#include <X11/Xlib.h>

/// The pairing of application displays with connections to the local display (the GPU's).
/// Everywhere a null tsd means the calling thread's.

/// Makes the thread ready to work on the application's dpy: notes it, opens the thread's own
/// connection to its server and brings up "KOR-V1" there, at the thread's first call. False when
/// the thread cannot work on it; ends the process with status 20 when the server lacks the
/// extension. A later switch to another dpy does not reopen the connection, which is intended.
bool _setupAppDisplay(Display* dpy, kor::gl::TSD* tsd);

/// The local connection of the thread's application display, opened at the first call and shared by
/// all threads; null when it cannot be had. Owned by the map, which may close it at any time: what
/// makes calls on it pins it instead, with the next one.
Display* _getLocalDisplay(kor::gl::TSD* tsd);

namespace kor::gl {

/// The same, and it stays open for as long as the result lives. None as well when the display that
/// the thread worked on was closed meanwhile.
LocalDisplay pinLocalDisplay(TSD* tsd);

/// The local connection that is open for an application display; none where there is none.
LocalDisplay pinPairOf(Display* appDpy);

/// Both of the above, as most entry points begin: the local connection for a call on dpy, or none
/// when the thread cannot work on dpy or there is none.
inline LocalDisplay localDisplayFor(Display* dpy, TSD* tsd) {
    return _setupAppDisplay(dpy, tsd) ? pinLocalDisplay(tsd) : LocalDisplay();
}

/// Takes the pair of an application display apart, whatever the settings say. The local connection
/// is closed when nothing else is paired with it and nothing has it pinned; with no lock held.
void unpairAppDisplay(Display* appDpy);

/// From now on the end of that application display ends what the library has made for it.
void watchAppDisplay(Display* appDpy);

} // namespace kor::gl

/// Held around every Xlib and GLX call on a local connection, for that call only.
kor::Mutex& getLocalDisplayMutex();

/// True when both connections lead to the same X server and screen, as far as their names tell.
bool korIsSameXDisplay(Display* a, Display* b);

#endif

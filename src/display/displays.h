#ifndef KOR_DISPLAY_DISPLAYS_H
#define KOR_DISPLAY_DISPLAYS_H

#include "core/thread_end.h"
#include "core/tsd.h"
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
/// all threads; null when it cannot be had. Owned by the map.
Display* _getLocalDisplay(kor::gl::TSD* tsd);

/// Both of the above, as most entry points begin: the local connection for a call on dpy, or null
/// when the thread cannot work on dpy or there is none.
inline Display* localDisplayFor(Display* dpy, kor::gl::TSD* tsd) {
    return _setupAppDisplay(dpy, tsd) ? _getLocalDisplay(tsd) : nullptr;
}

/// Held around every Xlib and GLX call on a local connection, for that call only.
kor::Mutex& getLocalDisplayMutex();

namespace kor::gl {

/// Keeps the local connection of an application display open for the object's life, whatever the
/// calling thread deletes meanwhile. When something was deleted, the connection is closed at the
/// end, unless it is still used. For whoever deletes records and still has a call to make on it.
class LocalDisplayHold {
  public:
    explicit LocalDisplayHold(Display* appDpy);
    ~LocalDisplayHold();
    LocalDisplayHold(const LocalDisplayHold&) = delete;
    LocalDisplayHold& operator=(const LocalDisplayHold&) = delete;

    /// True when the calling thread's innermost hold is on that display; it then closes at its end.
    static bool putsOff(Display* appDpy);

  private:
    const Undisturbed undisturbed_; // left last: the chain of holds must not outlive a longjmp
    LocalDisplayHold* outer_;
    Display* held_;
    bool putOff_ = false;
};

} // namespace kor::gl

/// True when both connections lead to the same X server and screen, as far as their names tell.
bool korIsSameXDisplay(Display* a, Display* b);

#endif

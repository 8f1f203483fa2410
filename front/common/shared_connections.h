#ifndef KOR_FRONT_SHARED_CONNECTIONS_H
#define KOR_FRONT_SHARED_CONNECTIONS_H

#include <X11/Xlib.h>

namespace kor::front {

/// Cause: a context, a pbuffer or an fbconfig of one connection is nothing to the driver on another
/// one, while the library gives every application display a connection of its own and uses a
/// window's pbuffer on whichever of them a thread works. So all of them get the same connection to
/// the local display, until the last of its users gives it back.

/// The connection that is open already to the display that this one leads to, with one user more;
/// the given one is closed then. Null when there is none yet. A null display asks for any.
Display* shareOpenConnection(Display* display);

/// Lets others share a connection that is ready for use, and returns the one to be used: another
/// thread may have been quicker, whose connection it then is.
Display* offerForSharing(Display* display);

/// Takes a user away. True when it was the last one, so that the connection is to be closed.
bool isLastUserGone(Display* display);

} // namespace kor::front

#endif

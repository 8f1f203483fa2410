#ifndef KOR_ADAPTER_ID_RANGE_H
#define KOR_ADAPTER_ID_RANGE_H

#include <X11/Xlib.h>

namespace kor::adapter {

/// Cause: every X server numbers its clients' resources from the same bases, so that an
/// application's window on one server and a pbuffer of ours on another easily bear the same id, and
/// the library, which finds its records by id, takes one for the other.
///
/// Moves the connection's ids to the upper half of its range, where those of an application come
/// only after a million others. To be called while the connection is the calling thread's
/// own. About 6 ms; it must be tried again for every new connection. A connection that makes more
/// ids than half a range is given the free ones by its server, wherever they are.
void moveIdsToUpperHalf(Display* display);

} // namespace kor::adapter

#endif

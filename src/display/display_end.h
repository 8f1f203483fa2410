#ifndef KOR_DISPLAY_DISPLAY_END_H
#define KOR_DISPLAY_DISPLAY_END_H

#include "core/tsd.h"

#include <X11/Xlib.h>

/// What the end of an application display asks of higher floors, in the order in which it is asked,
/// on the thread that closes the display and with no lock held. Implemented in
/// context/ended_contexts.cpp and drawable/ended_drawables.cpp.
namespace kor::gl {

/// The ids that a connection may have made.
struct IdRange {
    XID base;
    XID mask;
    bool contains(XID id) const { return (id & ~mask) == base; }
};

/// Takes the thread's current context away if it, or a drawable of it, belongs to that display.
void leaveCurrentOf(TSD& tsd, Display* appDpy);

/// Ends the records of the drawables of that display. A window that another client has made
/// outlives the display: if another thread has it current its record stays, and belongs to none.
void endDrawablesOf(Display* appDpy, const IdRange& created);

/// Destroys the contexts of that display; those that are current in another thread go when they are
/// left.
void endContextsOf(Display* appDpy);

} // namespace kor::gl

#endif

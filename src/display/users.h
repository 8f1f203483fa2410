#ifndef KOR_DISPLAY_USERS_H
#define KOR_DISPLAY_USERS_H

#include <X11/Xlib.h>

/// Who still needs the local connection of an application display. Implemented in
/// context/context_map.cpp and drawable/registry.cpp; each takes its own lock.
namespace kor::gl {

/// True when a context record was made for that application display.
bool anyContextUses(Display* appDpy);

/// True when a window's drawable record belongs to that application display.
bool anyWindowDrawableUses(Display* appDpy);

} // namespace kor::gl

#endif

#ifndef KOR_DISPLAY_KOR_EXT_H
#define KOR_DISPLAY_KOR_EXT_H

#include "support/export.h"

#include <X11/Xlib.h>

/// The client of the application display's X extension "KOR-V1", in the manner of an Xlib extension
/// library: any thread, one exchange at a time under the connection's own lock, failures are false
/// results. An X error in reply to a request makes it fail and reaches no error handler.
extern "C" {

/// Asks whether the server has the extension: *present and the result say so.
KOR_EXPORT Bool XKorExtQueryExtension(Display* dpy, Bool* present);

/// The name of the display that drives the GPU, as the server knows it: a heap copy in *name (the
/// caller frees it). False when the server knows none; true with *name untouched when it answers
/// with an empty name.
KOR_EXPORT Bool XKorExtGetGLDisplay(Display* dpy, XExtCodes* codes, char** name);

/// Position on the root window and size in pixels (rect: x, y, width, height), visual and
/// visibility of a window. visible may be null. False for a window that the server does not know.
KOR_EXPORT Bool XKorExtGetWindowInfo(Display* dpy, XExtCodes* codes, Window win, Bool* visible,
                                     int* visualId, int* rect);
}

#endif

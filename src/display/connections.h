#ifndef KOR_DISPLAY_CONNECTIONS_H
#define KOR_DISPLAY_CONNECTIONS_H

#include "support/export.h"

#include <X11/Xlib.h>

namespace kor::gl {

/// What a connection that the library opened for itself is for.
enum ConnectionRole {
    SecondaryConnection = 0, // to the application display, one per thread
    LocalConnection = 1,     // to the local display
    CopybackConnection = 2,  // the copyback thread's, to the application display
    FontConnection = 3,      // to the application display, for one font look-up
};

/// XOpenDisplay, followed by the connection hook. Null when the display cannot be opened. The
/// caller owns the connection.
Display* openConnection(const char* name, ConnectionRole role);

/// XCloseDisplay, or what the connection end hook does in its place.
void closeConnection(Display* display, ConnectionRole role);

} // namespace kor::gl

extern "C" {
/// Names a function to be called for each connection that the library opens for itself: on the
/// opening thread, before anything else is done with the connection; role is a ConnectionRole. The
/// library uses the connection that the function returns, usually the one it was given. It is also
/// called, with null, when there is none to be had, and may know of one. For the front library,
/// which prepares the connection (error handling, the driver's peculiarities). To be set before
/// kor_init; null for none.
KOR_EXPORT void kor_set_connection_hook(Display* (*hook)(Display* display, int role));

/// When the application may be told of an X error that the calling thread has just come upon.
enum kor_error_moment {
    /// Now: the thread holds no lock of the library.
    KOR_ERROR_NOW = 0,
    /// When the thread holds none any more: afterwards is then called on it, once, however often it
    /// was given. It is the same function at every call.
    KOR_ERROR_AFTERWARDS = 1,
    /// Now, to the handler that is installed: it was put in place since the thread took its first
    /// lock, so it is none of the application's, but waits for this very error.
    KOR_ERROR_EXPECTED = 2,
};
KOR_EXPORT enum kor_error_moment kor_when_to_tell_error(void (*afterwards)());

/// Names a function that is called in the place of XCloseDisplay for each connection to the local
/// display that the library has no more use for, as often as the connection hook has returned it:
/// for a front whose connection hook gives one connection several times. Any thread. To be set
/// before kor_init; null for none.
KOR_EXPORT void kor_set_connection_end_hook(void (*hook)(Display* display, int role));
}

#endif

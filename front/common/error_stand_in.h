#ifndef KOR_FRONT_ERROR_STAND_IN_H
#define KOR_FRONT_ERROR_STAND_IN_H

#include <X11/Xlib.h>

namespace kor::front {

/// What a connection of the library's is used for, as far as its errors are concerned.
enum class Errors {
    OfWindows, // whatever it asks for is asked of the application's windows
    OfOthers,
};

/// Finds what the library has for the two things below; without it all errors are told at once, and
/// those of windows as all others.
void useErrorTools(void* korLibrary);

/// Stands before the error handlers of the application, and in for those that it has not got, on
/// one connection that the library opened for itself (and on no other).
///
/// X errors: an error handler of the application's own gets them, with the numbers that they came
/// with, whenever it was installed. One that the library comes upon while it holds locks, or while
/// its work is half done, is told afterwards, on the same thread: the handler may use GLX, end the
/// process or leave by longjmp. While the application has no handler, Xlib's own would end the
/// process; then the error is dropped, and the first one in the process is reported on stderr. The
/// process-wide handler is not touched.
///
/// A window may vanish before its frame is painted. No program knows of the requests that meet
/// with errors then, so no handler is told of them; the first one is noted in the log.
///
/// A broken connection: an I/O error handler of the application's own is told, as ever; while it
/// has none, Xlib's own would end the process, which is prevented, and the first is reported. Here
/// the process-wide handler does change: Xlib's default is replaced by one that calls it for every
/// other connection. Afterwards requests on the connection are dropped and what waits for a reply
/// returns at once; XNextEvent must not be called on it any more (Xlib 1.8 crashes). Whether the
/// application lives on with a broken local display is then up to the driver: Mesa's software
/// rasteriser takes the size of its drawable from a failed XGetGeometry and may crash (Mesa 22.3).
/// The application's own connections end it when they break, as ever.
///
/// Called on the thread that has just opened the connection; undone by itself when it is closed.
void standInForErrors(Display* display, Errors errors);

} // namespace kor::front

#endif

#ifndef KOR_FRONT_ERROR_STAND_IN_H
#define KOR_FRONT_ERROR_STAND_IN_H

#include <X11/Xlib.h>

namespace kor::front {

/// Stands in for the error handlers that an application has not got, on one connection that the
/// library opened for itself (and on no other).
///
/// X errors: an error handler of the application's own gets them, exactly as without the front,
/// whenever it was installed. While the application has none, Xlib's own would end the process, for
/// instance because a window vanished before a frame was painted into it; then the error is
/// dropped, and the first one in the process is reported on stderr. The process-wide handler is not
/// touched.
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
void standInForErrors(Display* display);

} // namespace kor::front

#endif

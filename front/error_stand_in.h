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
/// A broken connection: Xlib tells the application's I/O error handler or prints its own line, as
/// ever, but does not end the process afterwards; the first is reported. Further requests on the
/// connection are dropped and what waits for a reply gets none. The application's own connections
/// still end it when they break.
///
/// Called on the thread that has just opened the connection; undone by itself when it is closed.
void standInForErrors(Display* display);

} // namespace kor::front

#endif

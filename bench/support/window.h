#ifndef KOR_BENCH_SUPPORT_WINDOW_H
#define KOR_BENCH_SUPPORT_WINDOW_H

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <string>

namespace kor::bench {

/// Opens a display; ends the program when it cannot.
Display* openDisplay(const std::string& name);

/// A window of that visual that is on the screen, at (x, y), in pixels.
Window makeWindow(Display* display, const XVisualInfo& visual, int x, int y, int width, int height);

/// What glXChooseVisual is asked for: a plain double-buffered visual with depth.
extern int windowAttributes[];

/// From now on the errors that a software driver earns with its own image requests are passed over
/// (BadMatch; the pixels are right all the same). Any other X error ends the program.
void passOverPutErrors();

} // namespace kor::bench

#endif

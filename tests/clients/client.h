// What the clients share: a display, windows and contexts made the ordinary way, and the check that
// a window shows what was drawn. A client is an ordinary GLX program: nothing here knows whether it
// runs on the system's GL library or on another.
#pragma once

#include "picture.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#define GL_GLEXT_PROTOTYPES
#define GLX_GLXEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/glx.h>
#include <GL/glxext.h>

#include <string>

namespace kor::client {

// Prints what was expected and ends the process with status 1.
[[noreturn]] void fail(const std::string& what);

inline void require(bool holds, const std::string& what) {
    if (!holds)
        fail(what);
}

// $DISPLAY, or the process ends with status 1.
Display* openDisplay();

// "WxH" into width and height; ends the process when it reads otherwise.
void parseSize(const char* text, int& width, int& height);

enum class Buffering { Single, Double };

// A visual of the default screen with 8 bits each of red, green and blue and of depth 24, free with
// XFree.
XVisualInfo* chooseVisual(Display* display, Buffering buffering);

// A configuration of the same kind for the drawable types in `drawableBits` (GLX_WINDOW_BIT, ...).
// Windows are wanted with a visual of depth 24.
GLXFBConfig chooseConfig(Display* display, Buffering buffering, int drawableBits);

// A mapped window that has been exposed: what is drawn from now on stays.
Window createWindow(Display* display, const XVisualInfo* visual, const Rectangle& place);

// The same without waiting for the exposure, for windows that come up covered or stay unmapped.
Window createUnmappedWindow(Display* display, const XVisualInfo* visual, const Rectangle& place);

// Bounded waits (10 s) for the window's events; the process ends when they do not come. mapWindow
// waits for the first exposure.
void mapWindow(Display* display, Window window);
void unmapWindow(Display* display, Window window);
void resizeWindow(Display* display, Window window, int width, int height);
void waitForEvent(Display* display, Window window, int type);

// A direct context of the visual, not sharing.
GLXContext createContext(Display* display, XVisualInfo* visual);

void makeCurrent(Display* display, GLXDrawable drawable, GLXContext context);

// True when the drawable's pixels in `area` become those of the picture within a bounded time
// (15 s, or $KOR_CLIENT_PATIENCE seconds); otherwise tells on stderr, after `what`, where they
// differ. Reads the drawable through `display` alone, no GL is involved.
bool shows(Display* display, Drawable drawable, const Picture& picture, const Rectangle& area,
           const std::string& what);

// The same for the whole picture; the process ends with status 1 when it is not shown.
void requireShown(Display* display, Drawable drawable, const Picture& picture,
                  const std::string& what);
void requireShown(Display* display, Drawable drawable, const Picture& picture,
                  const Rectangle& area, const std::string& what);

// As requireShown, and the picture is still there a moment later: nothing stale is painted over it.
void requireStays(Display* display, Drawable drawable, const Picture& picture,
                  const std::string& what);

// Prints "<name>: passed" and returns 0, the client's exit status.
int passed(const char* name);

} // namespace kor::client

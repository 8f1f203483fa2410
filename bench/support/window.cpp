#include "support/window.h"

#include "support/comparison.h"

#include <GL/glx.h>
#include <X11/Xproto.h>

namespace kor::bench {

int windowAttributes[] = {
    GLX_RGBA, GLX_DOUBLEBUFFER, GLX_RED_SIZE, 8,   GLX_GREEN_SIZE, 8, GLX_BLUE_SIZE,
    8,        GLX_DEPTH_SIZE,   24,           None};

namespace {

int onError(Display* display, XErrorEvent* error) {
    if (error->error_code == BadMatch &&
        (error->request_code == X_PutImage || error->request_code >= 128))
        return 0;
    char text[200];
    XGetErrorText(display, error->error_code, text, sizeof text);
    fail(std::string("X error on ") + DisplayString(display) + ": " + text + ", request " +
         std::to_string(error->request_code));
}

} // namespace

Display* openDisplay(const std::string& name) {
    Display* display = XOpenDisplay(name.c_str());
    if (display == nullptr)
        fail("cannot open display " + name);
    return display;
}

Window makeWindow(Display* display, const XVisualInfo& visual, int x, int y, int width,
                  int height) {
    XSetWindowAttributes attributes{};
    const Window root = RootWindow(display, visual.screen);
    attributes.colormap = XCreateColormap(display, root, visual.visual, AllocNone);
    attributes.event_mask = ExposureMask;
    const Window window =
        XCreateWindow(display, root, x, y, static_cast<unsigned>(width),
                      static_cast<unsigned>(height), 0, visual.depth, InputOutput, visual.visual,
                      CWBorderPixel | CWColormap | CWEventMask, &attributes);
    XMapWindow(display, window);
    XEvent event;
    XWindowEvent(display, window, ExposureMask, &event);
    return window;
}

void passOverPutErrors() {
    XSetErrorHandler(onError);
}

} // namespace kor::bench

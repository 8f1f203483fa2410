#include "core/entry_points.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"

// A GLX window needs no local object: the record of the X window is made when it becomes current
// and goes when the window does.

GLXWindow kor_glXCreateWindow(Display* dpy, GLXFBConfig /*config*/, Window win,
                              const int* /*attribs*/) try {
    KOR_DEBUG("START");
    return _setupAppDisplay(dpy, nullptr) ? win : 0;
}
KOR_OTHERWISE(None)

void kor_glXDestroyWindow(Display* dpy, GLXWindow /*window*/) try {
    KOR_DEBUG("START");
    _setupAppDisplay(dpy, nullptr);
}
KOR_OTHERWISE()

#ifndef KOR_FRONT_VENDOR_APP_DISPLAYS_H
#define KOR_FRONT_VENDOR_APP_DISPLAYS_H

#include <X11/Xlib.h>

#include <string>

namespace kor::front {

/// Whether a display is one that this front serves: its server has KOR-V1. One exchange with the
/// server. Notes the first such display's name. Any thread.
bool isAppDisplay(Display* display);

/// The name of the display that drives the GPU, as the library itself will find it: by its setting,
/// else from the application's server (over a short-lived connection), else ":0.0". korLibrary: its
/// dlopen handle.
std::string localDisplayName(void* korLibrary);

} // namespace kor::front

#endif

#ifndef KOR_ADAPTER_VENDOR_NAMES_H
#define KOR_ADAPTER_VENDOR_NAMES_H

#include <X11/Xlib.h>

#include <string>
#include <vector>

namespace kor::adapter {

/// The name of our own vendor library.
constexpr const char* ourVendor = "kor";

/// The names of the vendors whose libraries a display's server asks to be tried, in their order;
/// empty when it has no GLX or names none. One exchange with the server; no error of it reaches an
/// error handler.
std::vector<std::string> askVendorNames(Display* display, int screen);

} // namespace kor::adapter

#endif

#ifndef KOR_ADAPTER_NO_DISPLAY_H
#define KOR_ADAPTER_NO_DISPLAY_H

#include "driver.h"

namespace kor::adapter {

/// Cause: the library asks the driver about GLX without a display when the application does so, and
/// when there is no local display. Drivers and the vendor-neutral dispatch crash on it.
template <auto function> struct WithDisplay;
template <typename Result, typename... Arguments,
          Result (*Driver::*function)(Display*, Arguments...)>
struct WithDisplay<function> {
    /// The driver's answer; none, 0, when there is no display.
    static Result ask(Display* display, Arguments... arguments) {
        return display ? (driver.*function)(display, arguments...) : Result{};
    }
};

} // namespace kor::adapter

#endif

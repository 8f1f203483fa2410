#include "e2e/window_info.h"

#include "display/kor_ext_protocol.h"
#include "support/comparison.h"

#include <X11/Xlibint.h>
#undef min
#undef max

namespace protocol = kor::gl::protocol;

namespace kor::bench {

WindowInfo::WindowInfo(Display* display) : m_display(display) {
    int event = 0;
    int error = 0;
    if (!XQueryExtension(display, protocol::extensionName, &m_major, &event, &error))
        fail(std::string(DisplayString(display)) + " is no Xkor display");
}

bool WindowInfo::ask(Window window) {
    Display* dpy = m_display;
    LockDisplay(dpy);
    auto* request = static_cast<protocol::GetWindowInfoRequest*>(
        _XGetRequest(dpy, protocol::KorExtGetWindowInfo, sizeof(protocol::GetWindowInfoRequest)));
    request->majorOpcode = static_cast<uint8_t>(m_major);
    request->window = static_cast<uint32_t>(window);
    protocol::GetWindowInfoReply reply{};
    const bool known =
        _XReply(dpy, reinterpret_cast<xReply*>(&reply), 0, xTrue) != 0 && reply.status != 0;
    UnlockDisplay(dpy);
    SyncHandle();
    return known;
}

} // namespace kor::bench

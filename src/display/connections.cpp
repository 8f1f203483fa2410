#include "display/connections.h"

#include <atomic>

namespace {

std::atomic<void (*)(Display*, int)> connectionHook{nullptr};

} // namespace

void kor_set_connection_hook(void (*hook)(Display* display, int role)) {
    connectionHook.store(hook);
}

namespace kor::gl {

Display* openConnection(const char* name, ConnectionRole role) {
    Display* display = XOpenDisplay(name);
    if (display != nullptr) {
        if (auto hook = connectionHook.load())
            hook(display, role);
    }
    return display;
}

} // namespace kor::gl

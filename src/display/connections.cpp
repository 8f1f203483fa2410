#include "display/connections.h"

#include <atomic>

namespace {

std::atomic<Display* (*)(Display*, int)> connectionHook{nullptr};

} // namespace

void kor_set_connection_hook(Display* (*hook)(Display* display, int role)) {
    connectionHook.store(hook);
}

namespace kor::gl {

Display* openConnection(const char* name, ConnectionRole role) {
    Display* display = XOpenDisplay(name);
    auto hook = connectionHook.load();
    return hook != nullptr ? hook(display, role) : display;
}

} // namespace kor::gl

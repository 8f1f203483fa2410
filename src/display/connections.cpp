#include "display/connections.h"

#include "support/undisturbed.h"

#include <atomic>

namespace {

std::atomic<Display* (*)(Display*, int)> connectionHook{nullptr};
std::atomic<void (*)(Display*, int)> connectionEndHook{nullptr};

} // namespace

void kor_set_connection_hook(Display* (*hook)(Display* display, int role)) {
    connectionHook.store(hook);
}

kor_error_moment kor_when_to_tell_error(void (*afterwards)()) {
    if (!kor::Undisturbed::active())
        return KOR_ERROR_NOW;
    if (!kor::Undisturbed::handlerIsTheSame())
        return KOR_ERROR_EXPECTED;
    kor::Undisturbed::afterwards(afterwards);
    return KOR_ERROR_AFTERWARDS;
}

void kor_set_connection_end_hook(void (*hook)(Display* display, int role)) {
    connectionEndHook.store(hook);
}

namespace kor::gl {

Display* openConnection(const char* name, ConnectionRole role) {
    Display* display = XOpenDisplay(name);
    auto hook = connectionHook.load();
    return hook != nullptr ? hook(display, role) : display;
}

void closeConnection(Display* display, ConnectionRole role) {
    if (auto hook = connectionEndHook.load())
        hook(display, role);
    else
        XCloseDisplay(display);
}

} // namespace kor::gl

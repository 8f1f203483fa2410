#include "connections.h"

#include "error_stand_in.h"
#include "shared_connections.h"
#include "support/forked_child.h"

#include <X11/Xlib.h>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace kor::front {

namespace {

// kor::gl::ConnectionRole of display/connections.h
constexpr int secondaryConnection = 0;
constexpr int localConnection = 1;
constexpr int copybackConnection = 2;

void (*adapterLocalDisplay)(Display*) = nullptr;
void (*driverIsThere)() = nullptr;

/// The name of the display that the application works on: the first one that the library opened a
/// connection of its own to. Never freed.
std::atomic<char*> applicationDisplay{nullptr};

std::atomic<bool> driverTold{false}; // that it is there

/// A child may work on another display, and ends by itself.
InForkedChild forgetParents([] {
    applicationDisplay = nullptr;
    driverTold = false;
});

Bool (*askGlDisplay)(Display*, XExtCodes*, char**) = nullptr;

/// Cause: while a program holds a grab of the server (XGrabServer), the server answers its other
/// connections only if it has seen that they use the library's extension. What the program swaps
/// meanwhile would wait for the copyback thread, and that for the end of the grab.
void useExtension(Display* display) {
    XExtCodes* const codes = askGlDisplay == nullptr ? nullptr : XInitExtension(display, "KOR-V1");
    char* name = nullptr;
    if (codes != nullptr)
        askGlDisplay(display, codes, &name);
    free(name);
}

void noteApplicationDisplay(Display* display) {
    if (applicationDisplay.load() != nullptr)
        return;
    char* name = strdup(DisplayString(display));
    char* none = nullptr;
    if (!applicationDisplay.compare_exchange_strong(none, name))
        free(name);
}

/// Cause: the copyback thread opens the default display, $DISPLAY. An application that was given
/// another one (-display NAME) would have its frames painted there: nowhere, or into a stranger's
/// window that happens to have the same id.
Display* onApplicationDisplay(Display* display) {
    const char* name = applicationDisplay.load();
    if (name == nullptr || (display != nullptr && strcmp(DisplayString(display), name) == 0))
        return display;
    Display* right = XOpenDisplay(name);
    if (right == nullptr)
        return display;
    if (display != nullptr)
        XCloseDisplay(display);
    return right;
}

Display* onConnection(Display* display, int role) {
    if (role == localConnection) {
        if (Display* shared = shareOpenConnection(display))
            return shared;
    }
    if (role == copybackConnection) {
        driverIsThere();
        display = onApplicationDisplay(display);
    }
    if (display == nullptr)
        return nullptr;
    if (role == secondaryConnection)
        noteApplicationDisplay(display);
    if (role == copybackConnection)
        useExtension(display);
    standInForErrors(display, role == secondaryConnection || role == copybackConnection
                                  ? Errors::OfWindows
                                  : Errors::OfOthers);
    // After that, so that what the adapter knows of errors on this connection is asked first.
    if (role == localConnection && adapterLocalDisplay != nullptr) {
        adapterLocalDisplay(display);
        if (!driverTold.exchange(true))
            driverIsThere();
    }
    return role == localConnection ? offerForSharing(display) : display;
}

void onConnectionEnd(Display* display, int /*role*/) {
    if (isLastUserGone(display))
        XCloseDisplay(display);
}

} // namespace

void prepareConnections(void* korLibrary, void* adapter, void (*driverLoaded)()) {
    driverIsThere = driverLoaded;
    useErrorTools(korLibrary);
    askGlDisplay =
        reinterpret_cast<decltype(askGlDisplay)>(dlsym(korLibrary, "XKorExtGetGLDisplay"));
    if (adapter != nullptr)
        adapterLocalDisplay =
            reinterpret_cast<void (*)(Display*)>(dlsym(adapter, "kor_adapter_local_display"));
    using Hook = Display*(Display*, int);
    auto* setHook = reinterpret_cast<void (*)(Hook*)>(dlsym(korLibrary, "kor_set_connection_hook"));
    using EndHook = void(Display*, int);
    auto* setEndHook =
        reinterpret_cast<void (*)(EndHook*)>(dlsym(korLibrary, "kor_set_connection_end_hook"));
    if (setHook == nullptr || setEndHook == nullptr)
        return;
    setEndHook(onConnectionEnd);
    setHook(onConnection);
}

} // namespace kor::front

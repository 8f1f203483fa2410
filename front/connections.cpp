#include "connections.h"

#include "error_stand_in.h"

#include <X11/Xlib.h>
#include <dlfcn.h>

namespace kor::front {

namespace {

constexpr int localConnection = 1; // kor::gl::LocalConnection of display/connections.h

void (*adapterLocalDisplay)(Display*) = nullptr;

void onConnection(Display* display, int role) {
    standInForErrors(display);
    // After that, so that what the adapter knows of errors on this connection is asked first.
    if (role == localConnection && adapterLocalDisplay != nullptr)
        adapterLocalDisplay(display);
}

} // namespace

void prepareConnections(void* korLibrary, void* adapter) {
    if (adapter != nullptr)
        adapterLocalDisplay =
            reinterpret_cast<void (*)(Display*)>(dlsym(adapter, "kor_adapter_local_display"));
    using Hook = void(Display*, int);
    auto* setHook = reinterpret_cast<void (*)(Hook*)>(dlsym(korLibrary, "kor_set_connection_hook"));
    if (setHook != nullptr)
        setHook(onConnection);
}

} // namespace kor::front

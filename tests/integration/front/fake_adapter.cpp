// An adapter that adapts nothing, and tells what the front gave it.
#include <X11/Xlib.h>
#include <cstdlib>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {
void* system_ = nullptr;
Display* localDisplay = nullptr;
} // namespace

EXPORT bool kor_adapter_init(void* handle) {
    system_ = handle;
    return getenv("FAKE_ADAPTER_REFUSES") == nullptr;
}

EXPORT void kor_adapter_local_display(Display* display) {
    localDisplay = display;
}

EXPORT void* fake_adapter_system() {
    return system_;
}
EXPORT Display* fake_adapter_display() {
    return localDisplay;
}

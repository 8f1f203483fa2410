#include "support/undisturbed.h"

#include <X11/Xlib.h>
#include <utility>

extern "C" {
extern XErrorHandler _XErrorFunction; // the handler in use, process-wide
}

namespace kor {

namespace {

auto installedHandler() {
    return reinterpret_cast<void (*)()>(_XErrorFunction);
}

} // namespace

constinit thread_local Undisturbed::State Undisturbed::state{};

void Undisturbed::noteHandler() {
    state.handler = installedHandler();
}

bool Undisturbed::handlerIsTheSame() {
    return state.handler == installedHandler();
}

void Undisturbed::callAfterwards() {
    std::exchange(state.afterwards, nullptr)();
}

} // namespace kor

#include "display/displays.h"
#include "support/failures.h"
#include "support/forked_child.h"

#include <X11/Xlibint.h>
#undef min
#undef max

// What a fork has to do with libraries that others keep locks in: a child that was born while a
// thread of ours was inside them would wait for that thread for ever.

namespace {

/// The driver's locks, which threads of ours take under the local display mutex. A thread that
/// forks inside of a call of its own has the mutex itself and goes on after that time.
constexpr unsigned longestWait = 200; // milliseconds

thread_local bool holdsLocalDisplay = false;

void beforeFork() try { holdsLocalDisplay = getLocalDisplayMutex().lockWithin(longestWait); }
KOR_OTHERWISE()

void afterForkInParent() {
    if (holdsLocalDisplay)
        getLocalDisplayMutex().unlockWithin();
    holdsLocalDisplay = false;
}

__attribute__((constructor)) void watchForks() {
    pthread_atfork(beforeFork, afterForkInParent, nullptr);
}

/// Xlib's lock over what all connections share. Painting takes it for an instant in every frame.
kor::InForkedChild renewXlibLock([] {
    holdsLocalDisplay = false;
    if (_Xglobal_lock != nullptr && _XCreateMutex_fn != nullptr)
        _XCreateMutex_fn(_Xglobal_lock);
});

} // namespace

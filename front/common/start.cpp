#include "start.h"

#include "connections.h"
#include "environment.h"
#include "own_place.h"
#include "report.h"

#include <X11/Xlib.h>
#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

namespace kor::front {

namespace {

Libraries opened;
std::atomic<bool> started{false};
std::atomic<pthread_t> startingThread{}; // the thread inside start(); 0 for none

// Held for the whole start. Taken after the dynamic linker's lock, never before it (see
// kor_front_start); fork() takes it too, so that no child is born halfway through a start that only
// the parent will finish.
pthread_mutex_t startMutex = PTHREAD_MUTEX_INITIALIZER;

void (*korFini)() = nullptr;
void (*korProcessEnds)() = nullptr;
bool stopsAtExit = false;            // as the settings say
std::atomic<bool> stopWanted{false}; // there is something to stop
std::atomic<pid_t> endingProcess{0}; // the one where something of ours is

bool startsHere() {
    return startingThread.load(std::memory_order_relaxed) == pthread_self();
}

template <typename Function> Function* find(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

/// A child that was forked after the start inherits the handlers below, but neither the library's
/// threads nor a right to its connections.
void stopAtExit() {
    // It is a child, too, when it was made by other means than fork().
    if (getpid() == endingProcess && stopWanted.exchange(false))
        korFini();
}

void endBegins() {
    if (getpid() == endingProcess && korProcessEnds != nullptr)
        korProcessEnds();
}

/// Handlers run in the reverse order of their registration, destructors of libraries among them. So
/// one that was registered once the driver was there tells the end before the driver ends; what the
/// application registered earlier runs after both, and may still call GLX. The driver registers
/// further ones while it works, and what takes time at the exit must come before those, since other
/// threads may still render: therefore more than one. In a child that renders the end is its own.
void noteEndAheadOfDriver() {
    endingProcess = getpid();
    stopWanted = stopsAtExit;
    atexit(endBegins);
}

void startOnce() {
    pthread_mutex_lock(&startMutex);
    if (!started.load(std::memory_order_relaxed)) {
        startingThread.store(pthread_self(), std::memory_order_relaxed);
        start(opened);
        started.store(true, std::memory_order_release);
        startingThread.store(0, std::memory_order_relaxed);
    }
    pthread_mutex_unlock(&startMutex);
}

void beforeFork() {
    if (!startsHere())
        pthread_mutex_lock(&startMutex);
}

void afterFork() {
    if (!startsHere())
        pthread_mutex_unlock(&startMutex);
}

void afterForkInChild() {
    stopWanted = false;
    afterFork();
}

/// When the front is loaded. Does nothing that a process without GL would have to pay for.
__attribute__((constructor)) void load() {
    noteOwnPlace();
    // Before version 1.8 Xlib is not safe for threads unless it is told to be, ahead of every other
    // call of Xlib: the library shares connections between threads. Later versions have done it by
    // themselves by now, and do nothing here.
    XInitThreads();
    pthread_atfork(beforeFork, afterFork, afterForkInChild);
}

} // namespace

bool ensureStarted() {
    if (started.load(std::memory_order_acquire))
        return true;
    if (startsHere())
        return false;
    // From here on this library stays. The symbol is looked up for the sake of what happens
    // meanwhile, see below.
    void* self = dlopen(ownPlace().loadedAs, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    if (self == nullptr || dlsym(self, "kor_front_start") == nullptr)
        startOnce();
    return true;
}

const Libraries& libraries() {
    return opened;
}

bool isStarted() {
    return started.load(std::memory_order_acquire);
}

bool trustEnvironment() {
    if (!hasRaisedPrivileges())
        return true;
    removeVariables("KOR_GL_"); // settings from there name files to write and displays to use
    return false;
}

bool findKor(KorLibrary& library, void* handle) {
    library.handle = handle;
    if (handle == nullptr)
        return false;
    library.init = find<void(void*)>(handle, "kor_init");
    korFini = find<void()>(handle, "kor_fini");
    korProcessEnds = find<void()>(handle, "kor_process_ends");
    if (library.init != nullptr && korFini != nullptr)
        return true;
    report("the library beside this one has no kor_init or no kor_fini, so that it is none of this "
           "front's. This process uses the system's OpenGL alone.");
    return false;
}

bool claimKor(const KorLibrary& library) {
    auto* claim = find<int(const void*)>(library.handle, "kor_claim_process");
    return claim == nullptr || claim(&opened) != 0;
}

void startKor(const KorLibrary& library, void* driver) {
    prepareConnections(library.handle, opened.adapter, noteEndAheadOfDriver);
    library.init(driver);
    // Not before: what calls GL during the start goes to the system.
    opened.kor = library.handle;

    // A handler, not a destructor: it runs before the destructors of anything that was loaded
    // earlier, the library's own included.
    auto* setting = find<int(const char*)>(opened.kor, "kor_wrapper_setting");
    if (setting == nullptr || setting("cleanup-atexit") != 0) {
        stopsAtExit = true;
        endingProcess = getpid();
        stopWanted = true;
        atexit(stopAtExit);
    }
}

} // namespace kor::front

namespace {
void nothing() {}
} // namespace

extern "C" {

/// The start opens libraries and looks symbols up, for which it needs the dynamic linker's lock. A
/// thread whose first GL call is made by a library's constructor has that lock already: if it had
/// to wait for a start on another thread, both would wait for ever. So the start takes the linker's
/// lock first: a symbol of this type is resolved by a function that dlsym calls under its lock, and
/// that function is the start. Whoever has to wait for the start waits in dlsym.
__attribute__((used)) static void (*kor_front_resolve_start())() {
    kor::front::startOnce();
    return nothing;
}

__attribute__((visibility("default"), ifunc("kor_front_resolve_start"))) void kor_front_start();
}

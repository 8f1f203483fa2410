// The linker sends every call of these functions that this program's objects make to __wrap_NAME
// (see CMakeLists.txt).
#include "interposed.h"

#include <X11/Xlibint.h>
#include <X11/Xutil.h>
#undef min
#undef max
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <netdb.h>
#include <new>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace kor::test {

Fault initExtension, openDisplay;
Fault createGc, getVisualInfo, createImage, getImage;
Fault shmQueryExtension, shmCreateImage, shmAttach, shmPutImage;
Fault shmGet, shmAt;
Fault queryFont, getFontProperty, getAtomName, loadQueryFont;
Fault setSpecific, keyCreate;
std::atomic<size_t> failingAllocation{0};
std::atomic<size_t> throwingAllocation{0};
std::atomic<int> allocationsToFailure{0};
thread_local bool countsAllocations = gettid() != getpid();
std::atomic<bool> queryFontWithoutProperties{false};
std::atomic<VisualID> visualIdGiven{0};
std::vector<int> depthsGiven;
std::vector<Visual> visualsGiven;
std::atomic<Visual*> visualOfImage{nullptr};
std::atomic<bool> visualsOfEveryScreen{false};
std::atomic<int64_t> timeOfDay{-1};
std::function<void(Display*)> beforeCreateImage;
std::function<void(XShmSegmentInfo*)> beforeShmAttach;
std::function<void(Display*)> beforeCloseDisplay;
std::function<void(const std::string&)> onCall;
const std::map<std::string, Host>* resolver;
const char* hostName;
std::vector<std::string> lookups;
std::atomic<void (*)(pthread_mutex_t*)> afterLock{nullptr};
std::atomic<void (*)(pthread_mutex_t*)> beforeUnlock{nullptr};

namespace {

std::mutex recordMutex;
std::atomic<bool> recording{false};
std::vector<std::string> calls;

struct Sleep {
    pid_t thread;
    unsigned microseconds;
};
std::vector<Sleep> sleeps; // guarded by recordMutex, too

/// True for the allocation that has to fail.
bool failsNow() {
    return allocationsToFailure.load(std::memory_order_relaxed) > 0 && countsAllocations &&
           allocationsToFailure.fetch_sub(1) == 1;
}

void note(const std::string& call) {
    if (onCall)
        onCall(call);
    const std::lock_guard lock(recordMutex);
    if (recording)
        calls.push_back(call);
}

// Makes no text that nobody wants: its memory would count as the library's.
#define NOTE(call)                                                                                 \
    do {                                                                                           \
        if (recording || onCall)                                                                   \
            note(call);                                                                            \
    } while (false)

std::string text(const char* name, const std::string& argument) {
    return std::string(name) + "(" + argument + ")";
}

/// The answer in the form of the resolver's; valid until the next one.
hostent* answer(const std::string& asked) {
    static Host host;
    static std::vector<char*> aliases;
    static hostent entry;
    lookups.push_back(asked);
    const auto found = resolver->find(asked);
    if (found == resolver->end())
        return nullptr;
    host = found->second;
    aliases.clear();
    for (std::string& alias : host.aliases)
        aliases.push_back(alias.data());
    aliases.push_back(nullptr);
    entry.h_name = host.name.data();
    entry.h_aliases = aliases.data();
    return &entry;
}

} // namespace

void record() {
    const std::lock_guard lock(recordMutex);
    recording = true;
    calls.clear();
}

std::vector<std::string> recorded() {
    const std::lock_guard lock(recordMutex);
    return calls;
}

std::vector<unsigned> sleepsOf(pid_t thread) {
    const std::lock_guard lock(recordMutex);
    std::vector<unsigned> lengths;
    for (const Sleep& sleep : sleeps)
        if (sleep.thread == thread)
            lengths.push_back(sleep.microseconds);
    return lengths;
}

/// Defines __wrap_NAME for a function that gives failure when it strikes.
#define FAILING(result, name, fault, failure, parameters, arguments)                               \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters {                                                              \
        NOTE(#name);                                                                               \
        if ((fault).strikes())                                                                     \
            return failure;                                                                        \
        return __real_##name arguments;                                                            \
    }

// Visible, since the linker takes references of shared libraries for references to these.
#pragma GCC visibility push(default)

extern "C" {

FAILING(XExtCodes*, XInitExtension, initExtension, nullptr, (Display * display, const char* name),
        (display, name))
FAILING(Display*, XOpenDisplay, openDisplay, nullptr, (const char* name), (name))
FAILING(GC, XCreateGC, createGc, nullptr,
        (Display * display, Drawable drawable, unsigned long mask, XGCValues* values),
        (display, drawable, mask, values))
FAILING(XImage*, XGetImage, getImage, nullptr,
        (Display * display, Drawable drawable, int x, int y, unsigned width, unsigned height,
         unsigned long mask, int form),
        (display, drawable, x, y, width, height, mask, form))
FAILING(Bool, XShmQueryExtension, shmQueryExtension, False, (Display * display), (display))
FAILING(XImage*, XShmCreateImage, shmCreateImage, nullptr,
        (Display * display, Visual* visual, unsigned depth, int form, char* data,
         XShmSegmentInfo* info, unsigned width, unsigned height),
        (display, visual, depth, form, data, info, width, height))
FAILING(Bool, XShmPutImage, shmPutImage, False,
        (Display * display, Drawable drawable, GC gc, XImage* image, int fromX, int fromY, int x,
         int y, unsigned width, unsigned height, Bool event),
        (display, drawable, gc, image, fromX, fromY, x, y, width, height, event))
FAILING(Bool, XGetFontProperty, getFontProperty, False,
        (XFontStruct * font, Atom atom, unsigned long* value), (font, atom, value))
FAILING(char*, XGetAtomName, getAtomName, nullptr, (Display * display, Atom atom), (display, atom))
FAILING(int, pthread_setspecific, setSpecific, ENOMEM, (pthread_key_t key, const void* value),
        (key, value))

FAILING(int, pthread_key_create, keyCreate, ENOMEM, (pthread_key_t * key, void (*destroy)(void*)),
        (key, destroy))

// operator new, by the name that the compiler gives it.
#if defined(__LP64__)
#define OPERATOR_NEW _Znwm
#else
#define OPERATOR_NEW _Znwj
#endif
#define JOINED(prefix, name) prefix##name
#define REAL(name) JOINED(__real_, name)
#define WRAPPED(name) JOINED(__wrap_, name)
void* REAL(OPERATOR_NEW)(size_t);
void* WRAPPED(OPERATOR_NEW)(size_t size) {
    if (size == throwingAllocation.load(std::memory_order_relaxed) || failsNow())
        throw std::bad_alloc();
    return REAL(OPERATOR_NEW)(size);
}

// The same that throws nothing, for one object and for several.
#if defined(__LP64__)
#define NEW_NOTHROW _ZnwmRKSt9nothrow_t
#define NEW_ARRAY_NOTHROW _ZnamRKSt9nothrow_t
#else
#define NEW_NOTHROW _ZnwjRKSt9nothrow_t
#define NEW_ARRAY_NOTHROW _ZnajRKSt9nothrow_t
#endif
void* REAL(NEW_NOTHROW)(size_t, const std::nothrow_t&);
void* WRAPPED(NEW_NOTHROW)(size_t size, const std::nothrow_t& nothrow) {
    return failsNow() ? nullptr : REAL(NEW_NOTHROW)(size, nothrow);
}
void* REAL(NEW_ARRAY_NOTHROW)(size_t, const std::nothrow_t&);
void* WRAPPED(NEW_ARRAY_NOTHROW)(size_t size, const std::nothrow_t& nothrow) {
    return failsNow() ? nullptr : REAL(NEW_ARRAY_NOTHROW)(size, nothrow);
}

XVisualInfo* __real_XGetVisualInfo(Display*, long, XVisualInfo*, int*);
XVisualInfo* __wrap_XGetVisualInfo(Display* display, long mask, XVisualInfo* wanted, int* count) {
    NOTE("XGetVisualInfo");
    if (getVisualInfo.strikes())
        return nullptr;
    if (visualsOfEveryScreen)
        mask &= ~VisualScreenMask;
    XVisualInfo* given = __real_XGetVisualInfo(display, mask, wanted, count);
    if (given != nullptr && !depthsGiven.empty()) {
        const XVisualInfo first = *given;
        visualsGiven.assign(depthsGiven.size(), *first.visual);
        given = static_cast<XVisualInfo*>(realloc(given, depthsGiven.size() * sizeof first));
        for (size_t i = 0; i < depthsGiven.size(); ++i) {
            given[i] = first;
            given[i].depth = depthsGiven[i];
            given[i].visual = &visualsGiven[i];
        }
        *count = static_cast<int>(depthsGiven.size());
    }
    if (given != nullptr && visualIdGiven != 0)
        given->visualid = visualIdGiven;
    return given;
}

XImage* __real_XCreateImage(Display*, Visual*, unsigned, int, int, char*, unsigned, unsigned, int,
                            int);
XImage* __wrap_XCreateImage(Display* display, Visual* visual, unsigned depth, int form, int offset,
                            char* data, unsigned width, unsigned height, int pad, int line) {
    NOTE(text("XCreateImage", "pad " + std::to_string(pad) + ", line " + std::to_string(line)));
    visualOfImage = visual;
    if (createImage.strikes())
        return nullptr;
    if (beforeCreateImage)
        beforeCreateImage(display);
    return __real_XCreateImage(display, visual, depth, form, offset, data, width, height, pad,
                               line);
}

XFontStruct* __real_XQueryFont(Display*, XID);
XFontStruct* __wrap_XQueryFont(Display* display, XID font) {
    NOTE("XQueryFont");
    XFontStruct* given = queryFont.strikes() ? nullptr : __real_XQueryFont(display, font);
    if (given != nullptr && queryFontWithoutProperties) {
        XFree(given->properties);
        given->properties = nullptr;
    }
    return given;
}

XFontStruct* __real_XLoadQueryFont(Display*, const char*);
XFontStruct* __wrap_XLoadQueryFont(Display* display, const char* name) {
    NOTE(text("XLoadQueryFont", name));
    return loadQueryFont.strikes() ? nullptr : __real_XLoadQueryFont(display, name);
}

int __real_XFreeGC(Display*, GC);
int __wrap_XFreeGC(Display* display, GC gc) {
    NOTE("XFreeGC");
    return __real_XFreeGC(display, gc);
}

int __real_XCloseDisplay(Display*);
int __wrap_XCloseDisplay(Display* display) {
    if (beforeCloseDisplay)
        beforeCloseDisplay(display);
    return __real_XCloseDisplay(display);
}

Bool __real_XShmAttach(Display*, XShmSegmentInfo*);
Bool __wrap_XShmAttach(Display* display, XShmSegmentInfo* info) {
    NOTE("XShmAttach");
    if (shmAttach.strikes())
        return False;
    if (beforeShmAttach)
        beforeShmAttach(info);
    return __real_XShmAttach(display, info);
}

Bool __real_XShmDetach(Display*, XShmSegmentInfo*);
Bool __wrap_XShmDetach(Display* display, XShmSegmentInfo* info) {
    NOTE("XShmDetach");
    return __real_XShmDetach(display, info);
}

int __real_XPutImage(Display*, Drawable, GC, XImage*, int, int, int, int, unsigned, unsigned);
int __wrap_XPutImage(Display* display, Drawable drawable, GC gc, XImage* image, int fromX,
                     int fromY, int x, int y, unsigned width, unsigned height) {
    NOTE("XPutImage");
    return __real_XPutImage(display, drawable, gc, image, fromX, fromY, x, y, width, height);
}

int __real_XSync(Display*, Bool);
int __wrap_XSync(Display* display, Bool discard) {
    NOTE(text("XSync", discard ? "True" : "False"));
    return __real_XSync(display, discard);
}

int __real_XFlush(Display*);
int __wrap_XFlush(Display* display) {
    NOTE("XFlush");
    return __real_XFlush(display);
}

XErrorHandler __real_XSetErrorHandler(XErrorHandler);
XErrorHandler __wrap_XSetErrorHandler(XErrorHandler handler) {
    NOTE("XSetErrorHandler");
    return __real_XSetErrorHandler(handler);
}

int __real_shmget(key_t, size_t, int);
int __wrap_shmget(key_t key, size_t size, int flags) {
    char mode[16];
    snprintf(mode, sizeof mode, "0%o", static_cast<unsigned>(flags));
    NOTE(text("shmget", std::string(key == IPC_PRIVATE ? "private" : "shared") + ", " +
                            std::to_string(size) + ", " + mode));
    if (shmGet.strikes()) {
        errno = ENOSPC;
        return -1;
    }
    return __real_shmget(key, size, flags);
}

void* __real_shmat(int, const void*, int);
void* __wrap_shmat(int segment, const void* address, int flags) {
    NOTE("shmat");
    if (shmAt.strikes()) {
        errno = EMFILE;
        return reinterpret_cast<void*>(-1);
    }
    return __real_shmat(segment, address, flags);
}

int __real_shmdt(const void*);
int __wrap_shmdt(const void* address) {
    NOTE("shmdt");
    return __real_shmdt(address);
}

int __real_shmctl(int, int, shmid_ds*);
int __wrap_shmctl(int segment, int command, shmid_ds* state) {
    const char* name = command == IPC_RMID  ? "IPC_RMID"
                       : command == IPC_SET ? "IPC_SET"
                                            : "IPC_STAT";
    NOTE(text("shmctl", name));
    return __real_shmctl(segment, command, state);
}

void* __real_dlsym(void*, const char*);
void* __wrap_dlsym(void* handle, const char* name) {
    NOTE(text("dlsym", name));
    return __real_dlsym(handle, name);
}

int __real_gettimeofday(timeval*, void*);
int __wrap_gettimeofday(timeval* now, void* zone) {
    const int64_t fixed = timeOfDay;
    if (fixed < 0)
        return __real_gettimeofday(now, zone);
    now->tv_sec = static_cast<time_t>(fixed / 1000000);
    now->tv_usec = static_cast<suseconds_t>(fixed % 1000000);
    return 0;
}

int __real_usleep(useconds_t);
int __wrap_usleep(useconds_t microseconds) {
    {
        const bool counted = std::exchange(countsAllocations, false); // this one is the test's
        const std::lock_guard lock(recordMutex);
        sleeps.push_back({gettid(), microseconds});
        countsAllocations = counted;
    }
    return __real_usleep(std::min(microseconds, 2000000U)); // a wrong one shall not hold a test up
}

void* __real_malloc(size_t);
void* __wrap_malloc(size_t size) {
    if (size != 0 && size == failingAllocation.load(std::memory_order_relaxed))
        return nullptr;
    return failsNow() ? nullptr : __real_malloc(size);
}

void* __real_calloc(size_t, size_t);
void* __wrap_calloc(size_t count, size_t size) {
    return failsNow() ? nullptr : __real_calloc(count, size);
}

char* __real_strdup(const char*);
char* __wrap_strdup(const char* text) {
    return failsNow() ? nullptr : __real_strdup(text);
}

hostent* __real_gethostbyname(const char*);
hostent* __wrap_gethostbyname(const char* name) {
    return resolver != nullptr ? answer(name) : __real_gethostbyname(name);
}

hostent* __real_gethostbyaddr(const void*, socklen_t, int);
hostent* __wrap_gethostbyaddr(const void* address, socklen_t size, int family) {
    if (resolver == nullptr)
        return __real_gethostbyaddr(address, size, family);
    char dotted[INET_ADDRSTRLEN] = "";
    if (size == 4)
        inet_ntop(family, address, dotted, sizeof dotted);
    return answer(std::string("address ") + dotted);
}

int __real_gethostname(char*, size_t);
int __wrap_gethostname(char* buffer, size_t size) {
    if (hostName == nullptr)
        return __real_gethostname(buffer, size);
    if (hostName[0] == '\0' || strlen(hostName) >= size)
        return -1;
    memcpy(buffer, hostName, strlen(hostName) + 1);
    return 0;
}

int __real_pthread_mutex_lock(pthread_mutex_t*);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const int result = __real_pthread_mutex_lock(mutex);
    if (auto* told = afterLock.load(std::memory_order_relaxed))
        told(mutex);
    return result;
}

int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (auto* told = beforeUnlock.load(std::memory_order_relaxed))
        told(mutex);
    return __real_pthread_mutex_unlock(mutex);
}
}

#pragma GCC visibility pop

} // namespace kor::test

// A libGL_KOR.so without GL, which tells what the front does with it.
#include <X11/Xlib.h>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#define EXPORT extern "C" __attribute__((visibility("default")))

#define KOR_ENTRY(name)                                                                            \
    EXPORT const char* kor_##name() {                                                              \
        return "kor:" #name;                                                                       \
    }
#include "core/entry_points.def"
#undef KOR_ENTRY

namespace {
std::atomic<int> inits{0};
void* initHandle = nullptr;
void (*onInit)() = nullptr;
Display* (*hook)(Display*, int) = nullptr;
} // namespace

EXPORT void kor_set_connection_hook(Display* (*newHook)(Display*, int)) {
    hook = newHook;
}
EXPORT void kor_set_connection_end_hook(void (*)(Display*, int)) {}

EXPORT void kor_init(void* handle) {
    initHandle = hook == nullptr ? nullptr : handle; // the hook is to be set before
    if (onInit != nullptr)
        onInit();
    ++inits;
}

EXPORT void kor_fini() {
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "kor_fini\n", 9);
}

EXPORT void kor_process_ends() {
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "kor_process_ends\n", 17);
}

EXPORT void kor_printlog(const char*, int, const char* levelWord, const char*, bool,
                         const char* format, ...) {
    fprintf(stderr, "log %s: ", levelWord);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fputc('\n', stderr);
}

namespace {
thread_local int moment = 0;
thread_local void (*afterwards)() = nullptr;
} // namespace

EXPORT int kor_when_to_tell_error(void (*function)()) {
    afterwards = function;
    return moment;
}

/// What the next errors on this thread are answered.
EXPORT void fake_moment(int wanted) {
    moment = wanted;
}
/// The thread's locks are gone.
EXPORT void fake_afterwards() {
    moment = 0;
    afterwards();
}

EXPORT int kor_wrapper_setting(const char* key) {
    const char* value = getenv("FAKE_CLEANUP_ATEXIT");
    if (strcmp(key, "cleanup-atexit") != 0)
        return -1;
    return value == nullptr || *value != '0' ? 1 : 0;
}

EXPORT int fake_inits() {
    return inits;
}
EXPORT void* fake_init_handle() {
    return initHandle;
}
EXPORT void fake_on_init(void (*function)()) {
    onInit = function;
}

EXPORT Display* fake_open(const char* name, int role) {
    return hook(XOpenDisplay(name), role);
}

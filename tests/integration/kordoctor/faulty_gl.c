/* The system's GL library with one fault, named by the variable FAULT: "slow" reads pixels slowly,
 * "crash" ends the process where a context is made current, "refuse" makes none. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int has(const char* fault) {
    const char* wanted = getenv("FAULT");
    return wanted && strcmp(wanted, fault) == 0;
}

#define EXPORT __attribute__((visibility("default")))

EXPORT int glXMakeCurrent(void* display, unsigned long drawable, void* context) {
    int (*next)(void*, unsigned long, void*) = 0;
    *(void**)&next = dlsym(RTLD_NEXT, "glXMakeCurrent");
    if (has("crash"))
        raise(SIGSEGV);
    return has("refuse") ? 0 : next(display, drawable, context);
}

EXPORT void glReadPixels(int x, int y, int width, int height, unsigned format, unsigned type,
                         void* pixels) {
    void (*next)(int, int, int, int, unsigned, unsigned, void*) = 0;
    *(void**)&next = dlsym(RTLD_NEXT, "glReadPixels");
    if (has("slow"))
        usleep(100000);
    next(x, y, width, height, format, type, pixels);
}

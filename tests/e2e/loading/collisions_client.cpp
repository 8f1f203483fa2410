// An application that defines, for everybody to see, what libraries look for by the same names: GL
// functions as variables that are null yet, as those do that look functions up themselves; and its
// own memory allocation and environment.
#include "drawing.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>

#define VISIBLE __attribute__((visibility("default"), used))

namespace {

// Never gives anything back; enough for everything that happens here.
constexpr size_t heapSize = size_t{1} << 30U;
alignas(64) char heap[heapSize];
std::atomic<size_t> taken{0};

struct alignas(64) Header {
    size_t size;
};

void* take(size_t size, size_t alignment) {
    if (alignment < sizeof(Header))
        alignment = sizeof(Header);
    const size_t room = (size + 2 * alignment + sizeof(Header) - 1) / 64 * 64 + 64;
    const size_t start = taken.fetch_add(room);
    if (start + room > heapSize)
        return nullptr;
    const auto address = reinterpret_cast<uintptr_t>(heap + start + sizeof(Header));
    char* const aligned =
        reinterpret_cast<char*>((address + alignment - 1) / alignment * alignment);
    reinterpret_cast<Header*>(aligned - sizeof(Header))->size = size;
    return aligned;
}

} // namespace

extern "C" {
VISIBLE void* glGenBuffers = nullptr;
VISIBLE void* glGenFramebuffers = nullptr;
VISIBLE void* glCreateShader = nullptr;
VISIBLE void* glFenceSync = nullptr;
VISIBLE void* system_glXSwapBuffers = nullptr;

VISIBLE char* getenv(const char* name) {
    // Nothing of ours is in this environment; the rest of the process needs its own.
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const size_t length = strlen(name);
        if (strncmp(*variable, name, length) == 0 && (*variable)[length] == '=')
            return *variable + length + 1;
    }
    return nullptr;
}

VISIBLE void* malloc(size_t size) {
    return take(size, 64);
}
VISIBLE void free(void*) {}
VISIBLE void* calloc(size_t count, size_t size) {
    return take(count * size, 64); // the heap is zero and never used twice
}
VISIBLE void* realloc(void* old, size_t size) {
    void* const made = take(size, 64);
    if (old != nullptr && made != nullptr) {
        const size_t before =
            reinterpret_cast<Header*>(static_cast<char*>(old) - sizeof(Header))->size;
        memcpy(made, old, before < size ? before : size);
    }
    return made;
}
VISIBLE void* memalign(size_t alignment, size_t size) {
    return take(size, alignment);
}
VISIBLE void* aligned_alloc(size_t alignment, size_t size) {
    return take(size, alignment);
}
VISIBLE int posix_memalign(void** made, size_t alignment, size_t size) {
    *made = take(size, alignment);
    return *made == nullptr ? 12 : 0;
}
}

int main() {
    using namespace kor::loading;
    Functions functions;
    KOR_GLX_FUNCTIONS(KOR_TAKE_LINKED)
    KOR_GL_FUNCTIONS(KOR_TAKE_LINKED)
    return drawAndCheck(functions);
}

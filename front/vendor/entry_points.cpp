#include "entry_points.h"

#include "start.h"
#include "stubs.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <iterator>
#include <string>

extern "C" {
// The stubs, under the names of what they stand for (stubs_*.S); nothing here calls them.
#define KOR_ENTRY(name) extern __attribute__((visibility("hidden"))) void kor_stub_##name();
#include "core/entry_points.def"
#undef KOR_ENTRY
}

namespace kor::front {

namespace {

struct Entry {
    const char* name;
    void (*stub)();
};

constexpr Entry entries[] = {
#define KOR_ENTRY(name) {#name, kor_stub_##name},
#include "core/entry_points.def"
#undef KOR_ENTRY
};

void* libraryFunction(const char* name) {
    if (libraries().kor == nullptr)
        return nullptr;
    return dlsym(libraries().kor, (std::string("kor_") + name).c_str());
}

} // namespace

void* entryPoint(const char* name) {
    for (const Entry& entry : entries)
        if (strcmp(entry.name, name) == 0)
            return isStarted() ? libraryFunction(name) : reinterpret_cast<void*>(entry.stub);
    return nullptr;
}

} // namespace kor::front

void* kor_front_resolve(void** slot) {
    using namespace kor::front;
    const int callersErrno = errno;
    const char* name = entries[slot - kor_front_slots].name;
    // From within the start nothing may be called: there is no library yet. That does not happen
    // unless the dispatch library takes us for the local display's vendor.
    const bool started = ensureStarted();
    void* target = started ? libraryFunction(name) : nullptr;
    if (target == nullptr)
        target = reinterpret_cast<void*>(&kor_front_nothing);
    if (started)
        __atomic_store_n(slot, target, __ATOMIC_RELEASE);
    errno = callersErrno;
    return target;
}

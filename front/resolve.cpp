#include "stubs.h"

#include "report.h"
#include "start.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>

namespace {

using namespace kor::front;

void* nothing(const char* name) {
    // The only function of GL and GLX with such a result.
    if (strcmp(name, "glGetPathLengthNV") == 0)
        return reinterpret_cast<void*>(&kor_front_float_nothing);
    return reinterpret_cast<void*>(&kor_front_nothing);
}

/// The library's entry point for that name, or null when it has none. Searched once per name and
/// process, so that a walk through the list will do.
void* entryPoint(const char* name) {
    static const char* const entryPoints[] = {
#define KOR_ENTRY(name) "kor_" #name,
#include "core/entry_points.def"
#undef KOR_ENTRY
    };
    if (libraries().kor == nullptr)
        return nullptr;
    for (const char* entry : entryPoints)
        if (strcmp(entry + strlen("kor_"), name) == 0)
            return dlsym(libraries().kor, entry);
    return nullptr;
}

void* systemFunction(const char* name) {
    return libraries().system == nullptr ? nullptr : dlsym(libraries().system, name);
}

} // namespace

void* kor_front_resolve(void** slot) {
    const int callersErrno = errno;
    const char* name = kor_front_names + kor_front_name_offsets[slot - kor_front_slots];
    void* target = nullptr;
    if (!ensureStarted()) {
        // Called back during the start, by what the start has opened: this one call goes to the
        // system, and the slot stays as it is.
        target = systemFunction(name);
        errno = callersErrno;
        return target == nullptr ? nothing(name) : target;
    }

    target = entryPoint(name);
    if (target == nullptr)
        target = systemFunction(name);
    const bool missing = target == nullptr;
    if (missing)
        target = nothing(name);

    // Several threads may be here with the same slot; the one that replaces the code of the first
    // call speaks.
    void* before = __atomic_exchange_n(slot, target, __ATOMIC_RELEASE);
    if (missing && before != target && libraries().system != nullptr)
        report("the system's GL library, %s, has no function %s; calls to it do nothing.",
               libraries().systemPath, name);
    errno = callersErrno;
    return target;
}

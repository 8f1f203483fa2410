#include "core/system_gl.h"

#include "support/log.h"

#include <dlfcn.h>

extern "C" {
#define KOR_SYSTEM(name) decltype(&::name) system_##name = nullptr;
#define KOR_SYSTEM_AS(name, reported) KOR_SYSTEM(name)
#define KOR_SYSTEM_OPTIONAL(name) KOR_SYSTEM(name)
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
}

namespace {

template <typename Function> void lookUp(void* handle, const char* name, Function*& pointer) {
    pointer = reinterpret_cast<Function*>(dlsym(handle, name));
}

struct Check {
    bool missing;
    const char* reported; // null: the users of the pointer test it themselves
};

} // namespace

void setup_sysgl(void* handle) {
#define KOR_SYSTEM(name) lookUp(handle, #name, system_##name);
#define KOR_SYSTEM_AS(name, reported) KOR_SYSTEM(name)
#define KOR_SYSTEM_OPTIONAL(name) KOR_SYSTEM(name)
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL

    const Check checks[] = {
#define KOR_SYSTEM(name) {system_##name == nullptr, "system_" #name " is NULL"},
#define KOR_SYSTEM_AS(name, reported) {system_##name == nullptr, reported},
#define KOR_SYSTEM_OPTIONAL(name) {false, nullptr},
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
    };
    for (const Check& check : checks) {
        if (check.missing)
            KOR_ERROR_ECHO("%s", check.reported);
    }
}

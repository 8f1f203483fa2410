#include "core/entry_points.h"
#include "core/system_gl.h"
#include "support/failures.h"
#include "support/log.h"

#include <cstring>

namespace {

struct Procedure {
    const char* name;
    __GLXextFuncPtr entryPoint;
};

__GLXextFuncPtr procedureTable(const char* name) {
    static const Procedure table[] = {
#define KOR_ENTRY(name) {#name, reinterpret_cast<__GLXextFuncPtr>(kor_##name)},
#include "core/entry_points.def"
#undef KOR_ENTRY
    };
    for (const Procedure& procedure : table) {
        if (strcmp(procedure.name, name) == 0)
            return procedure.entryPoint;
    }
    return nullptr;
}

} // namespace

__GLXextFuncPtr kor_glXGetProcAddress(const GLubyte* procName) try {
    const char* name = reinterpret_cast<const char*>(procName);
    KOR_DEBUG("procname: %s", name != nullptr ? name : "");
    if (name == nullptr)
        return nullptr;
    if (const __GLXextFuncPtr entryPoint = procedureTable(name))
        return entryPoint;
    if (strcmp(name, "glImportSyncEXT") == 0) {
        KOR_DEBUG("blacklisted"); // its syncs belong to the application's server
        return nullptr;
    }
    if (strncmp(name, "gl", 2) == 0 && name[2] != 'X')
        return system_glXGetProcAddress(procName);
    KOR_DEBUG("failed");
    return nullptr;
}
KOR_OTHERWISE(nullptr)

__GLXextFuncPtr kor_glXGetProcAddressARB(const GLubyte* procName) try {
    KOR_DEBUG("START");
    return kor_glXGetProcAddress(procName);
}
KOR_OTHERWISE(nullptr)

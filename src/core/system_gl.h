#ifndef KOR_CORE_SYSTEM_GL_H
#define KOR_CORE_SYSTEM_GL_H

#include "core/gl_headers.h"
#include "support/export.h"

/// Every call into the real GL and GLX goes through these pointers, so that the library's own entry
/// points and the system's can never be confused. Null until setup_sysgl has run, and null
/// afterwards where the system's library lacks the function. Written once, by kor_init; read
/// without a lock. Calls on a local display are made under getLocalDisplayMutex()
/// (display/displays.h).
extern "C" {
#define KOR_SYSTEM(name) extern KOR_EXPORT decltype(&::name) system_##name;
#define KOR_SYSTEM_AS(name, reported) KOR_SYSTEM(name)
#define KOR_SYSTEM_OPTIONAL(name) KOR_SYSTEM(name)
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
}

/// Fills the table from the dlopen handle of the system's GL library and reports what it lacks.
void setup_sysgl(void* handle);

#endif

#ifndef KOR_CORE_ENTRY_POINTS_H
#define KOR_CORE_ENTRY_POINTS_H

#include "core/gl_headers.h"
#include "support/export.h"

/// What the front library calls. Between kor_init and kor_fini every kor_gl* and kor_glX* function
/// may be called on any application thread; each has the arguments and results that the GLX and GL
/// standards give the function of the same name, and reports no error of its own to the
/// application.
extern "C" {

/// Starts the library. sysGLHandle is the dlopen handle of the system's GL library (or of the
/// adapter in front of it); it must stay open. Called once, before any other entry point; a second
/// call changes nothing.
KOR_EXPORT void kor_init(void* sysGLHandle);

/// Stops painting and ends per-thread state, for good. A second call changes nothing.
KOR_EXPORT void kor_fini();

#define KOR_ENTRY(name) KOR_EXPORT decltype(::name) kor_##name;
#include "core/entry_points.def"
#undef KOR_ENTRY
}

#endif

#ifndef KOR_CONFIG_WRAPPER_SETTINGS_H
#define KOR_CONFIG_WRAPPER_SETTINGS_H

#include "support/export.h"

extern "C" {
/// For the front library: the value (0 or 1) of a setting of section "Wrapper", by its key, for
/// instance "cleanup-atexit"; -1 when that section has no such setting. Any thread.
KOR_EXPORT int kor_wrapper_setting(const char* key);

/// For the front library, which may have to look for the local display's driver before kor_init:
/// the setting "gl-display", null when there is none. The library's own memory. Any thread.
KOR_EXPORT const char* kor_gl_display_setting();
}

#endif

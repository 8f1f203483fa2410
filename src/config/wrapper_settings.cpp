#include "config/wrapper_settings.h"

#include "config/settings.h"
#include "support/failures.h"

#include <cstring>

int kor_wrapper_setting(const char* key) try {
    const auto& settings = kor::conf::settings();
    const struct {
        const char* key;
        bool value;
    } wrapperSettings[] = {
        {"cleanup-atexit", settings.cleanupAtexit},
        {"disable-driver-unload", settings.disableDriverUnload},
        {"disable-kor-gl-unload", settings.disableKorGlUnload},
    };
    if (key != nullptr)
        for (const auto& setting : wrapperSettings)
            if (strcmp(setting.key, key) == 0)
                return setting.value ? 1 : 0;
    return -1;
}
KOR_OTHERWISE(-1)

const char* kor_gl_display_setting() try { return kor::conf::settings().glDisplay; }
KOR_OTHERWISE(nullptr)

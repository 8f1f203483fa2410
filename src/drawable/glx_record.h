#ifndef KOR_DRAWABLE_GLX_RECORD_H
#define KOR_DRAWABLE_GLX_RECORD_H

#include "config/settings.h"
#include "drawable/registry.h"

namespace kor::gl {

/// The local fbconfig that a drawable is made with when the application passed config: the
/// mapping's chosen one when the settings say so.
inline GLXFBConfig fbconfigFor(const LocalVisualInfo& mapping, GLXFBConfig config, bool* forced) {
    *forced = conf::settings().forceBestFbconfig && mapping.localFbconfigs != nullptr;
    return *forced ? mapping.chosenFbconfig() : config;
}

} // namespace kor::gl

#endif

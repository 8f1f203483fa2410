#ifndef KOR_DRAWABLE_GLX_RECORD_H
#define KOR_DRAWABLE_GLX_RECORD_H

#include "config/settings.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "drawable/registry.h"

namespace kor::gl {

/// The local fbconfig that a drawable is made with when the application passed config: the
/// mapping's chosen one when the settings say so.
inline GLXFBConfig fbconfigFor(const LocalVisualInfo& mapping, GLXFBConfig config, bool* forced) {
    *forced = conf::settings().forceBestFbconfig && mapping.localFbconfigs != nullptr;
    return *forced ? mapping.chosenFbconfig() : config;
}

/// Takes back a local drawable that was made when there is no memory for its record. destroy is the
/// system's function.
template <typename Destroy> void takeBack(Display* local, GLXDrawable drawable, Destroy destroy) {
    const Lock lock(getLocalDisplayMutex());
    // As at the end of a record: some drivers crash when drawables go while nothing is current.
    if (drawable != None &&
        (conf::settings().freeDrawablesWithoutContext || system_glXGetCurrentContext() != nullptr))
        destroy(local, drawable);
}

} // namespace kor::gl

#endif

#ifndef KOR_DISPLAY_LOCAL_CALL_H
#define KOR_DISPLAY_LOCAL_CALL_H

#include "core/system_gl.h"
#include "display/displays.h"

namespace kor::gl {

/// Makes one call of the system's GLX on a local connection, under the local display mutex and for
/// no longer: callLocal(system_glXIsDirect, local, ctx).
template <typename Function, typename... Arguments>
auto callLocal(Function function, Arguments... arguments) {
    const Lock lock(getLocalDisplayMutex());
    return function(arguments...);
}

} // namespace kor::gl

#endif

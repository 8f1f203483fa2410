#ifndef KOR_VISUAL_VISUAL_MAP_H
#define KOR_VISUAL_VISUAL_MAP_H

#include "core/tsd.h"
#include "support/mutex.h"
#include "visual/visual_attribs.h"

#include <list>

namespace kor::gl {

/// The pairing of one application visual with the local fbconfigs that can render for it. Made with
/// the map, immutable and never freed afterwards: it may be read without a lock.
class LocalVisualInfo {
  public:
    LocalVisualInfo() = default;
    virtual ~LocalVisualInfo() = default;
    LocalVisualInfo(const LocalVisualInfo&) = delete;
    LocalVisualInfo& operator=(const LocalVisualInfo&) = delete;

    VisualAttribs appVisual;
    VisualAttribs localVisual;             // of localFbconfigs[bestFbconfig]
    GLXFBConfig* localFbconfigs = nullptr; // from the local GLX; freed by nobody
    int numLocalFbconfigs = 0;
    GLXFBConfig* appFbconfigs = nullptr; // from the application display's GLX
    int numAppFbconfigs = 0;
    bool doubleBuffered = true;
    int bestFbconfig = 0; // index into localFbconfigs

    /// Describes appVisual; out has room for maxAttribList integers.
    void populateAttribList(int* out) const { kor::gl::populateAttribList(appVisual, out); }

    /// The fbconfig that contexts and drawables of this visual are really made with, or null.
    GLXFBConfig chosenFbconfig() const {
        return localFbconfigs != nullptr ? localFbconfigs[bestFbconfig] : nullptr;
    }
};

using VisualMap = std::list<LocalVisualInfo*>;

/// The mappings in the server's order of visuals, to be walked under getVisualMapMutex(). Built
/// once for the first display and screen that is asked for; later ones are answered from the same
/// map.
VisualMap& getVisualMap();
Mutex& getVisualMapMutex();

} // namespace kor::gl

/// Builds the map, unless it is built. A build that cannot reach the displays leaves it unbuilt and
/// is tried again. Takes the map's lock, and the local display mutex inside it.
void initializeVisualMap(Display* appDpy, int screen, kor::gl::TSD* tsd);

/// The mapping of a local fbconfig, which is what the application holds; null when there is none.
kor::gl::LocalVisualInfo* _getLVI(Display* appDpy, GLXFBConfig config, kor::gl::TSD* tsd);

/// The mapping of an application visual; null when there is none.
kor::gl::LocalVisualInfo* _getLVI(Display* appDpy, VisualID id, kor::gl::TSD* tsd);

#endif

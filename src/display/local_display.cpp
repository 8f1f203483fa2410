#include "display/connections.h"
#include "display/displays.h"
#include "display/kor_ext.h"
#include "display/users.h"

#include "config/settings.h"
#include "support/bucket_map.h"
#include "support/forked_child.h"
#include "support/log.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

using kor::gl::TSD;

namespace {

/// Application display to local display, behind its lock. The lock guards the table only: values
/// are copied out, and it is never held across an Xlib call.
class DisplayMap {
  public:
    Display* find(Display* appDpy) {
        const kor::Lock lock(mutex_);
        Display** local = map_.find(appDpy);
        return local != nullptr ? *local : nullptr;
    }
    /// The same for the thread's application display, without the lock as long as the thread's last
    /// answer holds: every entry point comes by here.
    Display* find(TSD& tsd) {
        const unsigned generation = generation_.load(std::memory_order_acquire);
        if (tsd.lastPair.appDisplay == tsd.appDisplay && tsd.lastPair.generation == generation)
            return tsd.lastPair.localDisplay;
        Display* local = find(tsd.appDisplay);
        if (local != nullptr)
            tsd.lastPair = {tsd.appDisplay, local, generation};
        return local;
    }
    void set(Display* appDpy, Display* local) {
        const kor::Lock lock(mutex_);
        if (Display** slot = map_.findOrInsert(appDpy))
            *slot = local;
        generation_.fetch_add(1, std::memory_order_release);
    }
    void remove(Display* appDpy) {
        const kor::Lock lock(mutex_);
        map_.remove(appDpy);
        generation_.fetch_add(1, std::memory_order_release);
    }

  private:
    kor::Mutex mutex_;
    kor::BucketMap<Display*, Display*> map_;
    std::atomic<unsigned> generation_{1}; // changes with the table; never 0, a new thread's value
};

kor::PerProcess<DisplayMap> displayMaps;

DisplayMap& displayMap() {
    return *displayMaps;
}

struct LocalName {
    kor::Mutex mutex; // guards the name
    /// Once decided, it holds for the whole process and every application display; never freed.
    char* name = nullptr;
};
kor::PerProcess<LocalName> localName;

kor::PerProcess<kor::Mutex> localDisplayMutex;

bool askServer(TSD* tsd, char** name) {
    return tsd->appDisplay2 != nullptr && tsd->extCodes != nullptr &&
           XKorExtGetGLDisplay(tsd->appDisplay2, tsd->extCodes, name);
}

} // namespace

/// Decides the local display's name. Null when the server answers with an empty one: then it is
/// asked again at the next call.
static const char* getLocalDisplayName(TSD* tsd) {
    const kor::Lock lock(localName->mutex);
    char*& localDisplayName = localName->name;
    if (localDisplayName == nullptr) {
        const char* setting = kor::conf::settings().glDisplay;
        if (setting != nullptr) {
            localDisplayName = strdup(setting);
        } else if (!askServer(tsd, &localDisplayName)) {
            KOR_LOG_AT("KORGL", kor::LogError, "ERROR",
                       "const char* getLocalDisplayName(kor::gl::TSD*)", false,
                       "The local 3D accelerated X display is not specified. Using default "
                       "display (:0.0).");
            free(localDisplayName);
            localDisplayName = strdup(":0.0");
        }
    }
    return localDisplayName;
}

kor::Mutex& getLocalDisplayMutex() {
    return *localDisplayMutex;
}

Display* _getLocalDisplay(TSD* tsd) {
    if (tsd == nullptr)
        tsd = getTSD();
    if (tsd == nullptr)
        return nullptr;
    if (tsd->appDisplay == nullptr) {
        KOR_ERROR("appdpy not found for current thread");
    } else if (Display* local = displayMap().find(*tsd)) {
        return local;
    }
    const char* name = getLocalDisplayName(tsd);
    Display* local = kor::gl::openConnection(name, kor::gl::LocalConnection);
    if (local == nullptr) {
        KOR_ERROR_ECHO("Cannot open connection to local display %s.", name != nullptr ? name : "");
        return nullptr;
    }
    if (tsd->appDisplay == nullptr) {
        KOR_ERROR("appdpy not found for current thread");
        return local;
    }
    KOR_INFO("opened local display %s mapped to %p", name != nullptr ? name : "",
             static_cast<void*>(tsd->appDisplay));
    displayMap().set(tsd->appDisplay, local);
    return local;
}

static thread_local kor::gl::LocalDisplayHold* innermostHold = nullptr;

kor::gl::LocalDisplayHold::LocalDisplayHold(Display* appDpy)
    : outer_(innermostHold), held_(appDpy) {
    innermostHold = this;
}

kor::gl::LocalDisplayHold::~LocalDisplayHold() {
    innermostHold = outer_;
    if (putOff_)
        _unsetLocalDisplay(held_);
}

bool kor::gl::LocalDisplayHold::putsOff(Display* appDpy) {
    if (innermostHold == nullptr || innermostHold->held_ != appDpy)
        return false;
    innermostHold->putOff_ = true;
    return true;
}

void _unsetLocalDisplay(Display* appDpy) {
    if (!kor::conf::settings().unsetLocalDisplay || appDpy == nullptr ||
        kor::gl::LocalDisplayHold::putsOff(appDpy))
        return;
    Display* local = displayMap().find(appDpy);
    if (local == nullptr)
        return;
    const bool hasContext = kor::gl::anyContextUses(appDpy);
    if (kor::gl::anyWindowDrawableUses(appDpy) || hasContext)
        return;
    displayMap().remove(appDpy);
    {
        const kor::Lock lock(getLocalDisplayMutex());
        XCloseDisplay(local);
    }
    KOR_INFO("closed local display %p mapped to %p", static_cast<void*>(local),
             static_cast<void*>(appDpy));
}

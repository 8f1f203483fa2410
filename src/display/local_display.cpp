#include "display/connections.h"
#include "display/display_map.h"
#include "display/displays.h"
#include "display/kor_ext.h"
#include "display/users.h"

#include "config/settings.h"
#include "support/forked_child.h"
#include "support/log.h"

#include <cstdlib>
#include <cstring>
#include <new>

using kor::gl::TSD;

namespace {

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
            if (localDisplayName == nullptr)
                throw std::bad_alloc(); // without a name the default display would be opened
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

namespace kor::gl {

namespace {

/// Gives it back as often as it was got.
void close(const DisplayMap::Ended& connection) {
    if (connection == nullptr)
        return;
    {
        const Lock lock(getLocalDisplayMutex());
        for (int i = 0; i < connection->opens; ++i)
            closeConnection(connection->display, LocalConnection);
    }
    KOR_LOG_AT("KORGL", LogInfo, "INFO", "void _unsetLocalDisplay(Display*)", false,
               "closed local display %p mapped to %p", static_cast<void*>(connection->display),
               static_cast<void*>(connection->openedFor));
}

#define LOCAL_DISPLAY_LOG(level, word, echo, ...)                                                  \
    KOR_LOG_AT("KORGL", level, word, "Display* _getLocalDisplay(kor::gl::TSD*)", echo, __VA_ARGS__)

} // namespace

LocalDisplay pinLocalDisplay(TSD* tsd) {
    if (tsd == nullptr)
        tsd = getTSD();
    if (tsd == nullptr)
        return LocalDisplay();
    Display* const appDpy = tsd->appDisplay;
    if (appDpy == nullptr) {
        if (tsd->appDisplayClosed)
            return LocalDisplay();
        LOCAL_DISPLAY_LOG(LogError, "ERROR", false, "appdpy not found for current thread");
    } else if (LocalDisplay found = DisplayMap::instance().find(*tsd)) {
        return found;
    }
    const char* name = getLocalDisplayName(tsd);
    Display* local = openConnection(name, LocalConnection);
    if (local == nullptr) {
        LOCAL_DISPLAY_LOG(LogError, "ERROR", true, "Cannot open connection to local display %s.",
                          name != nullptr ? name : "");
        return LocalDisplay();
    }
    if (appDpy == nullptr) {
        LOCAL_DISPLAY_LOG(LogError, "ERROR", false, "appdpy not found for current thread");
        // Open for good, as a pair's would be.
        auto* unpaired = new std::shared_ptr(std::make_shared<SharedConnection>(local, nullptr));
        (*unpaired)->pin();
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): kept on purpose
        return LocalDisplay(unpaired->get());
    }
    LOCAL_DISPLAY_LOG(LogInfo, "INFO", false, "opened local display %s mapped to %p",
                      name != nullptr ? name : "", static_cast<void*>(appDpy));
    DisplayMap::Ended left;
    LocalDisplay pinned = DisplayMap::instance().pair(appDpy, local, left);
    close(left);
    return pinned;
}

void SharedConnection::lastPinGone(SharedConnection* connection) {
    const DisplayMap::Wanted wanted = DisplayMap::instance().wanted(connection);
    close(wanted.ended);
    for (Display* appDpy : wanted.appDisplays)
        _unsetLocalDisplay(appDpy);
}

void unpairAppDisplay(Display* appDpy) {
    close(DisplayMap::instance().unpair(appDpy));
}

LocalDisplay pinPairOf(Display* appDpy) {
    return DisplayMap::instance().find(appDpy);
}

} // namespace kor::gl

Display* _getLocalDisplay(TSD* tsd) {
    return kor::gl::pinLocalDisplay(tsd).get();
}

void _unsetLocalDisplay(Display* appDpy) {
    if (!kor::conf::settings().unsetLocalDisplay || appDpy == nullptr ||
        !kor::gl::DisplayMap::instance().has(appDpy))
        return;
    const bool hasContext = kor::gl::anyContextUses(appDpy);
    if (kor::gl::anyWindowDrawableUses(appDpy) || hasContext)
        return;
    kor::gl::close(kor::gl::DisplayMap::instance().unpairUnlessPinned(appDpy));
}

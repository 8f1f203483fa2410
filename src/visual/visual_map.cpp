#include "visual/visual_map.h"

#include "config/settings.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/forked_child.h"
#include "support/handle_text.h"
#include "support/log.h"
#include "support/text.h"

#include <cstdlib>
#include <memory>

using kor::Lock;
using kor::gl::LocalVisualInfo;
using kor::gl::TSD;
using kor::gl::VisualMap;

namespace {

struct Mappings {
    kor::Mutex mutex; // guards the rest
    VisualMap map;
    bool built = false;
};
kor::PerProcess<Mappings> mappings;

} // namespace

namespace kor::gl {

Mutex& getVisualMapMutex() {
    return mappings->mutex;
}

VisualMap& getVisualMap() {
    return mappings->map;
}

} // namespace kor::gl

namespace {

constexpr const char* buildFunction = "void initializeVisualMap(Display*, int, kor::gl::TSD*)";
#define BUILD_INFO(...) KOR_LOG_AT("KORGL", kor::LogInfo, "INFO", buildFunction, false, __VA_ARGS__)

struct FreeWithX {
    void operator()(void* memory) const { XFree(memory); }
};
using VisualList = std::unique_ptr<XVisualInfo, FreeWithX>;

/// What the pairing of all visuals works with.
struct Build {
    Display* appDpy;
    int screen;
    Display* local;
    bool appMultisample;
    bool localMultisample;
    int wantedSamples; // the setting: at most so many, negative for as many as there are
};

int localAttrib(const Build& build, GLXFBConfig config, int attribute) {
    int value = 0;
    const Lock lock(getLocalDisplayMutex());
    system_glXGetFBConfigAttrib(build.local, config, attribute, &value);
    return value;
}

/// Picks the entry with the most samples that the setting allows; the first of equals. The list is
/// taken as ordered by growing count, so the first excess ends the search.
void chooseMultisampled(const Build& build, LocalVisualInfo& mapping) {
    int best = 0;
    int bestSamples = 0;
    for (int i = 0; i < mapping.numLocalFbconfigs; ++i) {
        const int samples = localAttrib(build, mapping.localFbconfigs[i], GLX_SAMPLES);
        if (build.wantedSamples > 0 && samples > build.wantedSamples)
            break;
        if (samples > bestSamples) {
            bestSamples = samples;
            best = i;
        }
    }
    mapping.bestFbconfig = best;
    BUILD_INFO("Max Multisample: %d (fbconfig %x, %d of %d)", bestSamples,
               mapping.numLocalFbconfigs > 0 ? handleText(mapping.localFbconfigs[best]) : 0, best,
               mapping.numLocalFbconfigs);
}

void logPair(const Build& build, const LocalVisualInfo& mapping) {
    if (!kor::logs(kor::LogInfo))
        return;
    BUILD_INFO("App visual %x has %d fbconfigs", mapping.appVisual.visualId,
               mapping.numAppFbconfigs);
    for (int i = 0; i < mapping.numAppFbconfigs; ++i) {
        int id = 0;
        system_glXGetFBConfigAttrib(build.appDpy, mapping.appFbconfigs[i], GLX_FBCONFIG_ID, &id);
        BUILD_INFO("    %d - %x (id %x)", i, handleText(mapping.appFbconfigs[i]), id);
    }
    BUILD_INFO("Local visual %x has %d fbconfigs", mapping.localVisual.visualId,
               mapping.numLocalFbconfigs);
    for (int i = 0; i < mapping.numLocalFbconfigs; ++i) {
        BUILD_INFO("    %d - %x (id %x) %s", i, handleText(mapping.localFbconfigs[i]),
                   localAttrib(build, mapping.localFbconfigs[i], GLX_FBCONFIG_ID),
                   i == mapping.bestFbconfig ? "(best)" : "");
    }
}

/// Finds the local side of one application visual. False when it has none.
bool pairVisual(const Build& build, LocalVisualInfo& mapping) {
    int attributes[kor::gl::maxAttribList];
    mapping.populateAttribList(attributes);
    mapping.appFbconfigs =
        system_glXChooseFBConfig(build.appDpy, build.screen, attributes, &mapping.numAppFbconfigs);
    if (mapping.appFbconfigs == nullptr)
        mapping.numAppFbconfigs = 0;
    {
        const Lock lock(getLocalDisplayMutex());
        mapping.localFbconfigs = system_glXChooseFBConfig(build.local, DefaultScreen(build.local),
                                                          attributes, &mapping.numLocalFbconfigs);
    }
    if (mapping.localFbconfigs == nullptr)
        mapping.numLocalFbconfigs = 0;
    if (build.localMultisample)
        chooseMultisampled(build, mapping);
    if (mapping.numLocalFbconfigs < 1) {
        BUILD_INFO("cannot add visual id %x, no local fbconfigs", mapping.appVisual.visualId);
        return false;
    }
    {
        const Lock lock(getLocalDisplayMutex());
        const VisualList visual(
            system_glXGetVisualFromFBConfig(build.local, mapping.chosenFbconfig()));
        if (visual == nullptr) {
            BUILD_INFO("cannot add visual id %x, no local xvisual", mapping.appVisual.visualId);
            return false;
        }
        mapping.localVisual.fill(build.local, visual.get(), build.localMultisample);
    }
    return true;
}

/// Mappings that are not in the map yet: it is complete or empty.
using OwnedMappings = std::list<std::unique_ptr<LocalVisualInfo>>;

/// The application's visuals that support GL, in the server's order.
OwnedMappings glVisuals(const Build& build, XVisualInfo* visuals, int count) {
    OwnedMappings kept;
    for (int i = 0; i < count; ++i) {
        auto mapping = std::make_unique<LocalVisualInfo>();
        mapping->appVisual.fill(build.appDpy, &visuals[i], build.appMultisample);
        if (mapping->appVisual.useGL != 0) {
            BUILD_INFO("adding id %lx (%d)", visuals[i].visualid, mapping->appVisual.doubleBuffer);
            mapping->doubleBuffered = mapping->appVisual.doubleBuffer != 0;
            kept.push_back(std::move(mapping));
        } else {
            BUILD_INFO("skipping id %lx (does not support OpenGL)", visuals[i].visualid);
        }
    }
    return kept;
}

LocalVisualInfo* findByAppVisual(VisualID id) {
    const Lock lock(kor::gl::getVisualMapMutex());
    for (LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        if (static_cast<VisualID>(static_cast<uint32_t>(mapping->appVisual.visualId)) == id)
            return mapping;
    }
    return nullptr;
}

} // namespace

void initializeVisualMap(Display* appDpy, int screen, TSD* tsd) {
    if (tsd == nullptr)
        tsd = getTSD();
    if (tsd == nullptr || appDpy == nullptr)
        return;
    kor::gl::LocalDisplay pinned; // given back when the lock is released
    const Lock lock(kor::gl::getVisualMapMutex());
    if (mappings->built)
        return;

    XVisualInfo wanted{};
    wanted.screen = screen;
    int count = 0;
    const VisualList visuals(XGetVisualInfo(appDpy, VisualScreenMask, &wanted, &count));
    if (visuals == nullptr) {
        KOR_ERROR_ECHO("FATAL: cannot find any visual in the display.");
        exit(20);
    }
    BUILD_INFO("obtained %d visuals for appDisplay", count);

    Build build{};
    build.appDpy = appDpy;
    build.screen = screen;
    build.wantedSamples = kor::conf::settings().multisample;
    build.appMultisample = matchExtension(
        system_glXQueryExtensionsString(appDpy, DefaultScreen(appDpy)), "GLX_ARB_multisample");
    if (build.appMultisample)
        BUILD_INFO("appDisplay supports multisampling");
    if (!_setupAppDisplay(appDpy, tsd))
        return;
    pinned = kor::gl::pinLocalDisplay(tsd);
    build.local = pinned.get();
    if (build.local == nullptr)
        return;
    if (build.wantedSamples != 0) {
        const Lock localLock(getLocalDisplayMutex());
        build.localMultisample =
            matchExtension(system_glXQueryExtensionsString(build.local, DefaultScreen(build.local)),
                           "GLX_ARB_multisample");
        if (build.localMultisample)
            BUILD_INFO("localDisplay supports multisampling");
    }

    VisualMap complete;
    OwnedMappings candidates = glVisuals(build, visuals.get(), count);
    for (auto mapping = candidates.begin(); mapping != candidates.end();) {
        if (!pairVisual(build, **mapping)) {
            mapping = candidates.erase(mapping);
            continue;
        }
        complete.push_back(mapping->get());
        logPair(build, **mapping);
        ++mapping;
    }
    for (auto& mapping : candidates)
        static_cast<void>(mapping.release()); // never freed
    kor::gl::getVisualMap().swap(complete);
    mappings->built = true;
}

LocalVisualInfo* _getLVI(Display* appDpy, GLXFBConfig config, TSD* tsd) {
    constexpr const char* function =
        "kor::gl::LocalVisualInfo* _getLVI(Display*, __GLXFBConfigRec*, kor::gl::TSD*)";
    initializeVisualMap(appDpy, DefaultScreen(appDpy), tsd);
    const kor::gl::LocalDisplay pinned = kor::gl::pinLocalDisplay(tsd);
    Display* const local = pinned.get();
    if (local == nullptr)
        return nullptr;

    int visualId = 0;
    int failed = 0;
    {
        const Lock lock(getLocalDisplayMutex());
        failed = system_glXGetFBConfigAttrib(local, config, GLX_VISUAL_ID, &visualId);
    }
    const Lock lock(kor::gl::getVisualMapMutex());
    if (failed == 0) {
        for (LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
            if (mapping->localVisual.visualId == visualId)
                return mapping;
        }
        KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false,
                   "LVI not found for fbconfig %d (local visual %d). Trying another way...",
                   static_cast<int>(handleText(config)), visualId);
    }
    for (LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        for (int i = 0; i < mapping->numLocalFbconfigs; ++i) {
            if (mapping->localFbconfigs[i] == config)
                return mapping;
        }
    }
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false,
               "LVI for fbconfig %d not found (again)", static_cast<int>(handleText(config)));
    return nullptr;
}

LocalVisualInfo* _getLVI(Display* appDpy, VisualID id, TSD* tsd) {
    initializeVisualMap(appDpy, DefaultScreen(appDpy), tsd);
    if (LocalVisualInfo* mapping = findByAppVisual(id))
        return mapping;
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG",
               "kor::gl::LocalVisualInfo* _getLVI(Display*, VisualID, kor::gl::TSD*)", false,
               "LVI for app visual %d not found", static_cast<int>(id));
    return nullptr;
}
